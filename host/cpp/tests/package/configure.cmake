# A part whose packages are missing is left out with one line, or is an error where it was asked for. Packages are hidden
# by CMake's own switch; the verification tool builds without any of them.
set(hidden)
foreach(package CLI11 nlohmann_json GTest benchmark)
  list(APPEND hidden "-DCMAKE_DISABLE_FIND_PACKAGE_${package}=ON")
endforeach()

# configure(<status: ok or error> <expected lines of the parts, each ending in a newline> <arguments>...)
function(configure expected_status expected_lines)
  execute_process(COMMAND "${CMAKE_COMMAND}" --fresh -S "${CHECKOUT}" -B "${WORK}/build" "-DCMAKE_CXX_COMPILER=${COMPILER}"
    ${ARGN} OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
  if(status EQUAL 0)
    set(status ok)
  else()
    set(status error)
  endif()
  expect("status of configuring with ${ARGN}" "${expected_status}" "${status}")
  string(REGEX MATCHALL "(Left out: |ORVO_BUILD_[A-Z]+=ON asks for )[^\n]*(\n  [^\n]+)*\n" lines "${out}${err}")
  string(REGEX REPLACE "\n +" " " lines "${lines}")  # CMake breaks the lines of its errors
  list(JOIN lines "" lines)
  expect("lines of configuring with ${ARGN}" "${expected_lines}" "${lines}")
endfunction()

set(left_out "Left out: vq_simulate_stream_file (missing: libcli11-dev)
Left out: vq_convert_stream_file (missing: libcli11-dev)
Left out: vq_inspect_stream_file (missing: libcli11-dev, nlohmann-json3-dev)
")
configure(ok "${left_out}Left out: tests and examples (missing: libcli11-dev, libgmock-dev)\n"
  ${hidden} -G "${GENERATOR}" -DCMAKE_BUILD_TYPE=Debug)
run("${CMAKE_COMMAND}" --build "${WORK}/build")
list_files("${WORK}/build/bin" programs)
expect("programs without any package" "vq_verify_stream_file_xcorr" "${programs}")
run("${CMAKE_COMMAND}" --install "${WORK}/build" --prefix "${WORK}/installed")
list_files("${WORK}/installed/share/man" pages)
expect("manual pages of these programs" "man1/vq_verify_stream_file_xcorr.1" "${pages}")

configure(error "ORVO_BUILD_SIMULATOR=ON asks for vq_simulate_stream_file (missing: libcli11-dev)\n"
  ${hidden} -DORVO_BUILD_SIMULATOR=ON)
configure(error "${left_out}\
ORVO_BUILD_TESTS=ON asks for tests and examples (missing: libcli11-dev, libgmock-dev)\n"
  ${hidden} -DORVO_BUILD_TESTS=ON)
configure(error "ORVO_BUILD_BENCHMARKS=ON asks for benchmarks (missing: libbenchmark-dev)\n"
  -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON -DORVO_BUILD_TESTS=OFF -DORVO_BUILD_BENCHMARKS=ON)
configure(error "ORVO_BUILD_SIMULATOR=ON asks for vq_simulate_stream_file (missing: libcli11-dev)\n"
  --preset dev -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON)

configure(ok "Left out: tests and examples (missing: ORVO_BUILD_TOOLS=ON)\n" -DORVO_BUILD_TOOLS=OFF)
configure(error "ORVO_BUILD_INSPECTOR=ON asks for vq_inspect_stream_file (missing: nlohmann-json3-dev)\n"
  -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON -DORVO_BUILD_INSPECTOR=ON)
configure(ok "" -DORVO_BUILD_TESTS=OFF -DORVO_BUILD_SIMULATOR=OFF -DORVO_BUILD_CONVERTER=OFF
  -DORVO_BUILD_INSPECTOR=OFF)
