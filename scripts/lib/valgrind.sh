# shellcheck shell=bash
# The dev build under Valgrind's memcheck: one CTest entry for each of its test programs, and one for each of some
# captures that the simulator writes and the tool verifies, both under Valgrind.
# Sourced, by a script that has set root, the checkout's absolute path.
: "${root:?}"

readonly memcheck='"valgrind" "--quiet" "--error-exitcode=99" "--leak-check=full" "--errors-for-leak-kinds=definite"'

# The entries of a generated CTestTestfile.cmake, on standard input, each with valgrind before its program.
entries_under_valgrind() {
  local line
  local -r after_name=']=] "'
  while IFS= read -r line; do
    if [[ $line == "subdirs("* ]]; then continue; fi  # those below have no test programs
    if [[ $line == "add_test("*"$after_name"* ]]; then
      line="${line%%"$after_name"*}]=] $memcheck \"${line#*"$after_name"}"
    fi
    printf '%s\n' "$line"
  done
}

# Left out: the programs of run/, which start the tool as a program of its own (those of tools/ run it in
# process), the random comparisons of reference/, which would take hours, and what builds with flags of its own.
readonly not_under_valgrind='^(run|reference|docs|package|hardening|made_by)_'

# Left out as well: what Valgrind cannot do. Its long double is a double, and an allocation that fails in it
# ends the program.
readonly tests_valgrind_cannot_run=(
  XcorrRms.RoundsTheMeanToADoubleFirst
  XcorrAtTheEndsOf64Bits.MoreBinsThanTheMemoryHoldsIsAnAllocationFailure
)

readonly encodings=(
  "--encoding raw64"
  "--encoding raw64 --tag-format raw_cf"
  "--encoding delta32"
  "--encoding packed_delta --start-bit 3"
  "--encoding packed_delta --mode internal --channels 0,1,2,3 --delta-bits 7"
)
readonly damages=(
  ""
  "--front-garbage 40 --garbage 1000 --garbage-at 9000 --cut-tail 3"
  "--flip-every 700"
)

# words TEXT: its words, each in quotes of CMake.
words() {
  local word text=()
  read -ra text <<<"$1"
  for word in ${text[@]+"${text[@]}"}; do printf ' "%s"' "$word"; done
}

# A capture of each encoding, whole and damaged: one entry writes it, the next verifies it.
captures_under_valgrind() {
  local encoding damage name capture number=0
  for encoding in "${encodings[@]}"; do
    for damage in "${damages[@]}"; do
      name="capture_$((++number))" capture="$root/build/valgrind/capture_$number.tagcap"
      printf 'add_test([=[simulate_%s]=] %s "%s" "%s" "--tags" "6000"%s)\n' "$name" "$memcheck" \
        "$root/build/dev/bin/vq_simulate_stream_file" "$capture" "$(words "$encoding $damage")"
      printf 'set_tests_properties([=[simulate_%s]=] PROPERTIES FIXTURES_SETUP %s)\n' "$name" "$name"
      printf 'add_test([=[verify_%s]=] %s "%s" "%s" "--out-prefix=%s")\n' "$name" "$memcheck" \
        "$root/build/dev/test_bin/vq_verify_stream_file_xcorr" "$capture" "$capture"
      printf 'set_tests_properties([=[verify_%s]=] PROPERTIES FIXTURES_REQUIRED %s RESOURCE_LOCK product_root)\n' \
        "$name" "$name"
    done
  done
}

all_but_those_valgrind_cannot_run() {
  local IFS=:
  printf '%s' "-${tests_valgrind_cannot_run[*]}"
}

run_under_valgrind() {
  local -r entries=$root/build/dev/host/cpp/tests/CTestTestfile.cmake
  local -r under_valgrind=$root/build/valgrind/CTestTestfile.cmake
  mkdir -p -- "$root/build/valgrind" &&
    { entries_under_valgrind <"$entries" && captures_under_valgrind; } >"$under_valgrind" &&
    GTEST_FILTER=$(all_but_those_valgrind_cannot_run) ctest --test-dir "$root/build/valgrind" \
      --exclude-regex "$not_under_valgrind" --output-on-failure --no-tests=error -j 2
}
