# An installation holds what it should and nothing else, of one version, and does not know where it lies. (Pages show
# paths of somebody's checkout, which may be this one.)
file(REMOVE_RECURSE "${PREFIX}")
run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${PREFIX}")
list_files("${PREFIX}" installed)

list_files("${CHECKOUT}/host/cpp/include" headers)
list(TRANSFORM headers PREPEND "include/")
file(GLOB pages LIST_DIRECTORIES false RELATIVE "${CHECKOUT}" "${CHECKOUT}/docs/*" "${CHECKOUT}/examples/*"
  "${CHECKOUT}/LICENSE")
list(TRANSFORM pages PREPEND "share/doc/orvo_timing/")
set(expected
  bin/vq_convert_stream_file
  bin/vq_inspect_stream_file
  bin/vq_simulate_stream_file
  bin/vq_verify_stream_file_xcorr
  ${headers}
  ${pages}
  share/cmake/orvo_timing/orvo_timingConfigVersion.cmake
  share/cmake/orvo_timing/orvo_timingConfig.cmake
  share/doc/orvo_timing/CHANGELOG.md
  share/doc/orvo_timing/CONTRIBUTING.md
  share/doc/orvo_timing/README.md
  share/man/man1/vq_convert_stream_file.1
  share/man/man1/vq_inspect_stream_file.1
  share/man/man1/vq_simulate_stream_file.1
  share/man/man1/vq_verify_stream_file_xcorr.1
  share/pkgconfig/orvo_timing.pc)
list(SORT expected)
expect("installed files" "${expected}" "${installed}")

foreach(file IN LISTS installed)
  if(NOT file MATCHES "^(bin|share/doc)/")
    file(READ "${PREFIX}/${file}" text)
    foreach(place "${PREFIX}" "${BUILD}" "${CHECKOUT}")
      string(FIND "${text}" "${place}" at)
      expect("${file}: position of '${place}' in it" -1 "${at}")
    endforeach()
  endif()
endforeach()

file(STRINGS "${PREFIX}/share/doc/orvo_timing/CHANGELOG.md" newest REGEX "^## \\[[0-9]" LIMIT_COUNT 1)
string(REGEX REPLACE "^## \\[(.*)\\].*" "\\1" newest "${newest}")
expect("newest version in the change log" "${VERSION}" "${newest}")

# A package of the same major version will do that is not older than what is asked for.
string(REGEX MATCH "^[0-9]+" major "${VERSION}")
math(EXPR next_major "${major} + 1")
math(EXPR last_major "${major} - 1")
function(expect_suitable requested expected)
  string(REGEX MATCH "^[0-9]+" PACKAGE_FIND_VERSION_MAJOR "${requested}")
  set(PACKAGE_FIND_VERSION "${requested}")
  include("${PREFIX}/share/cmake/orvo_timing/orvo_timingConfigVersion.cmake")
  expect("package version" "${VERSION}" "${PACKAGE_VERSION}")
  expect("suitable for ${requested}" "${expected}" "${PACKAGE_VERSION_COMPATIBLE}")
endfunction()
expect_suitable("${VERSION}" TRUE)
expect_suitable("${major}.0" TRUE)
expect_suitable("${VERSION}.1" FALSE)
expect_suitable("${next_major}.0" FALSE)
expect_suitable("${last_major}.0" FALSE)
