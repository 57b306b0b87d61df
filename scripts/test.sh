# shellcheck shell=bash
# ./paddock test
: "${project:?}"

# The guest that some tests run in, made once.
prepare_guest() {
  [ -n "${PADDOCK_VM:-}" ] || return 0
  PADDOCK_VM=$(cd -- "$PADDOCK_VM" 2>/dev/null && pwd) || die "PADDOCK_VM names no folder: $PADDOCK_VM"
  if [ ! -x "$PADDOCK_VM/vm-build" ] || [ ! -x "$PADDOCK_VM/vm-run" ]; then
    die "PADDOCK_VM holds no vm-build and vm-run: $PADDOCK_VM"
  fi
  need_packages vm
  export PADDOCK_VM PADDOCK_VM_CACHE=${PADDOCK_VM_CACHE:-$project/build/vm}
  say "making the guest's image in $PADDOCK_VM_CACHE"
  quietly "$project/build/log/vm-build.log" "$PADDOCK_VM/vm-build" --packages libtomlplusplus3,samba-vfs-modules "$PADDOCK_VM_CACHE" || exit 1
}

# Passes ctest's output on, without a line for each start, and keeps its closing summary in the file $1.
hold_summary() {
  awk -v held="$1" '/^[0-9]+% tests passed/ { holding = 1 }
                    holding { print > held; next }
                    /^ +Start +[0-9]+: / { next }
                    { print; fflush() }'
}

run_tests() {
  local folder=$1 status=0 report_status=0
  shift
  local summary=$folder/summary.txt results=$folder/results.xml
  rm -f -- "$summary" "$results"
  say "testing"
  ctest --test-dir "$folder" -j "$(jobs_count)" --output-on-failure --no-tests=error \
    --output-junit "$results" --test-output-size-passed 65536 --test-output-size-failed 1048576 \
    "$@" </dev/null 2>&1 | hold_summary "$summary" || status=1
  python3 -B "$project/scripts/report_tests.py" "$folder" "$results" "$project/tests/inventory.txt" ||
    report_status=1
  [ ! -e "$summary" ] || cat -- "$summary"
  [ "$status" -eq 0 ] && [ "$report_status" -eq 0 ] && [ -e "$summary" ]
}

command_test() {
  local preset=dev
  if [ "${1:-}" = --preset ]; then
    [ $# -ge 2 ] || usage_error "--preset needs a name"
    preset=$2
    shift 2
  fi
  need_packages build test
  prepare_guest
  build "$preset"
  run_tests "$(build_folder "$preset")" "$@" || exit 1
}
