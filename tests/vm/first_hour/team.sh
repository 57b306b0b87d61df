# shellcheck shell=bash
# What one member makes at a door the other can change at every door, and nobody else can see.

team() {
  local door refused
  mkdir /vol/team
  does keelhouse share add /vol/team --team crew --nfs '127.0.0.1(rw,no_subtree_check,fsid=2)'
  expect 2770:crew "$(stat -c %a:%G /vol/team)" "the team's folder"
  await_smb team
  smb anna team "put /etc/hostname by-smb" >/dev/null || fail "anna cannot make a file over SMB"
  over_nfs anna /vol/team sh -c 'echo from anna >by-nfs' || fail "anna cannot make a file over NFS"
  at_home anna sh -c 'echo from anna >/vol/team/by-local' || fail "anna cannot make a file on the host"
  for door in smb nfs local; do
    at_home bert sh -c "echo bert >>/vol/team/by-$door" || fail "bert cannot change by-$door on the host"
    over_nfs bert /vol/team sh -c "echo bert >>by-$door" || fail "bert cannot change by-$door over NFS"
    expect 2 "$(grep -c bert "/vol/team/by-$door")" "what bert added to by-$door"
    if at_home carl cat "/vol/team/by-$door" 2>/dev/null; then fail "carl reads by-$door on the host"; fi
  done
  smb bert team "put /etc/hostname by-smb; put /etc/hostname by-nfs; put /etc/hostname by-local" >/dev/null || true
  for door in smb nfs local; do
    cmp -s /etc/hostname "/vol/team/by-$door" || fail "bert cannot change by-$door over SMB"
  done
  refused=$(smb carl team "get by-smb /tmp/by-smb; get by-nfs /tmp/by-nfs; get by-local /tmp/by-local") || true
  [[ $refused == *NT_STATUS_ACCESS_DENIED* ]] || fail "carl is not refused over SMB: $refused"
  for door in smb nfs local; do
    [ ! -e "/tmp/by-$door" ] || fail "carl reads by-$door over SMB"
  done
  if over_nfs carl /vol/team ls 2>/dev/null; then fail "carl lists the team's folder over NFS"; fi
}
