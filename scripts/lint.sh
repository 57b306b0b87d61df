# shellcheck shell=bash
# ./paddock lint and ./paddock format
: "${project:?}"

# The sources below our folders, NUL-separated; $1 is the find pattern of their names.
sources() {
  local folders=() folder
  for folder in src include plugins apps tests bench fuzz; do
    [ ! -d "$project/$folder" ] || folders+=("$project/$folder")
  done
  find "${folders[@]}" -type f \( "$@" \) -print0
}

scripts() {
  printf '%s\0' "$project/paddock" "$project/.ci/run"
  find "$project/scripts" "$project/tests" "$project/bench" -type f -name '*.sh' -print0 2>/dev/null
}

lint_format() {
  sources -name '*.h' -o -name '*.cc' | xargs -0 -r clang-format --dry-run -Werror
}

lint_scripts() {
  scripts | xargs -0 shellcheck -x -P "$project"
}

lint_layering() {
  python3 -B "$project/tests/layering/layering.py" "$project"
}

# clang-tidy reads the compile commands of the dev preset, but without precompiled headers: those of g++
# are nothing to clang, and without them an #include that is missing is seen. Where GoogleTest's macros
# stand, the static analyzer takes most of the time and finds nothing; how fast a test is does not matter
# either.
# On standard error it counts the warnings of other code.
run_tidy() {
  xargs -0 -r -n 1 -P "$(jobs_count)" clang-tidy --quiet -p "$(build_folder lint)" \
    --extra-arg=-Wno-unknown-warning-option "$@" 2>>"$(lint_log clang-tidy).stderr"
}

lint_tidy() {
  local began=$SECONDS status=0
  : >"$(lint_log clang-tidy).stderr"
  if [ $# -gt 0 ]; then
    printf '%s\0' "$@" | run_tidy || status=1
  else
    sources -name '*.cc' -not -path '*/tests/*' -not -name '*_test.cc' | run_tidy || status=1
    sources -path '*/tests/*.cc' -o -name '*_test.cc' |
      run_tidy --checks='-clang-analyzer-*,-performance-*' || status=1
  fi
  say "clang-tidy took $((SECONDS - began)) s ($(jobs_count) jobs)"
  return "$status"
}

lint_log() { printf '%s/build/log/lint-%s.txt\n' "$project" "$1"; }

# lint NAME FUNCTION...: runs it, keeps what it says, and notes NAME when it finds a fault.
lint() {
  local name=$1
  shift
  say "$name"
  "$@" 2>&1 | tee -- "$(lint_log "$name")" || failed+=("$name")
}

# What a lint found, once each. A header's finding comes with every source that includes it.
findings() {
  local log found
  log=$(lint_log "$1")
  case $1 in
    clang-*) found=$(grep -E '^[^ ].*: (warning|error): ' -- "$log" | sort -u) || true ;;
    *) found=$(cat -- "$log") ;;
  esac
  # None: it broke down.
  [ -n "$found" ] || found=$(cat -- "$log".stderr "$log" 2>/dev/null | tail -n 20) || true
  printf '%s\n' "${found//"$project/"/}"
}

command_lint() {
  need_packages build test lint
  cd -- "$project" || exit 1
  configure lint || exit 1
  local failed=() name
  lint clang-format lint_format
  lint shellcheck lint_scripts
  lint layering lint_layering
  lint clang-tidy lint_tidy "$@"
  for name in ${failed[@]+"${failed[@]}"}; do
    say "$name found:"
    findings "$name"
  done
  [ ${#failed[@]} -eq 0 ] || die "lint: these found faults: ${failed[*]}"
  say "lint found nothing"
}

command_format() {
  need_packages lint
  sources -name '*.h' -o -name '*.cc' | xargs -0 -r clang-format -i
}
