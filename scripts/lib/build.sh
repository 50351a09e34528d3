# shellcheck shell=bash
# Build trees: build/PRESET for each preset of CMakePresets.json.
# Sourced by a script that has set root, the checkout's absolute path.
: "${root:?}"

need_build_tools() {
  need_command cmake "CMake, 3.25 or newer" cmake
  need_command ninja-build "Ninja" ninja ninja-build samu
}

need_gcc() { need_command g++ "g++, 12 or newer" g++; }
need_clang() { need_command clang "clang++, 14 or newer" clang++; }
need_any_compiler() {
  need_command g++ "a C++20 compiler: g++ 12 or newer, or clang++ 14 or newer" "${CXX:-c++}" c++ g++ clang++
}

# What the programs need: one line each.
need_for_programs() {
  need_header libcli11-dev "CLI11" CLI/CLI.hpp
  need_header nlohmann-json3-dev "nlohmann/json" nlohmann/json.hpp
  need_header libkissfft-dev "KissFFT" kissfft/kiss_fftr.h
  if [[ ! -e /usr/share/javascript/dygraphs/dygraph.min.js ]]; then note_missing libjs-dygraphs "Dygraphs"; fi
}

# What the tests need, those of the pages included: one line each.
need_for_tests() {
  need_header libgtest-dev "GoogleTest" gtest/gtest.h
  need_header libgmock-dev "GoogleMock" gmock/gmock.h
  want need_command python3 "Python" python3
  need_command pkgconf "pkg-config" pkg-config pkgconf
  want need_command groff-base "groff" groff
  want need_command parallel "GNU parallel" parallel
  want need_python_module python3-pandas "pandas" pandas
  want need_python_module python3-matplotlib "Matplotlib" matplotlib
  want need_python_module python3-numpy "NumPy" numpy
  want need_python_module python3-jsonschema "jsonschema" jsonschema
  want need_python_module python3-selenium "Selenium" selenium
  want need_command chromium "Chromium" chromium
  want need_command chromium-driver "ChromeDriver" chromedriver
}

# What a preset of CMakePresets.json needs to be built; fails if there is none of that name.
need_for_preset() {
  case $1 in
    release | install) need_any_compiler ;;
    dev | sanitize) need_gcc && need_for_programs && need_for_tests ;;
    dev-clang) need_clang && need_for_programs && need_for_tests ;;
    sanitize-clang) need_clang && need_clang_runtime && need_for_programs && need_for_tests ;;
    tidy) need_clang && need_for_programs && need_command clang-tidy "clang-tidy" clang-tidy ;;
    fuzz | fuzz-fast) need_command clang "clang++, 14 or newer, with libFuzzer" clang++ && need_clang_runtime ;;
    bench) need_any_compiler && need_header libbenchmark-dev "Google Benchmark" benchmark/benchmark.h ;;
    *) return 1 ;;
  esac
  need_build_tools
}

# True if the tree was configured for this checkout and by the current presets. That is not so after the checkout was
# moved or copied with its build trees, or after an edit of the presets.
is_configured() {
  local tree=$root/build/$1 configured_for=
  [[ -f $tree/build.ninja && -f $tree/configured_for ]] || return 1
  IFS= read -r configured_for <"$tree/configured_for" || return 1
  [[ $configured_for == "$root" && ! $root/CMakePresets.json -nt $tree/configured_for ]]
}

forget_configuration() { rm -f -- "$root/build/$1/configured_for"; }

configure() {
  if is_configured "$1"; then return; fi
  local tree=$root/build/$1
  rm -f -- "$tree/configured_for" &&
    cmake --fresh -S "$root" --preset "$1" &&
    printf '%s\n' "$root" >"$tree/configured_for"
}

# build PRESET [TARGET...]: configures the tree first if necessary; two builds of one tree wait for each other.
# Every step is chained, because a caller that tests the status turns errexit off in here.
build() {
  local preset=$1
  shift
  mkdir -p -- "$root/build" && (
    if command -v flock >/dev/null; then flock 9 || exit; fi
    configure "$preset" 9>&- && cmake --build "$root/build/$preset" --target "${@:-all}" 9>&-
  ) 9>"$root/build/.$preset.lock" </dev/null
}
