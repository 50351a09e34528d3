# A project that adds the checkout gets the library and nothing else.
run("${CMAKE_COMMAND}" -S "${CMAKE_CURRENT_LIST_DIR}/parent" -B build -G "${GENERATOR}"
  "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DORVO_CHECKOUT=${CHECKOUT}")
run("${CMAKE_COMMAND}" --build build)
run("${WORK}/build/parent")
string(REPLACE "." ";" parts "${VERSION}")
list(GET parts 0 major)
list(GET parts 1 minor)
list(GET parts 2 patch)
math(EXPR number "${major} * 10000 + ${minor} * 100 + ${patch}")
expect("version as text and number" "${VERSION} ${number}\n" "${output}")

run("${CMAKE_COMMAND}" --install build --prefix "${WORK}/installed")
list_files("${WORK}/installed" installed)
expect("what the parent installs" "bin/parent" "${installed}")

run("${CMAKE_CTEST_COMMAND}" --test-dir build --show-only)
string(REGEX MATCH "Total Tests: [0-9]+" tests "${output}")
expect("tests of the parent" "Total Tests: 0" "${tests}")
