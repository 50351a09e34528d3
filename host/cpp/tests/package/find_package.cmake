# The installed examples build with the installed library.
run("${CMAKE_COMMAND}" -S "${PREFIX}/share/doc/orvo_timing/examples" -B build -G "${GENERATOR}"
  "-DCMAKE_CXX_COMPILER=${COMPILER}" "-DCMAKE_PREFIX_PATH=${PREFIX}")
file(STRINGS "${WORK}/build/CMakeCache.txt" found REGEX "^orvo_timing_DIR:")
expect("package that was found" "orvo_timing_DIR:PATH=${PREFIX}/share/cmake/orvo_timing" "${found}")

run("${CMAKE_COMMAND}" --build build --target correlate)
write_capture()
expect_correlation("${WORK}/build/correlate")
