# shellcheck shell=bash
# Units of work beside each other, each with half of the cores: while one is configured, linked or waits for its last
# test, the other goes on. What a unit writes is shown in one piece when it has ended.
# Sourced, by a script that has set root, the checkout's absolute path.
: "${root:?}"

units=()                  # in the order in which they start, as soon as those they come after have ended
declare -A unit_commands=()  # what each runs
declare -A unit_after=()     # the units it comes after, where these are to run at all
declare -A unit_needs=()     # the units without whose success it cannot run
declare -A unit_status=()    # of those that have ended: 0, or why they are no success
declare -A unit_of_pid=()

# unit NAME COMMAND...: once, however often it is named.
unit() {
  if [[ -v unit_commands[$1] ]]; then return; fi
  units+=("$1")
  unit_commands[$1]="${*:2}" unit_after[$1]="" unit_needs[$1]=""
}

unit_may_start() {
  local name
  for name in ${unit_after[$1]} ${unit_needs[$1]}; do
    if [[ -v unit_commands[$name] && ! -v unit_status[$name] ]]; then return 1; fi
  done
}

failed_need_of() {
  local name
  for name in ${unit_needs[$1]}; do
    if [[ ${unit_status[$name]:-0} != 0 ]]; then
      printf '%s' "$name"
      return
    fi
  done
}

start_unit() {
  local name=$1 failed
  failed=$(failed_need_of "$name")
  if [[ -n $failed ]]; then
    unit_status[$name]="not run" may_start_more=yes
    printf '\n==== %s is not run: %s failed\n' "$name" "$failed"
    return
  fi
  printf -- '---- %s begins\n' "$name"
  # A process group of its own, so that all of it can be stopped. Words of a command never hold spaces.
  # shellcheck disable=SC2086
  (
    SECONDS=0
    ${unit_commands[$name]} && status=0 || status=$?
    printf '%d s; user and system time of the shell, and of what it ran:\n' "$SECONDS"
    times
    exit "$status"
  ) >"$root/build/ci/$name.log" 2>&1 </dev/null &
  unit_of_pid[$!]=$name
}

start_what_may_start() {
  local name may_start_more=yes
  while [[ -n $may_start_more ]]; do
    may_start_more=
    for name in "${units[@]}"; do
      if ((${#unit_of_pid[@]} >= 2)); then return; fi
      if [[ -v unit_status[$name] || " ${unit_of_pid[*]} " == *" $name "* ]]; then continue; fi
      if unit_may_start "$name"; then start_unit "$name"; fi
    done
  done
}

stop_units() {
  local pid
  trap '' INT TERM HUP
  for pid in "${!unit_of_pid[@]}"; do kill -TERM -- "-$pid" 2>/dev/null || true; done
  wait 2>/dev/null
}

# Runs all units. Then unit_status has an entry for each.
run_units() {
  local pid status cores
  cores=$(nproc 2>/dev/null || echo 2)
  jobs=$((cores > 2 ? cores / 2 : 1))
  export CMAKE_BUILD_PARALLEL_LEVEL=$jobs ORVO_BUILD_JOBS=$jobs
  mkdir -p -- "$root/build/ci"
  set -m
  trap stop_units EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM HUP
  start_what_may_start
  while ((${#unit_of_pid[@]} > 0)); do
    status=0
    wait -n -p pid "${!unit_of_pid[@]}" || status=$?
    if [[ ! -v pid ]]; then  # a unit was stopped, which ends the wait as well
      sleep 1
      continue
    fi
    unit_status[${unit_of_pid[$pid]}]=$status
    printf '\n==== %s: status %d\n' "${unit_of_pid[$pid]}" "$status"
    cat -- "$root/build/ci/${unit_of_pid[$pid]}.log"
    unset "unit_of_pid[$pid]"
    start_what_may_start
  done
  trap - EXIT INT TERM HUP
}
