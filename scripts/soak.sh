# shellcheck shell=bash
# ./paddock soak: the long forms of tests/soak. PADDOCK_SEED replays a run.
: "${project:?}"

soak_parts=(kills power_loss steady)

# Kills at every call of each request; a hundred requests before the power fails; 64 clients, a million requests.
long_form() {
  export PADDOCK_KILLS=${PADDOCK_KILLS:-0} PADDOCK_CHANGES=${PADDOCK_CHANGES:-100} \
    PADDOCK_CLIENTS=${PADDOCK_CLIENTS:-64} PADDOCK_REQUESTS=${PADDOCK_REQUESTS:-10000} \
    PADDOCK_READS=${PADDOCK_READS:-800000}
}

# Of a part, its figures; what else it says is in its log.
soak_one() {
  local part=$1 preset=$2 log=$project/build/log/soak-$1.log
  say "soak: $part"
  quietly "$log" python3 -B "$project/tests/soak/${part}_test.py" "$(command -v cmake)" "$(build_folder "$preset")" || return 1
  grep -hE '^\.*(seed [0-9]+|[0-9]+ (kills|states|requests|of [0-9]+))' -- "$log"
}

command_soak() {
  local preset=dev parts=() part failed=''
  while [ $# -gt 0 ]; do
    case $1 in
      --preset)
        [ $# -ge 2 ] || usage_error "--preset needs a name"
        preset=$2
        shift
        ;;
      *)
        [[ " ${soak_parts[*]} " == *" $1 "* ]] || usage_error "usage: ./paddock soak [--preset P] [${soak_parts[*]}]"
        parts+=("$1")
        ;;
    esac
    shift
  done
  [ "$(id -u)" -eq 0 ] || die "soak runs in namespaces of its own, which takes root"
  need_packages build test
  build "$preset"
  long_form
  for part in "${parts[@]:-${soak_parts[@]}}"; do
    soak_one "$part" "$preset" || failed+=" $part"
  done
  [ -z "$failed" ] || die "soak: these failed:$failed (their seeds and what they said: build/log/soak-*.log)"
}
