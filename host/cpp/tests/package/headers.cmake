# Every header that programs include compiles alone.
file(GLOB headers RELATIVE "${PREFIX}/include" "${PREFIX}/include/orvo/timing/*.hpp")
list(LENGTH headers count)
if(count EQUAL 0)
  message(FATAL_ERROR "no headers")
endif()
foreach(header IN LISTS headers)
  file(WRITE "${WORK}/alone.cpp" "#include <${header}>\n")
  run("${COMPILER}" -std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror
    "-I${PREFIX}/include" alone.cpp)
endforeach()
