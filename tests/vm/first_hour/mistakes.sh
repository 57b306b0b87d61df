# shellcheck shell=bash
# Each is answered by what was wrong and what to type, and changes nothing.
: "${status=}" "${output=}"

# refused STATUS TEXT ADVICE WORD...: keelhouse ends so, says both, and nothing that is kept changes.
refused() {
  local wanted=$1 text=$2 advice=$3 before
  shift 3
  before=$(kept_state)
  heard keelhouse "$@"
  expect "$wanted" "$status" "the status of keelhouse $* ($output)"
  said "$text" "$advice"
  expect "$before" "$(kept_state)" "what is kept after keelhouse $*"
}

slips_and_refusals() {
  mkdir -p /vol/new
  refused 2 'there is no command "shre"' "did you mean share?" shre list
  refused 1 "/vol/phtos cannot be shared: No such file or directory" "Create the folder first" share add /vol/phtos
  refused 1 'there is no share "phot0s"' "did you mean photos?" share show phot0s
  refused 1 'the name over SMB, "global", is one that Samba keeps for itself' "Choose another one with --smb-name" \
    share add /vol/new --smb-name global
  refused 1 'exportfs does not know the option "rwx" of 127.0.0.1' "exports(5) has the options" \
    share add /vol/new --nfs '127.0.0.1(rwx)'
  refused 1 "the host nowhere.invalid does not resolve" "Nothing was changed." \
    share add /vol/new --nfs 'nowhere.invalid(ro)'
  refused 1 "there is no user nobody-here" "neither on this host nor in a directory node" \
    acl add /vol/photos 'allow user:nobody-here read'
  refused 2 "no entry is given" "keelhouse acl clear PATH" acl set /vol/photos
  refused 2 '"9999" is no mode' "such as 2770" privs set /vol/photos --mode 9999
  refused 2 '"magic script" runs a program' "--option" share set /vol/photos --option 'magic script = x'
  refused 1 "/vol/gone cannot be shared: No such file or directory" "Create the folder first" \
    share move /vol/photos /vol/gone
}

# What was refused is refused by the servers themselves.
servers_refuse_it_too() {
  local refusal
  refusal=$(exportfs -o rwx 127.0.0.1:/vol/new 2>&1) || true
  [[ $refusal == *'unknown keyword "rwx"'* ]] || fail "exportfs takes the option rwx: $refusal"
  if getent hosts nowhere.invalid >/dev/null; then fail "nowhere.invalid resolves"; fi
  if id nobody-here 2>/dev/null; then fail "there is a user nobody-here"; fi
}

# A name that is taken is made unique, and that is said.
taken_name() {
  mkdir -p /vol/other/photos
  does keelhouse share add /vol/other/photos
  said "photos was taken by /vol/photos: photos-1" "Shared over SMB as photos-1"
  expect /vol/other/photos "$(testparm -s --section-name=photos-1 --parameter-name=path 2>/dev/null)" \
    "the folder of the share photos-1"
  await_smb photos-1
  does keelhouse share remove photos-1
  said "/vol/other/photos is no longer shared."
  expect "" "$(comment_of photos-1)" "a share photos-1 after its removal"
}

# by_hand: what exportfs makes of the lines that were written by hand.
by_hand() { exportfs -s | grep -F 192.0.2. | sort; }

# Lines that somebody writes meanwhile stay as they are, also where a blank line ends an entry that goes on.
lines_by_hand_stay() {
  local before
  cat >>/etc/exports <<'LINES'
/srv 192.0.2.7(ro) \
  192.0.2.8(rw,no_subtree_check) \

/usr 192.0.2.9(ro)
LINES
  exportfs -ra 2>/dev/null
  before=$(by_hand)
  expect "3 1" "$(wc -l <<<"$before") $(grep -c '^/usr ' <<<"$before")" "exports that were written by hand"
  does keelhouse acl add /vol/photos 'allow user:carl read'
  does keelhouse share set /vol/photos --comment last --nfs '127.0.0.1(ro,no_subtree_check,fsid=1)'
  exportfs -ra 2>/dev/null
  expect "$before" "$(by_hand)" "exports that were written by hand, after two changes"
  grep '^/vol/photos  127.0.0.1(.*,ro,' <(exportfs -s) >/dev/null || fail "exportfs does not have the change"
}

# A configuration that is wrong is said with its line, and the daemon goes on with the one before.
broken_configuration() {
  local configuration=/etc/paddock/paddockd.toml process line
  process=$(systemctl show --property=MainPID --value paddockd)
  cp "$configuration" /tmp/kept.toml
  printf '[limits]\nbody_bites = 1\n' >"$configuration"
  heard paddockd --check-config
  expect 1 "$status" "the status of the check"
  said "$configuration:2: unknown key \"limits.body_bites\""
  line=$output
  heard systemctl reload paddockd
  expect 1 "$status" "the status of a reload of a broken configuration"
  output=$(journalctl -u paddockd)
  said "$line"
  expect "$process" "$(systemctl show --property=MainPID --value paddockd)" "the process after a reload that failed"
  does keelhouse share list
  cp /tmp/kept.toml "$configuration"
  does systemctl reload paddockd
}

mistakes() {
  slips_and_refusals
  servers_refuse_it_too
  taken_name
  lines_by_hand_stay
  broken_configuration
}
