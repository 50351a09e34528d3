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

# Left out: the programs of run/, which start the tool as a program of its own (those of tools/ run it in
# process), and the random comparisons of model/, which would take hours.
readonly not_under_valgrind='^(run|model)_'

# Left out as well: what Valgrind cannot do. Its long double is a double, and an allocation that fails in it
# ends the program.
readonly tests_valgrind_cannot_run=(
  XcorrRms.RoundsTheMeanToADoubleFirst
  XcorrAtTheEndsOf64Bits.MoreBinsThanTheMemoryHoldsIsAnAllocationFailure
)

run_under_valgrind() {
  local -r entries=host/cpp/tests/CTestTestfile.cmake
  local IFS=:
  mkdir -p -- "$root/build/valgrind" &&
    entries_under_valgrind <"$root/build/dev/$entries" >"$root/build/valgrind/CTestTestfile.cmake" &&
    GTEST_FILTER="-${tests_valgrind_cannot_run[*]}" ctest --test-dir "$root/build/valgrind" \
      --exclude-regex "$not_under_valgrind" --output-on-failure --no-tests=error -j 2
}
