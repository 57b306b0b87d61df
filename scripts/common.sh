# shellcheck shell=bash
# What every command uses: messages, and how many jobs run at once.

say() { printf '== %s\n' "$*"; }

die() {
  printf 'paddock: %s\n' "$*" >&2
  exit 1
}

usage_error() {
  printf 'paddock: %s\n' "$*" >&2
  exit 2
}

jobs_count() { printf '%s\n' "${PADDOCK_JOBS:-$(nproc)}"; }

# quietly LOG COMMAND... runs the command with its output in LOG; when it fails, shows the end of it.
quietly() {
  local log=$1 status=0
  shift
  mkdir -p -- "$(dirname -- "$log")"
  "$@" >"$log" 2>&1 </dev/null || status=$?
  [ "$status" -eq 0 ] && return 0
  tail -n 60 -- "$log" >&2
  printf 'paddock: %s failed with status %s (all of its output: %s)\n' "$1" "$status" "$log" >&2
  return "$status"
}
