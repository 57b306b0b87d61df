# shellcheck shell=bash
# ./paddock lint and ./paddock format
: "${project:?}"

# The sources below our folders, NUL-separated; $1 is the find pattern of their names.
sources() {
  local folders=() folder
  for folder in src include plugins apps tests bench fuzz scripts; do
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

# Sizes, names, repeated code, commit subjects.
lint_tree() {
  python3 -B "$project/tests/layering/house_rules.py" "$project"
}

tidy_folder() { printf '%s/tidy\n' "$(build_folder lint)"; }

# What clang-tidy needs besides: a plug-in that keeps the checks to our own code, compile commands of which
# each source has one, and GoogleTest's headers precompiled by clang, for the tests alone. All other sources
# are read with their own includes alone, so that one that is missing is seen.
prepare_tidy() {
  local folder major flags
  folder=$(tidy_folder)
  mkdir -p -- "$folder"
  major=$(clang-tidy --version | sed -n 's/.*version \([0-9]*\).*/\1/p')
  g++ -std=c++17 -O1 -fPIC -shared -fno-rtti -isystem "/usr/lib/llvm-$major/include" \
    "$project/scripts/tidy/own_declarations.cc" -o "$folder/own_declarations.so" &&
    flags=$(python3 -B "$project/scripts/tidy/compile_commands.py" "$(build_folder lint)" "$folder") || return 1
  printf '#include <%s>\n' gmock/gmock.h gtest/gtest.h >"$folder/googletest.h"
  readarray -t flags <<<"$flags"
  "clang++-$major" "${flags[@]}" -Wno-unknown-warning-option -x c++-header "$folder/googletest.h" \
    -o "$folder/googletest.pch" &&
    python3 -B "$project/scripts/tidy/compile_commands.py" "$(build_folder lint)" "$folder" \
      "$folder/googletest.pch"
}

# The static analyzer's bound on each function is a third of its default, and it does not follow a call
# into the standard library: it takes a third of the time for that. Where GoogleTest's macros stand, it
# takes most of the time and finds nothing; how fast a test is does not matter either.
# On standard error clang-tidy counts the warnings of other code.
run_tidy() {
  local extra=() word
  for word in -Xclang -analyzer-config -Xclang "max-nodes=75000,c++-stdlib-inlining=false"; do
    extra+=(--extra-arg="$word")
  done
  xargs -0 -r -n 1 -P "$(jobs_count)" clang-tidy --quiet -p "$(tidy_folder)" \
    -load="$(tidy_folder)/own_declarations.so" "${extra[@]}" "$@" 2>>"$(lint_log clang-tidy).stderr"
}

# Of the sources on standard input, NUL-separated, those that are tests, or with -v those that are not.
test_sources() { grep -z "$@" -E '/tests/|^tests/|_test\.cc$' || true; }

# lint_tidy [SOURCE...]: these, or all.
lint_tidy() {
  local began=$SECONDS status=0 list
  list=$(tidy_folder).sources
  : >"$(lint_log clang-tidy).stderr"
  prepare_tidy || return 1
  if [ $# -gt 0 ]; then
    printf '%s\0' "$@" >"$list"
  else
    sources -name '*.cc' -not -path '*/scripts/tidy/*' >"$list"
  fi
  test_sources -v <"$list" | run_tidy || status=1
  test_sources <"$list" | run_tidy --checks='-clang-analyzer-*,-performance-*' || status=1
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
  lint tree lint_tree
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
