# shellcheck shell=bash
# Clients of each protocol, and sharing a folder while its servers come up.
: "${password:?}" "${status=}"

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

mount_nfs() { timeout 60 mount -t nfs -o vers=4.2,proto=tcp,timeo=50,retrans=1,retry=0 "127.0.0.1:$1" /mnt/nfs; }

# over_nfs PERSON FOLDER COMMAND...: runs in the folder, mounted over NFS, as the person.
over_nfs() {
  local person=$1 folder=$2 ended=0
  shift 2
  mount_nfs "$folder" || fail "$folder cannot be mounted over NFS"
  # Root is squashed there, and may not even go in.
  # shellcheck disable=SC2016
  at_home "$person" sh -c 'cd /mnt/nfs && exec "$@"' sh "$@" || ended=$?
  umount /mnt/nfs
  return "$ended"
}

# at_home PERSON COMMAND...: a program of this host, as the person.
at_home() {
  local person=$1
  shift
  setpriv --reuid "$person" --regid "$person" --init-groups "$@"
}

# The sentence names what does not serve and how to mend it; each mend is done as printed, and the next
# sentence is true again.
share_while_services_come_up() {
  mkdir -p /mnt/nfs
  mkdir -m 0750 /vol/photos
  chgrp crew /vol/photos
  echo "a picture" >/vol/photos/picture
  chgrp crew /vol/photos/picture
  does keelhouse share add /vol/photos --nfs '127.0.0.1(rw,no_subtree_check,fsid=1)'
  said "SMB: not served: "
  said "NFS: not served: "
  said "systemctl start nfs-server"
  if mount_nfs /vol/photos 2>/dev/null; then fail "NFS was called not served, and /vol/photos can be mounted"; fi
  if opens_share photos; then fail "SMB was called not served, and smbd serves photos"; fi
  heard keelhouse share set /vol/photos --comment "Holidays" --require-served
  expect 5 "$status" "the status with --require-served while nothing serves"
  echo "include = /etc/samba/paddock-shares.conf" >>/etc/samba/smb.conf
  systemctl start smbd nfs-server
  does keelhouse share set /vol/photos --comment "Holidays 2026" --require-served
  said "Shared over SMB as photos"
  await_smb photos
  expect "a picture" "$(over_nfs anna /vol/photos cat picture)" "the file over NFS"
  does keelhouse share list --check
  said served
  grep -q '^/vol/photos' <(exportfs -s) || fail "exportfs does not list /vol/photos"
  systemctl stop nfs-server
  heard keelhouse share list --check --require-served
  expect 5 "$status" "the status of the check with a stopped server"
  said "not served"
  systemctl start nfs-server
}
