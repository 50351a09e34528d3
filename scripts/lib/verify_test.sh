#!/usr/bin/env bash
# Tests scripts/verify and scripts/build from outside, in a copy of the checkout whose path has spaces. Needs what they
# need.
set -euo pipefail

script=$(realpath -- "${BASH_SOURCE[0]}")
checkout=${script%/scripts/lib/verify_test.sh}
work=$(mktemp -d)
work=$(realpath -- "$work")
trap 'rm -rf -- "$work"' EXIT

copy="$work/a copy"
mkdir -- "$copy" "$work/elsewhere"
# How well the programs are optimised makes no difference here: Clang takes half the time for that. Fortified functions need
# optimisation, and say so in a warning.
compiler=$(command -v clang++ || printf g++)
printf '#!/bin/sh\nexec %s "$@" -O0 -U_FORTIFY_SOURCE\n' "${CXX:-$compiler}" >"$work/compiler"
chmod +x -- "$work/compiler"
export CXX=$work/compiler
cp -R -- "$checkout"/{CMakeLists.txt,CMakePresets.json,cmake,host,scripts} "$copy"
cd -- "$work/elsewhere"

passed=0 failed=0
check() {
  if [[ $2 == "$3" ]]; then
    passed=$((passed + 1))
    printf 'ok      %s\n' "$1"
  else
    failed=$((failed + 1))
    printf 'FAILED  %s\n  expected: %q\n  seen:     %q\n' "$1" "$2" "$3"
  fi
}

# run COMMAND...: runs it and keeps its status and what it wrote to each stream.
run() {
  status=0
  "$@" >"$work/out" 2>"$work/err" </dev/null || status=$?
  out=$(<"$work/out") err=$(<"$work/err")
}
verify() { run "$copy/scripts/verify" "$@"; }
tool_time() { stat -c %Y.%y -- "$copy/build/release/bin/vq_verify_stream_file_xcorr"; }

verify --help
check "first run: status" 0 "$status"
check "first run: standard output is the tool's alone" "$("$copy/build/release/bin/vq_verify_stream_file_xcorr" --help)" "$out"
check "first run: says that it builds" "scripts/verify: building the tool, once" "$err"

built=$(tool_time)
verify none.tagcap 2 2
check "second run: the tool's status" 64 "$status"
check "second run: standard output" "" "$out"
check "second run: standard error is the tool's alone" "channels must be distinct and in 0..3" "$err"
check "second run: builds nothing" "$built" "$(tool_time)"

verify "no such.tagcap" --out-prefix=here
check "a failure: the tool's status" 1 "$status"
check "a failure: runs in the user's directory" "StreamFileReader: cannot open $work/elsewhere/no such.tagcap" "$err"

ln -s -- "$copy/scripts/verify" link
run ./link none.tagcap 0 0
check "through a link" "64 channels must be distinct and in 0..3" "$status $err"

moved="$work/moved copy"
mv -- "$copy" "$moved"
copy=$moved
verify
check "moved with its build tree: status" 0 "$status"
plot=${out#*latest_plot=}
check "moved with its build tree: reports go with it" "$moved/logs" "${plot%%/verification/*}"

# As on a machine that had no CLI11 when the tree was configured.
run cmake --preset release -S "$copy" -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON
check "configured without CLI11: names the package" yes "$([[ $out == *"(missing: libcli11-dev)"* ]] && echo yes)"
run "$copy/scripts/build"
check "scripts/build: status" 0 "$status"
programs=$(cd -- "$copy/host/cpp/tools" && printf '%s\n' *.cpp)
check "scripts/build: builds all programs" "$programs" "$(cd -- "$copy/build/release/bin" && printf '%s.cpp\n' *)"
run "$copy/scripts/build" nothing
check "scripts/build: no such preset" "64 scripts/build: no preset is called 'nothing'; CMakePresets.json lists them" \
  "$status $err"

main=$copy/host/cpp/tools/vq_verify_stream_file_xcorr.cpp
printf 'int main( {\n' >>"$main"
verify --help
check "a source that does not compile: status" 70 "$status"
check "a source that does not compile: standard output" "" "$out"
check "a source that does not compile: the compiler's message" yes "$([[ $err == *error:* ]] && echo yes)"
run "$copy/scripts/build"
check "scripts/build, a source that does not compile: status" 70 "$status"

# A machine with nothing but bash and coreutils.
mkdir -- "$work/bin"
for name in bash env cat mkdir realpath rm; do ln -s -- "$(command -v "$name")" "$work/bin/$name"; done
run env -u CXX PATH="$work/bin" "$copy/scripts/verify" --help
check "no tools, no apt-get: status" 69 "$status"
check "no tools, no apt-get: standard output" "" "$out"
check "no tools, no apt-get: names the tools" yes "$([[ $err == *"C++20 compiler"*CMake*Ninja* ]] && echo yes)"

# An apt-get that installs nothing; whether it is called at all depends on who runs this.
printf '#!/usr/bin/env bash\nexit 100\n' >"$work/bin/apt-get"
chmod +x -- "$work/bin/apt-get"
run env -u CXX PATH="$work/bin" "$copy/scripts/verify" --help
check "packages cannot be installed: status" 69 "$status"
check "packages cannot be installed: the line to type" \
  "  apt-get update && apt-get install --yes g++ cmake ninja-build" "${err##*$'\n'}"

ln -s -- "$(command -v cmake)" "$work/bin/cmake"
run env -u CXX PATH="$work/bin" "$copy/scripts/verify" --help
check "only what is missing is named" "  apt-get update && apt-get install --yes g++ ninja-build" "${err##*$'\n'}"

printf '%d passed, %d failed\n' "$passed" "$failed"
((failed == 0))
