# shellcheck shell=bash disable=SC2016
# (The command lines that are shown are in single quotes, and expand when they run.)
# ./paddock demo: the main job on a real folder, with every effect shown and checked.
: "${project:?}"

record_query="SELECT attributes.name, vals.value
  FROM records JOIN vals ON vals.record = records.id JOIN attributes ON attributes.id = vals.attribute
  WHERE records.type = 'dsRecTypeStandard:SharePoints' ORDER BY records.id, position, ordinal"

demo_heading() {
  heading=$*
  printf '\n\n--- %s\n' "$heading"
}

# leave_out WHY: says why this part is not shown; it is named once more at the end.
leave_out() {
  printf '(left out: %s)\n' "$1"
  left_out+=("$heading: $1")
}

demo_fail() {
  printf '\npaddock: demo: %s\n' "$*" >&2
  if [ -s "${work:-}/daemon.log" ]; then
    printf 'The log of the daemon:\n' >&2
    cat -- "$work/daemon.log" >&2
  fi
  exit 1
}

# step COMMAND-LINE: shows the line, runs exactly it, shows and keeps its output and status.
step() {
  printf '\n$ %s\n' "$1"
  status=0
  output=$(eval "$1" 2>&1 </dev/null) || status=$?
  [ -z "$output" ] || printf '%s\n' "$output"
}

# What the last step must have brought.
expect_status() { [ "$status" -eq "$1" ] || demo_fail "that command ended with status $status, not $1"; }
expect_text() { [[ $output == *"$1"* ]] || demo_fail "there is no \"$1\" in that output"; }
expect_no_text() { [[ $output != *"$1"* ]] || demo_fail "there is still \"$1\" in that output"; }

start_daemon() {
  "$T/usr/sbin/paddockd" --root "$T" >>"$work/daemon.log" 2>&1 </dev/null &
  daemon=$!
  local tries=0
  until "$T/usr/sbin/keelhouse" status >/dev/null 2>&1; do
    kill -0 "$daemon" 2>/dev/null || demo_fail "the daemon ended"
    tries=$((tries + 1))
    [ "$tries" -lt 100 ] || demo_fail "the daemon does not answer"
    sleep 0.1
  done
}

stop_daemon() {
  local ended=0
  kill -TERM "$daemon"
  wait "$daemon" || ended=$?
  daemon=
  [ "$ended" -eq 0 ] || demo_fail "the daemon ended with status $ended"
}

demo_cleanup() {
  stop_smb_server
  if [ -n "${daemon:-}" ]; then
    kill -TERM "$daemon" 2>/dev/null || true
    wait "$daemon" || true
  fi
  drop_network
  drop_volume
  [ -z "${work:-}" ] || rm -rf -- "$work"
}

# An NFS server's view of the tree's exports file, in a mount namespace that ends with the command.
as_nfs_server() {
  unshare --mount --propagation private bash -c '
    mount --bind "$1/etc/exports" /etc/exports && mount -t tmpfs tmpfs /var/lib/nfs && shift && "$@"
  ' bash "$T" "$@"
}

# What keeps us from that; nothing when it can be had.
lacks_nfs_tools() {
  if [ "$(id -u)" -ne 0 ]; then
    echo "it takes root"
  elif ! command -v exportfs >/dev/null || [ ! -e /etc/exports ]; then
    echo "the package nfs-kernel-server is not installed, whose exportfs reads the file"
  elif ! unshare --mount true 2>/dev/null; then
    echo "it takes a mount namespace, which is not permitted here"
  fi
}

# As a user who is in no group of ours.
as_nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups "$@"; }

# The rest of the demo with mounts of its own, which end with it; where that is not permitted, the
# demo goes on without.
with_own_mounts() {
  [ -z "${PADDOCK_DEMO_MOUNTS:-}" ] && unshare --mount --propagation private true 2>/dev/null || return 0
  PADDOCK_DEMO_MOUNTS=own exec unshare --mount --propagation private -- "$project/paddock" demo
}

# A small volume on $V, when there are mounts of our own.
make_volume() {
  [ -n "${PADDOCK_DEMO_MOUNTS:-}" ] && mkdir "$work/volume" &&
    mount -t tmpfs -o size=16m,mode=1777 tmpfs "$work/volume" || return 0
  V=$work/volume
  export V
  sed -i 's/^#quota_backend = .*/quota_backend = "accounting"/' "$T/etc/paddock/paddockd.toml"
}

drop_volume() {
  [ -z "${V:-}" ] || umount -- "$V"
  V=
}

