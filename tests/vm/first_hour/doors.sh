# shellcheck shell=bash
# The same folder over SMB, NFS and on the host: who may read and write is what keelhouse says for each.
: "${people[*]:?}" "${status=}"

reads() {
  case $1 in
    smb) smb "$2" photos "get picture /dev/null" >/dev/null ;;
    nfs) over_nfs "$2" /vol/photos cat picture >/dev/null 2>&1 ;;
    local) at_home "$2" cat /vol/photos/picture >/dev/null 2>&1 ;;
  esac
}

writes() {
  local name=made-$1-$2
  case $1 in
    smb) smb "$2" photos "put /etc/hostname $name" >/dev/null ;;
    nfs) over_nfs "$2" /vol/photos touch "$name" 2>/dev/null ;;
    local) at_home "$2" touch "/vol/photos/$name" 2>/dev/null ;;
  esac
}

# yes_or_no COMMAND...
yes_or_no() { if "$@"; then echo yes; else echo no; fi; }

# answer PERSON PATH: what keelhouse says of every door, as JSON; told DOOR read|write ANSWER: of one.
answer() { keelhouse --json effective "$2" "$1" 2>/dev/null; }
told() { jq -r --arg door "$1" --arg what "$2" '.doors[$door][$what]' <<<"$3"; }

list_at_three_doors() {
  local person door file folder
  does keelhouse acl set /vol/photos 'allow group:crew read,write:inherit' 'allow user:carl read:inherit'
  does keelhouse propagate /vol/photos --acl
  for person in "${people[@]}"; do
    file=$(answer "$person" /vol/photos/picture)
    folder=$(answer "$person" /vol/photos)
    for door in smb nfs local; do
      expect "$(told "$door" read "$file")" "$(yes_or_no reads "$door" "$person")" "$person reads at the door $door"
      expect "$(told "$door" write "$folder")" "$(yes_or_no writes "$door" "$person")" "$person writes at the door $door"
    done
    if [ "$person" = carl ]; then
      expect "yes no" "$(told smb read "$file") $(told local write "$folder")" "carl, who may read"
    fi
  done
  heard keelhouse acl add /vol/photos --first 'deny group:guests read,write:inherit'
  expect 0 "$status" "denying a group"
  said dora
  does keelhouse propagate /vol/photos --acl
  file=$(answer dora /vol/photos/picture)
  expect no "$(told smb read "$file")" "dora, of a denied group, over SMB"
  for door in smb nfs local; do
    expect "$(told "$door" read "$file")" "$(yes_or_no reads "$door" dora)" \
      "dora, of a denied group, reads at the door $door"
  done
  does keelhouse acl remove /vol/photos 1
  does keelhouse propagate /vol/photos --acl
}

# What one member makes at a door the other can change at every door, and nobody else can see.
team_folder() {
  local door
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
    smb bert team "put /etc/hostname by-$door" >/dev/null || fail "bert cannot change by-$door over SMB"
    if at_home carl cat "/vol/team/by-$door" 2>/dev/null; then fail "carl reads by-$door on the host"; fi
    if smb carl team "get by-$door /dev/null" >/dev/null; then fail "carl reads by-$door over SMB"; fi
  done
  if over_nfs carl /vol/team ls 2>/dev/null; then fail "carl lists the team's folder over NFS"; fi
}
