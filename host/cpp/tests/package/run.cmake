# Runs one case, cmake -DCASE=... -P run.cmake, in a fresh directory WORK. CMakeLists.txt sets the other variables.
cmake_minimum_required(VERSION 3.25)

# Runs a command; sets `output` to its standard output. Ends the case when it fails.
function(run)
  execute_process(COMMAND ${ARGV} WORKING_DIRECTORY "${WORK}"
    OUTPUT_VARIABLE out ERROR_VARIABLE err RESULT_VARIABLE status)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "${ARGV}\nended with ${status}:\n${out}${err}")
  endif()
  set(output "${out}" PARENT_SCOPE)
endfunction()

function(expect what expected seen)
  if(NOT "${seen}" STREQUAL "${expected}")
    message(SEND_ERROR "${what}\nexpected:\n${expected}\nseen:\n${seen}")
  endif()
endfunction()

# Of pulses 0 to 9999, one a microsecond, channel 0 has every fourth and channel 1 each: 2500 + 10000 tags of 8 bytes.
function(write_capture)
  run("${EXAMPLES}/write_capture" pulses.tagcap)
  expect("write_capture" "12500 tags in 100000 bytes of payload\n" "${output}")
endfunction()

# Groups of four pulses are 250, 240, 260 and 250 ps late in turn, so of 2500 pairs 1250, the median among them, are 250
# ps apart and 625 each 10 ps off it: sigma is sqrt(1250 * 10^2 / 2500) = 7.071 ps, and FWHM 2.354820045 times that.
function(expect_correlation program)
  run("${program}" pulses.tagcap)
  expect("correlate"
    "delay: 250 ps\ncoincidences: 2500\npeak: 1250 within 10 ps around 250 ps\nwidth: 16.7 ps FWHM\n" "${output}")
endfunction()

# The files at any depth below `directory`, by their relative paths.
function(list_files directory result)
  file(GLOB_RECURSE files LIST_DIRECTORIES false RELATIVE "${directory}" "${directory}/*")
  list(SORT files)
  set(${result} "${files}" PARENT_SCOPE)
endfunction()

file(REMOVE_RECURSE "${WORK}")
file(MAKE_DIRECTORY "${WORK}")
include("${CMAKE_CURRENT_LIST_DIR}/${CASE}.cmake")
