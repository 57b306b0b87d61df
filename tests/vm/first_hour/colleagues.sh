# shellcheck shell=bash
# Somebody else who administers, at the same time, and somebody who only looks.
: "${status=}" "${output=}"

# refused_to PERSON ADVICE WORD...: keelhouse does not do it for the person, and says which group to join.
refused_to() {
  local person=$1 advice=$2 before
  shift 2
  before=$(kept_state)
  heard at_home "$person" keelhouse "$@"
  expect 1 "$status" "the status of $person's keelhouse $* ($output)"
  said "(HTTP 403)" "$advice"
  expect "$before" "$(kept_state)" "what is kept after $person's keelhouse $*"
}

join_as_an_administrator() {
  useradd erik
  refused_to erik "usermod -aG paddock-view erik" share list
  refused_to erik "you need to be in the group paddock (changes) or paddock-view (looking)" \
    share set /vol/photos --comment "by a stranger"
  usermod -aG paddock erik
  does at_home erik keelhouse share list
  expect "$(keelhouse share list)" "$output" "the shares that erik sees"
  does at_home erik keelhouse who /vol/photos
  said bert
  does at_home erik keelhouse effective /vol/photos carl --explain
  expect "$(yes_or_no at_home carl test -r /vol/photos)" \
    "$(sed -n 's/^  local  *\(yes\|no\) .*/\1/p' <<<"$output")" "carl at the host, as erik is told"
  does at_home erik keelhouse share set /vol/photos --comment "by erik"
  expect "by erik" "$(comment_of photos)" "erik's comment as smbd has it"
  does at_home erik keelhouse audit --limit 5
  output=$(tr -s ' ' <<<"$output")
  said "erik paddock_sharing writeSettings done /vol/photos"
  grep -F "\"path\":\"/vol/photos\"" /var/log/paddock/audit.jsonl | grep -F "\"uid\":$(id -u erik)" >/dev/null ||
    fail "the audit log does not have erik's change"
}

# Two additions at once: both are in the list, and the kernel has both.
two_at_once() {
  local others
  at_home erik keelhouse acl add /vol/photos 'allow user:dora read' >/tmp/eriks 2>&1 &
  others=$!
  does keelhouse acl add /vol/photos 'allow user:erik read'
  wait "$others" || fail "one of two additions at the same time failed: $(cat /tmp/eriks)"
  does keelhouse acl show /vol/photos
  said "allow   user:dora" "allow   user:erik"
  output=$(getfacl -cp /vol/photos)
  # dora has what her group has as well.
  said "user:dora:r" "user:erik:r-x"
  at_home erik ls /vol/photos >/dev/null || fail "erik does not get in"
}

look_on() {
  useradd vera
  usermod -aG paddock-view vera
  does at_home vera keelhouse share list --check
  expect "$(keelhouse share list --check)" "$output" "what a viewer is told of the shares"
  does at_home vera keelhouse effective /vol/photos bert
  expect "$(keelhouse effective /vol/photos bert 2>&1)" "$output" "what a viewer is told of bert"
  refused_to vera "usermod -aG paddock vera" share remove /vol/photos
  refused_to vera "usermod -aG paddock vera" acl add /vol/photos 'allow user:vera full'
  refused_to vera "usermod -aG paddock vera" privs set /vol/photos --mode 777
  refused_to vera "usermod -aG paddock vera" quota on /vol
  refused_to vera "usermod -aG paddock vera" audit
  follow_advice "usermod -aG paddock vera"
  does at_home vera keelhouse audit --limit 1
}

colleagues() {
  join_as_an_administrator
  two_at_once
  look_on
}
