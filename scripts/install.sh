# shellcheck shell=bash
# ./paddock install DIR
: "${project:?}"

# install_tree DIR: what the release preset built, below DIR.
install_tree() {
  DESTDIR=$1 quietly "$project/build/log/install.log" \
    cmake --install "$(build_folder release)" --prefix /usr || exit 1
}

command_install() {
  if [ $# -ne 1 ] || [ -z "$1" ]; then
    usage_error "usage: ./paddock install DIR (the tree's root; / for this system)"
  fi
  local target
  target=$(realpath -m -- "$1")
  [ ! -e "$target" ] || [ -d "$target" ] || die "$target is not a folder"
  mkdir -p -- "$target" || die "cannot make $target"
  [ -w "$target" ] || die "$target is not writable"
  need_packages build
  build release
  install_tree "$target"
  say "installed below $target"
  if [ "$target" = / ]; then
    printf 'Start it with: systemctl enable --now paddockd\n'
  else
    printf 'Start it with: %s/usr/sbin/paddockd --root %s\n' "$target" "$target"
  fi
}
