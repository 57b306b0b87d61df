# shellcheck shell=bash
# What the parts have in common: clients of each protocol, what was printed, and a folder that is shared.
: "${password:?}" "${people[*]:?}"

# heard COMMAND...: runs it; what it prints on either stream is in $output, its status in $status.
heard() {
  status=0
  output=$("$@" 2>&1 </dev/null) || status=$?
}

# does COMMAND...: it must succeed.
does() {
  heard "$@"
  [ "$status" -eq 0 ] || fail "$* ended with $status: $output"
}

# said TEXT...: what was printed last has each of them.
said() {
  local text
  for text in "$@"; do
    [[ $output == *"$text"* ]] || fail "wanted to read \"$text\", got: $output"
  done
}

# follow_advice WORDS: the command that was printed last and begins so, up to the end of the line or a closing
# parenthesis, is run as it was printed.
follow_advice() {
  local command
  command=$(grep -om1 -- "$1[^)]*" <<<"$output") || fail "there is no advice \"$1...\" in: $output"
  does bash -c "$command"
}

# yes_or_no COMMAND...
yes_or_no() { if "$@"; then echo yes; else echo no; fi; }

# at_home PERSON COMMAND...: a program of this host, as the person has it after logging in.
at_home() {
  local person=$1
  shift
  setpriv --reuid "$person" --regid "$person" --init-groups "$@"
}

# smb PERSON SHARE COMMANDS: smbclient's, as the person.
smb() { timeout 60 smbclient "//127.0.0.1/$2" -U "$1%$password" -m SMB3 -c "$3" 2>&1; }

opens_share() { smb anna "$1" ls >/dev/null; }

await_smb() {
  local tries=0
  until opens_share "$1"; do
    [ "$((tries += 1))" -lt 30 ] || fail "smbd does not serve $1: $(smb anna "$1" ls)"
    sleep 1
  done
}

# mount_nfs HOST:FOLDER PLACE: nothing is remembered there of what was so a moment ago.
mount_nfs() {
  mkdir -p "$2"
  timeout 60 mount -t nfs -o vers=4.2,proto=tcp,timeo=50,retrans=1,retry=0,noac "$1" "$2"
}

# place_over_nfs FOLDER: where it is mounted over NFS, from now on.
place_over_nfs() {
  local place=/mnt/nfs$1
  mountpoint -q "$place" || mount_nfs "127.0.0.1:$1" "$place" >&2 || fail "$1 cannot be mounted over NFS"
  echo "$place"
}

# over_nfs PERSON FOLDER COMMAND...: runs in the folder, mounted over NFS, as the person.
over_nfs() {
  local person=$1 place
  place=$(place_over_nfs "$2")
  shift 2
  # Root is squashed there, and may not even go in.
  # shellcheck disable=SC2016
  at_home "$person" sh -c 'cd "$0" && exec "$@"' "$place" "$@"
}

leave_nfs() {
  local place
  # It fails where there is nothing.
  { findmnt -rno TARGET -t nfs4 || true; } | while read -r place; do umount "$place"; done
}

# The comment of a share, as smbd has it.
comment_of() { testparm -s --section-name="$1" --parameter-name=comment 2>/dev/null; }

make_photos() {
  mkdir -m 0750 /vol/photos
  echo "a picture" >/vol/photos/picture
  chgrp crew /vol/photos /vol/photos/picture
}

# The folder is there and shared over SMB and NFS.
serve_photos() {
  [ ! -d /vol/photos ] || return 0
  make_photos
  include_shares
  systemctl start smbd nfs-server
  does keelhouse share add /vol/photos --nfs '127.0.0.1(rw,no_subtree_check,fsid=1)'
  await_smb photos
}

# What is kept of the shares: exports, records, Samba's sections, and the privileges of the photos.
kept_state() {
  cat /etc/exports /etc/samba/paddock-shares.conf
  sqlite3 /var/lib/paddock/directory.sqlite .dump
  getfattr -dm - --absolute-names /vol/photos
  stat -c '%a %U %G' /vol/photos
}