demo_set_up() {
  umask 022
  work=$(mktemp -d "${TMPDIR:-/tmp}/paddock-demo.XXXXXX")
  trap demo_cleanup EXIT
  trap 'exit 130' INT TERM
  chmod 755 "$work"
  T=$work/system F="$work/Summer photos"
  mkdir -p "$T/etc" "$F"
  echo "a picture" >"$F/beach.txt"
  make_pictures
  printf '# written by hand\n/usr/share  192.0.2.7(ro,no_subtree_check)\n' >"$T/etc/exports"
  install_tree "$T"
  PATH=$T/usr/sbin:$PATH
  export T F
  make_volume
  make_network
}

demo_start() {
  demo_heading "A system of its own"
  printf 'T=%s   a tree with the daemon and its files; nothing outside it is touched\n' "$T"
  printf 'F="%s"   a real folder\n' "$F"
  [ -z "$V" ] || printf 'V=%s   a volume of 16 MiB; quotas are counted, and not enforced\n' "$V"
  printf '\n$ paddockd --root $T &\n'
  start_daemon
  step 'keelhouse status'
  expect_status 0
  expect_text "paddock_sharing"
}

demo_share() {
  demo_heading "Share the folder, with an NFS export"
  step 'keelhouse share add "$F" --nfs "192.0.2.0/24(rw,no_subtree_check)"'
  expect_status 0
  step 'keelhouse share list'
  expect_status 0
  expect_text "Summer photos"
  expect_text "192.0.2.0/24"
  step 'keelhouse share show "$F"'
  expect_status 0
  expect_text "192.0.2.0/24"
}

demo_where_it_went() {
  demo_heading "Its record in the directory, a real SQLite database"
  step 'keelhouse record show sharepoints "Summer photos"'
  expect_status 0
  expect_text "$F"
  step 'sqlite3 -readonly $T/var/lib/paddock/directory.sqlite "'"$record_query"'"'
  expect_status 0
  expect_text "$F"

  demo_heading "Its line in the exports file, above what was written by hand"
  step 'cat $T/etc/exports'
  expect_text "Summer\\040photos"
  expect_text "192.0.2.0/24(rw,no_subtree_check)"
  expect_text "/usr/share  192.0.2.7(ro,no_subtree_check)"
}

demo_nfs_server() {
  demo_heading "What an NFS server reads there"
  local lack
  lack=$(lacks_nfs_tools)
  if [ -n "$lack" ]; then
    leave_out "$lack"
    return
  fi
  step 'as_nfs_server sh -c "exportfs -ra && exportfs -s"'
  expect_text "Summer\\040photos  192.0.2.0/24("
}

demo_curl() {
  demo_heading "Read it back over the socket, as any program can"
  step 'curl -sS --unix-socket $T/run/paddock/paddockd.sock -d "{\"optionalArguments\": {\"path\": \"$F\"}}" http://paddock/v1/paddock_sharing/readSettings'
  expect_status 0
  expect_text '"nfsExportRecord"'
}

demo_change() {
  demo_heading "Change it: read-only over NFS, another name over SMB"
  step 'keelhouse share set "$F" --smb-name Photos --nfs "192.0.2.0/24(ro,no_subtree_check)"'
  expect_status 0
  step 'keelhouse share show "$F"'
  expect_text "Photos"
  step 'grep Summer $T/etc/exports'
  expect_text "(ro,no_subtree_check)"
  expect_no_text "rw"
}

# Whether the ACL of a file can be kept beside the folder.
can_keep_acls() {
  [ "$(id -u)" -eq 0 ] && setfattr -n security.NTACL -v probe "$work" 2>/dev/null && setfattr -x security.NTACL "$work"
}

demo_privileges() {
  demo_heading "Who may do what with it: owner, group and mode"
  if ! can_keep_acls; then
    leave_out "privileges and ACLs take root, and a file system with security attributes"
    return
  fi
  step 'keelhouse privs set "$F" --group games --mode 0750'
  expect_status 0
  expect_text "mode: 750 (rwxr-x---)"
  step 'stat --format "%U %G %a" "$F"'
  expect_text "root games 750"
  step 'as_nobody cat "$F/beach.txt"'
  expect_status 1

  demo_heading "An access-control list beyond the mode"
  step 'keelhouse acl set "$F" allow user:nobody read:inherit'
  expect_status 0
  step 'keelhouse acl add "$F" --first deny group:games write'
  expect_status 0
  expect_text "2   allow   user:nobody  read"
  step 'as_nobody cat "$F/beach.txt"'
  expect_status 0
  expect_text "a picture"

  demo_heading "Where it is: in the attribute that an SMB server enforces, and in the kernel's ACL"
  step 'getfattr --absolute-names --dump --match security.NTACL --encoding base64 "$F"'
  expect_status 0
  expect_text "security.NTACL=0s"
  step 'getfacl --absolute-names "$F"'
  expect_text "user:nobody:r-x"
  expect_text "default:user:nobody:r-x"
  step 'keelhouse acl show "$F" --projection'
  expect_status 0
  expect_text "a group is denied"
}

