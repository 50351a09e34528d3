# shellcheck shell=bash
# What a script needs on the machine: look for it, install it if that is allowed, name it otherwise.
# Sourced by a script that has set script_name, and script, its absolute path.
: "${script_name:?}" "${script:?}"

missing_packages=()  # Debian's names
missing_tools=()     # what a person looks for on another system
wanted_packages=()   # installed where that is allowed, done without elsewhere

# The comment at the head of the script.
usage() {
  local line
  while IFS= read -r line && [[ $line == "#"* ]]; do
    if [[ $line != "#!"* ]]; then printf '%s\n' "${line:2}"; fi
  done <"$script"
}

say() { printf '%s: %s\n' "$script_name" "$*" >&2; }

# An installed package may still not be found, as a module of another Python is not: to install it again is of no use.
is_installed() { [[ $(dpkg-query --show --showformat='${Status}' "$1" 2>/dev/null) == "install ok installed" ]]; }

# note_missing PACKAGE TOOL: once.
note_missing() {
  if [[ -n ${is_wanted_only-} ]]; then
    if [[ " ${wanted_packages[*]-} " != *" $1 "* ]] && ! is_installed "$1"; then wanted_packages+=("$1"); fi
  elif [[ " ${missing_packages[*]-} " != *" $1 "* ]]; then
    missing_packages+=("$1")
    missing_tools+=("$2")
  fi
}

# want need_...: what is missing is no obstacle, tests that need it are skipped.
want() {
  local is_wanted_only=yes
  "$@"
}

# need_command PACKAGE TOOL COMMAND...: any one of the commands will do.
need_command() {
  local package=$1 tool=$2 name
  shift 2
  for name in "$@"; do
    if command -v -- "$name" >/dev/null; then return; fi
  done
  note_missing "$package" "$tool"
}

# need_header PACKAGE TOOL HEADER: a C++ header where the compiler finds it.
need_header() {
  if [[ -e /usr/include/$3 || -e /usr/local/include/$3 ]]; then return; fi
  local probe="__has_include(<$3>)"
  if command -v g++ >/dev/null && printf '#if !%s\n#error\n#endif\n' "$probe" | g++ -x c++ -E - >/dev/null 2>&1; then
    return
  fi
  note_missing "$1" "$2"
}

# need_python_module PACKAGE TOOL MODULE
need_python_module() {
  if python3 -c 'import importlib.util, sys; sys.exit(not importlib.util.find_spec(sys.argv[1]))' "$3" 2>/dev/null; then
    return
  fi
  note_missing "$1" "$2"
}

# need_clang_runtime: the libraries for -fsanitize, which clang's package only recommends.
need_clang_runtime() {
  local version=14 directory=
  if command -v clang++ >/dev/null; then
    version=$(clang++ -dumpversion)
    directory=$(clang++ -print-runtime-dir)
  fi
  if [[ -n $directory ]] && compgen -G "$directory/libclang_rt.asan*" >/dev/null; then return; fi
  note_missing "libclang-rt-${version%%.*}-dev" "Clang's sanitizer runtime"
}

# as_root COMMAND...: without ever asking for a password.
as_root() {
  if ((EUID == 0)); then
    "$@"
  else
    sudo -n -- "$@"
  fi
}

may_install() {
  ((EUID == 0)) || { command -v sudo >/dev/null && sudo -n true 2>/dev/null </dev/null; }
}

# The command for a person to type.
install_line() {
  local prefix=
  if ((EUID != 0)) && command -v sudo >/dev/null; then prefix="sudo "; fi
  printf '%sapt-get update && %sapt-get install --yes %s' "$prefix" "$prefix" "${missing_packages[*]}"
}

install_packages() {
  say "installing $*"
  local apt_get=(env DEBIAN_FRONTEND=noninteractive apt-get --yes -o DPkg::Lock::Timeout=300)
  # Package lists that cannot be refreshed may still do.
  as_root "${apt_get[@]}" update || true
  as_root "${apt_get[@]}" install --no-install-recommends "$@"
}

# Installs what the need_... calls found missing, or says what to do and ends the script with status 69.
provide_missing() {
  provide_needed
  if ((${#wanted_packages[@]} == 0)); then return; fi
  if ! command -v apt-get >/dev/null || ! may_install || ! install_packages "${wanted_packages[@]}" </dev/null >&2; then
    say "going on without: ${wanted_packages[*]}"
  fi
}

provide_needed() {
  if ((${#missing_packages[@]} == 0)); then return; fi
  if ! command -v apt-get >/dev/null; then
    say "missing, and there is no apt-get here to install them with:"
    printf '  %s\n' "${missing_tools[@]}" >&2
    say "install them your system's way, then run this again"
    exit 69
  fi
  if may_install; then
    if install_packages "${missing_packages[@]}" </dev/null >&2; then
      missing_packages=() missing_tools=()
      hash -r
      return
    fi
    say "could not install: ${missing_packages[*]}"
  else
    say "missing packages: ${missing_packages[*]}"
  fi
  local who=
  if ((EUID != 0)) && ! command -v sudo >/dev/null; then who=" as root"; fi
  say "type this$who, then run this again:"
  printf '  %s\n' "$(install_line)" >&2
  exit 69
}
