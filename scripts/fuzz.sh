# shellcheck shell=bash
# ./paddock fuzz: each fuzz target for some seconds, from the corpus in the tree.
: "${project:?}"

# What a target finds is left in the folder build/fuzz/found; new inputs go to build/fuzz/corpus.
fuzz_one() {
  local program=$1 seconds=$2 name=${1##*/fuzz_}
  local folder
  folder=$(build_folder fuzz)
  mkdir -p -- "$folder/corpus/$name" "$folder/found"
  say "fuzzing $name for $seconds s"
  quietly "$project/build/log/fuzz-$name.log" "$program" -max_total_time="$seconds" -timeout=10 \
    -rss_limit_mb=2048 -artifact_prefix="$folder/found/$name-" "$folder/corpus/$name" \
    "$project/fuzz/corpus/$name" || return 1
  tail -n 1 -- "$project/build/log/fuzz-$name.log"
}

command_fuzz() {
  local seconds=${1:-60} program failed=''
  [[ $seconds =~ ^[1-9][0-9]*$ ]] || usage_error "usage: ./paddock fuzz [SECONDS]"
  need_packages build fuzz
  build fuzz
  for program in "$(build_folder fuzz)"/bin/fuzz_*; do
    fuzz_one "$program" "$seconds" || failed+=" ${program##*/fuzz_}"
  done
  [ -z "$failed" ] || die "fuzz: found something with:$failed (inputs in $(build_folder fuzz)/found)"
}