demo_index() {
  demo_heading "Index it for search: the indexing account may read it from now on"
  step 'keelhouse index on "$F"'
  expect_status 0
  step 'keelhouse index status "$F"'
  expect_text "is indexed"
  step 'keelhouse share show "$F"'
  expect_text "isIndexingEnabled: yes"
  if can_keep_acls; then
    step 'keelhouse acl show "$F"'
    expect_text "user:89"
  fi
}

# quotascan counts on its own.
wait_for_count() {
  local tries=0
  until keelhouse quota show "$V" 2>/dev/null | grep -q "$1"; do
    tries=$((tries + 1))
    [ "$tries" -lt 100 ] || demo_fail "nobody counts what is used on $V"
    sleep 0.1
  done
}

demo_quota() {
  demo_heading "Quotas of a volume"
  if [ -z "$V" ]; then
    leave_out "it takes root, and mounts of its own"
    return
  fi
  step 'as_nobody dd if=/dev/zero of=$V/film bs=1M count=3 status=none'
  expect_status 0
  step 'keelhouse quota on $V'
  expect_status 0
  expect_text "are on"
  wait_for_count nobody
  step 'keelhouse quota show $V'
  expect_status 0
  expect_text "nobody  3.0 MiB"
  step 'keelhouse quota off $V'
  expect_status 0
  expect_text "are off"
}

demo_refuse() {
  demo_heading "Somebody without rights is refused, and both are in the audit log"
  if [ "$(id -u)" -eq 0 ]; then
    step 'as_nobody keelhouse request paddock_sharing writeSettings "{\"path\": \"$F\"}"'
    expect_status 1
  else
    leave_out "it takes root to become somebody else"
  fi
  step 'cat $T/var/log/paddock/audit.jsonl'
  expect_text '"operation":"writeSettings"'
  [ "$(id -u)" -ne 0 ] || expect_text '"refused":true'
}

demo_restart() {
  demo_heading "The daemon ends and starts again: the share is still there"
  printf '\n$ kill -TERM %s\n' "$daemon"
  stop_daemon
  printf '(it ended with status 0)\n\n$ paddockd --root $T &\n'
  start_daemon
  step 'keelhouse share list'
  expect_text "Summer photos"
}

demo_unshare() {
  demo_heading "Unshare it: record and line are gone, the folder stays"
  step 'keelhouse share remove "$F"'
  expect_status 0
  step 'keelhouse share list'
  expect_status 0
  expect_no_text "Summer photos"
  step 'sqlite3 -readonly $T/var/lib/paddock/directory.sqlite "'"$record_query"'"'
  expect_status 0
  expect_no_text "Summer photos"
  step 'cat $T/etc/exports'
  expect_status 0
  expect_no_text "Summer"
  expect_text "/usr/share  192.0.2.7(ro,no_subtree_check)"
  step 'ls "$F"'
  expect_text "beach.txt"
}

demo_finish() {
  demo_heading "Clean up"
  local pid=$daemon
  stop_daemon
  drop_network
  drop_volume
  rm -rf -- "$work"
  if kill -0 "$pid" 2>/dev/null || [ -e "$work" ]; then demo_fail "something is left"; fi
  printf 'Nothing is left: process %s has ended with status 0, and %s is removed.\n' "$pid" "$work"
  work=
}

command_demo() {
  [ $# -eq 0 ] || usage_error "demo takes no arguments"
  with_own_mounts
  need_packages build demo
  # shellcheck source=scripts/install.sh
  . "$project/scripts/install.sh"
  # shellcheck source=scripts/demo_smb.sh
  . "$project/scripts/demo_smb.sh"
  # shellcheck source=scripts/demo_dnssd.sh
  . "$project/scripts/demo_dnssd.sh"
  # shellcheck source=scripts/demo_propagation.sh
  . "$project/scripts/demo_propagation.sh"
  build release
  local bus='' avahi='' network=''
  local smb_starter='' smb_server='' smb_port='' SMB=''
  local work='' daemon='' status=0 output='' T='' F='' V='' heading='' began=$SECONDS
  local left_out=()
  demo_set_up
  demo_start
  demo_share
  demo_smb_serve
  demo_where_it_went
  demo_nfs_server
  demo_curl
  demo_change
  demo_dns_sd
  demo_privileges
  demo_propagation
  demo_index
  demo_quota
  demo_refuse
  demo_restart
  demo_unshare
  demo_smb_gone
  demo_finish
  say "every effect that was shown was there; the demo took $((SECONDS - began)) s"
  [ ${#left_out[@]} -eq 0 ] || printf 'Left out: %s\n' "${left_out[@]}"
}
