# shellcheck shell=bash
# Build trees: build/PRESET for each preset of CMakePresets.json.
# Sourced, by a script that has set root, the checkout's absolute path.
: "${root:?}"

need_build_tools() {
  need_command cmake "CMake, 3.25 or newer" cmake
  need_command ninja-build "Ninja" ninja ninja-build samu
}

# The tree is configured for the checkout where it stands, and by the presets of today: not so after the
# checkout was moved or copied with its build trees, or after an edit of the presets.
is_configured() {
  local tree=$root/build/$1 configured_for=
  [[ -f $tree/build.ninja && -f $tree/configured_for ]] || return 1
  IFS= read -r configured_for <"$tree/configured_for" || return 1
  [[ $configured_for == "$root" && ! $root/CMakePresets.json -nt $tree/configured_for ]]
}

configure() {
  if is_configured "$1"; then return; fi
  local tree=$root/build/$1
  rm -f -- "$tree/configured_for" &&
    cmake --fresh -S "$root" --preset "$1" &&
    printf '%s\n' "$root" >"$tree/configured_for"
}

# build PRESET [TARGET]: configures the tree if it has to be; two builds of one tree wait for each other.
# Every step is chained: a caller that asks for the status turns errexit off in here.
build() {
  local preset=$1 target=${2:-all}
  mkdir -p -- "$root/build" && (
    if command -v flock >/dev/null; then flock 9 || exit; fi
    configure "$preset" 9>&- && cmake --build "$root/build/$preset" --target "$target" 9>&-
  ) 9>"$root/build/.$preset.lock" </dev/null
}
