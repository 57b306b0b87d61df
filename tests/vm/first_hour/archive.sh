# shellcheck shell=bash
# Privileges are pushed down into 20,000 files and folders: what is counted, and named, is what find finds, and
# the last file of all is read at every door by those alone who are let in.
: "${output=}"

sheet="year 099/sheet 198"

make_archive() {
  python3 - <<'PYTHON'
import os
os.umask(0o077)
os.mkdir("/vol/archive")
for year in range(100):
    folder = f"/vol/archive/year {year:03}"
    os.mkdir(folder)
    for sheet in range(199):
        os.close(os.open(f"{folder}/sheet {sheet:03}", os.O_CREAT | os.O_WRONLY, 0o600))
PYTHON
  echo "the last sheet" >"/vol/archive/$sheet"
}

push_down() {
  does keelhouse propagate /vol/archive --group --owner-perm --group-perm --world-perm --acl "$@"
}

objects() { find /vol/archive -mindepth 1 "$@" | wc -l; }

# The dry run counts everything, names what is there, and changes nothing.
try_without_changing() {
  local count=$1 named
  touch /tmp/before
  push_down --dry-run
  said "/vol/archive: $count objects, $count would change, 0 errors" "and $((count - 20)) more"
  while read -r named; do
    [ -e "/vol/archive/$named" ] || fail "the dry run names /vol/archive/$named, which is not there"
  done < <(sed -n 's:^group,mode,acl  /vol/archive/::p' <<<"$output")
  expect 0 "$(objects -cnewer /tmp/before)" "objects that the dry run changed"
  if at_home bert cat "/vol/archive/$sheet" 2>/dev/null; then fail "bert reads a sheet after the dry run"; fi
}

# The run goes on by itself, is listed, and is followed by the command that was printed.
push_and_follow() {
  local count=$1 began=$SECONDS
  push_down
  said "Pushing down group, owner-perm, group-perm, world-perm, acl of /vol/archive."
  local advice=$output
  does keelhouse status
  said "propagation /vol/archive"
  output=$advice
  follow_advice "keelhouse propagate /vol/archive --follow"
  said "/vol/archive: $count objects, $count changed, 0 errors, in "
  [[ $output =~ in\ ([0-9]+)\ s ]] || fail "no time in: $output"
  [ "${BASH_REMATCH[1]}" -le "$((SECONDS - began + 1))" ] || fail "it took less time than was printed: $output"
  push_down --dry-run
  said "/vol/archive: $count objects, 0 would change, 0 errors"
}

all_have_what_was_pushed_down() {
  expect 0 "$(objects ! -group crew)" "objects of another group"
  expect 0 "$(objects -perm /007)" "objects that others get into"
  expect "$1" "$(at_home bert find /vol/archive -mindepth 1 -readable | wc -l)" "objects that bert may read"
  expect 0 "$(at_home bert find /vol/archive -mindepth 1 -writable | wc -l)" "objects that bert may change"
}

read_at_every_door() {
  local got
  expect "the last sheet" "$(at_home bert cat "/vol/archive/$sheet")" "the sheet that bert reads on the host"
  expect "the last sheet" "$(over_nfs bert /vol/archive cat "$sheet")" "the sheet that bert reads over NFS"
  await_smb archive
  smb bert archive "get \"$sheet\" /tmp/sheet" >/dev/null || fail "bert cannot get the sheet over SMB"
  expect "the last sheet" "$(cat /tmp/sheet)" "the sheet that bert reads over SMB"
  if at_home carl cat "/vol/archive/$sheet" 2>/dev/null; then fail "carl reads the sheet on the host"; fi
  if over_nfs carl /vol/archive cat "$sheet" 2>/dev/null; then fail "carl reads the sheet over NFS"; fi
  got=$(smb carl archive "get \"$sheet\" /tmp/carls") || true
  [[ $got == *NT_STATUS_ACCESS_DENIED* ]] || fail "carl is not refused over SMB: $got"
  [ ! -e /tmp/carls ] || fail "carl reads the sheet over SMB"
}

archive() {
  local count
  make_archive
  count=$(objects)
  expect 20000 "$count" "what find finds"
  does keelhouse share add /vol/archive --nfs '127.0.0.1(rw,no_subtree_check,fsid=3)'
  does keelhouse privs set /vol/archive --group crew --mode 750
  does keelhouse acl set /vol/archive 'allow group:crew read:inherit'
  try_without_changing "$count"
  push_and_follow "$count"
  all_have_what_was_pushed_down "$count"
  read_at_every_door
}
