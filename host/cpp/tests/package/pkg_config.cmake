# An example builds with what pkg-config says, without a warning.
find_program(pkg_config NAMES pkg-config pkgconf)
if(NOT pkg_config)
  message("SKIPPED: there is no pkg-config")
  return()
endif()
set(ENV{PKG_CONFIG_PATH} "${PREFIX}/share/pkgconfig")

run("${pkg_config}" --modversion orvo_timing)
expect("version" "${VERSION}\n" "${output}")
run("${pkg_config}" --cflags --libs orvo_timing)
separate_arguments(flags UNIX_COMMAND "${output}")

run("${COMPILER}" -std=c++20 -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
  "${PREFIX}/share/doc/orvo_timing/examples/correlate.cpp" ${flags} -o correlate)
write_capture()
expect_correlation("${WORK}/correlate")
