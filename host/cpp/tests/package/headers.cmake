# The headers that programs include compile under more warnings than this project has for itself; that each compiles alone
# is the build's all_verify_interface_header_sets. Below C++20 the first error of each says what it needs.
file(GLOB headers RELATIVE "${PREFIX}/include" "${PREFIX}/include/orvo/timing/*.hpp")
list(LENGTH headers count)
if(count EQUAL 0)
  message(FATAL_ERROR "no headers")
endif()
list(TRANSFORM headers REPLACE "(.+)" "#include <\\1>\n" OUTPUT_VARIABLE all)
file(WRITE "${WORK}/all.cpp" ${all})
run("${COMPILER}" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wsign-conversion -Wshadow -Werror
  "-I${PREFIX}/include" all.cpp)
foreach(header IN LISTS headers)
  file(WRITE "${WORK}/alone.cpp" "#include <${header}>\n")
  execute_process(COMMAND "${COMPILER}" -std=c++17 -fsyntax-only -Wfatal-errors "-I${PREFIX}/include" alone.cpp
    WORKING_DIRECTORY "${WORK}" OUTPUT_QUIET ERROR_VARIABLE errors)
  string(REGEX MATCH "error: [^\n]*" first_error "${errors}")
  if(NOT first_error MATCHES "orvo::timing needs C[+][+]20")
    message(SEND_ERROR "${header} below C++20: ${first_error}")
  endif()
endforeach()
