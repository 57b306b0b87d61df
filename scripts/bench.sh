# shellcheck shell=bash
# ./paddock bench: what it measures and how, bench/README.md.
: "${project:?}"
# shellcheck source=scripts/install.sh
. "$project/scripts/install.sh"

# In a mount namespace of its own, so that the NFS server's tools find files of the run where they
# would find this machine's.
measure() {
  local work=$1
  shift
  exec unshare --mount --propagation private python3 -B "$project/bench/run.py" \
    --programs "$(build_folder release)/bin" --tree "$work/tree" --work "$work" "$@"
}

command_bench() {
  local arguments=() status=0
  while [ $# -gt 0 ]; do
    case $1 in
      --json | --only)
        [ $# -ge 2 ] || usage_error "$1 needs an argument"
        [ "$1" = --only ] || set -- "$1" "$(realpath -m -- "$2")" "${@:3}"
        arguments+=("$1" "$2")
        shift 2
        ;;
      *) usage_error "usage: ./paddock bench [--json FILE] [--only listing|growth|exports|change|shares|writes|names|privileges|indexing|quotas|counting|ldap|propagation|shapes|permissions|memory]..." ;;
    esac
  done
  [ "$(id -u)" -eq 0 ] || die "bench runs exportfs on files of its own, which takes root"
  need_packages build bench
  build release
  bench_work=$(mktemp -d /var/tmp/paddock-bench.XXXXXX)
  trap 'rm -rf -- "$bench_work"' EXIT
  install_tree "$bench_work/tree"
  measure "$bench_work" ${arguments[@]+"${arguments[@]}"} &
  # What was started ends what it started.
  trap 'kill -TERM "$!" 2>/dev/null; wait; exit 1' INT TERM
  wait "$!" || status=$?
  exit "$status"
}
