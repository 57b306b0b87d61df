# shellcheck shell=bash
# Configuring and building a preset.
: "${project:?}"

build_folder() { printf '%s/build/%s\n' "$project" "$1"; }

# A build tree remembers the absolute path of its sources; one that came from elsewhere is useless.
forget_moved_build() {
  local cache
  cache=$(build_folder "$1")/CMakeCache.txt
  [ -e "$cache" ] || return 0
  grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$project" "$cache" || rm -rf -- "$(build_folder "$1")"
}

configure() {
  local preset=$1 options=()
  forget_moved_build "$preset"
  # Used where it is, never installed: a first build gains nothing by it.
  if command -v ccache >/dev/null; then
    options+=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  quietly "$project/build/log/configure-$preset.log" \
    cmake -S "$project" --preset "$preset" ${options[@]+"${options[@]}"}
}

# build PRESET [TARGET...]: ninja's progress on a terminal, one line elsewhere.
build() {
  local preset=$1 began=$SECONDS targets=()
  shift
  [ $# -eq 0 ] || targets=(--target "$@")
  # Presets are found in the current folder alone.
  cd -- "$project" || exit 1
  configure "$preset" || exit 1
  say "building ($preset, $(jobs_count) jobs)"
  if [ -t 1 ]; then
    cmake --build --preset "$preset" -j "$(jobs_count)" ${targets[@]+"${targets[@]}"} || exit 1
  else
    quietly "$project/build/log/build-$preset.log" \
      cmake --build --preset "$preset" -j "$(jobs_count)" ${targets[@]+"${targets[@]}"} || exit 1
  fi
  say "built in $((SECONDS - began)) s"
}
