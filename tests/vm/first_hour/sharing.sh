# shellcheck shell=bash
# The sentence names what does not serve and how to mend it; each mend is done as it was printed, and the next
# sentence is true again.
: "${status=}" "${output=}"

nobody_serves_photos() {
  if mount_nfs 127.0.0.1:/vol/photos /mnt/nfs/vol/photos 2>/dev/null; then
    fail "NFS was called not served, and /vol/photos can be mounted"
  fi
  if opens_share photos; then fail "SMB was called not served, and smbd serves photos"; fi
}

sharing() {
  make_photos
  does keelhouse share add /vol/photos --nfs '127.0.0.1(rw,no_subtree_check,fsid=1)'
  said "SMB: not served: " "NFS: not served: nfs-server is stopped"
  nobody_serves_photos
  [[ $output =~ "add the line: "([^\)]+) ]] || fail "what smb.conf misses is not said: $output"
  echo "${BASH_REMATCH[1]}" >>/etc/samba/smb.conf
  follow_advice "systemctl start nfs-server"
  heard keelhouse share set /vol/photos --comment "Holidays" --require-served
  expect 5 "$status" "the status with --require-served while smbd is stopped"
  said "SMB: not served: smbd is stopped" "NFS to 127.0.0.1(rw)"
  expect "a picture" "$(over_nfs anna /vol/photos cat picture)" "the file over NFS"
  if opens_share photos; then fail "SMB was called not served, and smbd serves photos"; fi
  follow_advice "systemctl start smbd"
  await_smb photos
  does keelhouse share set /vol/photos --comment "Holidays 2026" --require-served
  said "Shared over SMB as photos, NFS to 127.0.0.1(rw)"
  expect "Holidays 2026" "$(comment_of photos)" "the comment as smbd has it"
  grep '^/vol/photos  127.0.0.1(' <(exportfs -s) >/dev/null || fail "exportfs does not list /vol/photos"
  does keelhouse share list --check --require-served
  stopped_again
}

stopped_again() {
  leave_nfs
  systemctl stop nfs-server
  heard keelhouse share list --check --require-served
  expect 5 "$status" "the status of the check with a stopped server"
  said "NFS: not served: nfs-server is stopped"
  follow_advice "systemctl start nfs-server"
  does keelhouse share list --check --require-served
  expect "a picture" "$(over_nfs anna /vol/photos cat picture)" "the file over NFS, once the server is back"
}
