# shellcheck shell=bash
# The test programs of the dev build under Valgrind's memcheck: one CTest entry for each of theirs.
# Sourced, by a script that has set root, the checkout's absolute path.
: "${root:?}"

# The entries of a generated CTestTestfile.cmake, on standard input, each with valgrind before its program.
entries_under_valgrind() {
  local line
  local -r after_name=']=] "'
  local -r memcheck='"valgrind" "--quiet" "--error-exitcode=99" "--leak-check=full" "--errors-for-leak-kinds=definite"'
  while IFS= read -r line; do
    if [[ $line == "add_test("*"$after_name"* ]]; then
      line="${line%%"$after_name"*}]=] $memcheck \"${line#*"$after_name"}"
    fi
    printf '%s\n' "$line"
  done
}

run_under_valgrind() {
  local -r entries=host/cpp/tests/CTestTestfile.cmake
  mkdir -p -- "$root/build/valgrind" &&
    entries_under_valgrind <"$root/build/dev/$entries" >"$root/build/valgrind/CTestTestfile.cmake" &&
    ctest --test-dir "$root/build/valgrind" --output-on-failure --no-tests=error -j 2
}
