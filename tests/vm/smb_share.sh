#!/usr/bin/env bash
# A folder that is shared can be mounted over SMB by the kernel's client, and written to by those whom
# its ACL lets in; renamed, it has its new name; unshared, it cannot be mounted.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh

users=(anna bert carl)

start_smbd() {
  local user
  configure_samba
  include_shares
  for user in "${users[@]}"; do
    add_samba_user "$user" --no-create-home --shell /usr/sbin/nologin
  done
  systemctl start smbd
}

# mount_as USER SHARE: the kernel's client asks as the user, whose files they are here.
mount_as() {
  timeout 60 mount -t cifs "//127.0.0.1/$2" "/mnt/$1" \
    -o "username=$1,password=$password,vers=3.1.1,uid=$(id -u "$1"),cache=none,soft,noperm"
}

# with_share USER SHARE COMMAND...: the command runs in the share, mounted as the user.
with_share() {
  local user=$1 share=$2 status=0
  shift 2
  mount_as "$user" "$share" || fail "$user cannot mount $share"
  (cd "/mnt/$user" && "$@") || status=$?
  umount "/mnt/$user"
  return "$status"
}

# refuse USER SHARE COMMAND...: the command must be refused the access, in the share.
refuse() {
  local said
  if said=$(with_share "$@" 2>&1); then fail "$*: was not refused"; fi
  [[ $said == *"Permission denied"* ]] || fail "$*: was refused otherwise: $said"
}

# await_share SHARE / await_no_share SHARE: smbd was told to read its file again, and does so when it
# comes to it.
await_share() {
  local tries=0
  until mount_as anna "$1" 2>/dev/null; do
    tries=$((tries + 1))
    [ "$tries" -lt 30 ] || fail "$1 cannot be mounted"
    sleep 1
  done
  umount /mnt/anna
}

await_no_share() {
  local tries=0 said
  while said=$(mount_as anna "$1" 2>&1); do
    umount /mnt/anna
    tries=$((tries + 1))
    [ "$tries" -lt 30 ] || fail "$1 can be mounted after it was unshared"
    sleep 1
  done
  [[ $said == *"No such file or directory"* ]] || fail "the mount of $1 failed otherwise: $said"
}

share_the_folder() {
  mkdir -m 0750 /vol/plans
  echo "Tuesday, nine o'clock" >/vol/plans/minutes.txt
  keelhouse share add /vol/plans --smb-name Plans --no-ftp >/dev/null
  keelhouse acl set /vol/plans allow user:anna full:inherit allow user:bert read:inherit >/dev/null
  # What was there before inherits nothing.
  keelhouse acl set /vol/plans/minutes.txt allow user:anna full allow user:bert read >/dev/null
  await_share Plans
}

write_as_those_who_may() {
  expect "Tuesday, nine o'clock" "$(with_share bert Plans cat minutes.txt)" "what bert reads"
  with_share anna Plans sh -c 'echo "Wednesday" >minutes.txt && mkdir more && echo new >more/file'
  expect Wednesday "$(cat /vol/plans/minutes.txt)" "what anna wrote, on the server"
  expect new "$(with_share bert Plans cat more/file)" "what bert reads of what anna made"
  expect anna "$(stat -c %U /vol/plans/more/file)" "the owner of what anna made"
}

refuse_the_others() {
  refuse bert Plans sh -c 'echo mine >minutes.txt'
  refuse bert Plans touch another
  refuse bert Plans touch more/another
  refuse bert Plans rm more/file
  refuse carl Plans ls
  refuse carl Plans cat minutes.txt
  expect Wednesday "$(cat /vol/plans/minutes.txt)" "the file after the refusals"
}

# A denial before an allowance, set while the share is in use.
deny_and_allow_again() {
  keelhouse acl add /vol/plans --first deny user:anna add-file:inherit >/dev/null
  refuse anna Plans touch refused
  keelhouse acl remove /vol/plans 1 >/dev/null
  with_share anna Plans touch allowed
  [ -e /vol/plans/allowed ] || fail "anna's file is not there"
}

rename_and_unshare() {
  keelhouse share set /vol/plans --smb-name "Plans of 2025" >/dev/null
  await_share "Plans of 2025"
  await_no_share Plans
  keelhouse share remove /vol/plans >/dev/null
  await_no_share "Plans of 2025"
  expect Wednesday "$(cat /vol/plans/minutes.txt)" "the file after the removal"
}

for user in "${users[@]}"; do mkdir -p "/mnt/$user"; done
install_and_start
start_smbd
share_the_folder
write_as_those_who_may
refuse_the_others
deny_and_allow_again
rename_and_unshare
expect "" "$(testparm -s 2>/dev/null | sed -n '/^\[Plans/p')" "sections that are left"
systemctl stop smbd paddockd
echo "a folder was mounted, read and written over SMB by those whom its list lets in"
