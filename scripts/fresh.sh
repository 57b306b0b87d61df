# shellcheck shell=bash disable=SC2016
# ./paddock fresh: what a stranger's machine would do with the current commit.
: "${project:?}"

# The Debian mirror that this machine's apt uses.
debian_mirror() {
  apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' 'Codename: bookworm' 'Label: Debian' | head -n 1
}

# A minimal Debian 12 in the folder $1, made once in the archive $2.
unpack_root() {
  local root=$1 archive=$2
  if [ ! -e "$archive" ]; then
    say "making a minimal Debian 12"
    quietly "$project/build/log/fresh-root.log" mmdebstrap --variant=minbase --format=tar bookworm "$archive.new" \
      "$(debian_mirror)" || exit 1
    mv -- "$archive.new" "$archive"
  fi
  tar -C "$root" --numeric-owner --exclude=./dev/\* -xf "$archive"
  cp -L /etc/resolv.conf "$root/etc/resolv.conf"
}

# The committed tree, in a folder with a space in its name and of another owner.
clone_into() {
  local target=$1
  git clone --quiet --no-local "$project" "$target"
  chown -R 12345:12345 -- "$target"
}

# enter ROOT COMMAND...: in namespaces of its own, so that no mount and no process stays.
enter() {
  local root=$1
  shift
  unshare --mount --pid --fork --kill-child --propagation private bash -c '
    set -eu
    root=$1 vm=$2
    shift 2
    # A root folder that is no mount point has no mount whose propagation could be changed, and no
    # program inside could make mounts of its own.
    mount --rbind "$root" "$root"
    mount --rbind /dev "$root/dev"
    mount -t proc proc "$root/proc"
    mount -t sysfs -o ro sysfs "$root/sys"
    mount -t tmpfs tmpfs "$root/dev/shm"
    if [ -n "$vm" ]; then
      mkdir -p "$root/srv/vm"
      mount --bind "$vm" "$root/srv/vm"
    fi
    exec chroot "$root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 \
      ${vm:+PADDOCK_VM=/srv/vm} "$@"
  ' bash "$root" "${PADDOCK_VM:-}" "$@"
}

command_fresh() {
  [ "$(id -u)" -eq 0 ] || die "fresh takes root: it makes a root folder of its own"
  need_packages fresh
  [ $# -gt 0 ] || set -- demo test
  local root command status=0
  root=$(mktemp -d "${TMPDIR:-/tmp}/paddock-fresh.XXXXXX")
  # shellcheck disable=SC2064
  trap "rm -rf --one-file-system -- ${root@Q}" EXIT
  # Not before the command in the root has ended.
  trap 'exit 143' TERM
  mkdir -p -- "$project/build"
  unpack_root "$root" "$project/build/fresh-root.tar"
  # Not below /srv: a test has a folder of its own there.
  clone_into "$root/opt/a clone"
  for command in "$@"; do
    say "fresh root: ./paddock $command"
    enter "$root" "/opt/a clone/paddock" "$command" || status=1
  done
  return "$status"
}
