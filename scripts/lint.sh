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
  say "clang-format"
  sources -name '*.h' -o -name '*.cc' | xargs -0 -r clang-format --dry-run -Werror
}

lint_scripts() {
  say "shellcheck"
  scripts | xargs -0 shellcheck -x -P "$project"
}

lint_layering() {
  say "layering"
  python3 -B "$project/tests/layering/layering.py" "$project"
}

# clang-tidy reads the compile commands of the dev preset. Where GoogleTest's macros stand, the static
# analyzer takes most of the time and finds nothing; how fast a test is does not matter either.
run_tidy() {
  xargs -0 -r -n 1 -P "$(jobs_count)" clang-tidy --quiet -p "$(build_folder dev)" \
    --extra-arg=-Wno-unknown-warning-option "$@" 2>/dev/null
}

lint_tidy() {
  local began=$SECONDS status=0
  say "clang-tidy ($(jobs_count) jobs)"
  if [ $# -gt 0 ]; then
    printf '%s\0' "$@" | run_tidy || status=1
  else
    sources -name '*.cc' -not -path '*/tests/*' -not -name '*_test.cc' | run_tidy || status=1
    sources -path '*/tests/*.cc' -o -name '*_test.cc' |
      run_tidy --checks='-clang-analyzer-*,-performance-*' || status=1
  fi
  say "clang-tidy took $((SECONDS - began)) s"
  return "$status"
}

command_lint() {
  need_packages build test lint
  cd -- "$project" || exit 1
  configure dev || exit 1
  local failed=
  lint_format || failed+=" clang-format"
  lint_scripts || failed+=" shellcheck"
  lint_layering || failed+=" layering"
  lint_tidy "$@" || failed+=" clang-tidy"
  [ -z "$failed" ] || die "lint: these found faults:$failed"
  say "lint found nothing"
}

command_format() {
  need_packages lint
  sources -name '*.h' -o -name '*.cc' | xargs -0 -r clang-format -i
}
