# shellcheck shell=bash
# The same folder over SMB, NFS and on the host: who reads and writes at each door is what keelhouse says of each.
: "${people[*]:?}" "${output=}"

# $tried has, as "OBJECT DOOR", what came of the last tries: "READ WRITE", each yes or no.
declare -A tried

# did ANSWER TEXT: smbclient says that it did it.
did() { if [[ $1 == *"$2"* ]]; then echo yes; else echo no; fi; }

try_over_smb() {
  local answer
  answer=$(smb "$1" photos "ls; get picture /tmp/picture; put /tmp/same picture; put /tmp/same made-smb") || true
  if [[ ${answer//NT_STATUS_ACCESS_DENIED/} == *NT_STATUS_* ]]; then fail "$1 is refused otherwise: $answer"; fi
  tried[folder smb]="$(did "$answer" "blocks available") $(did "$answer" 'as \made-smb')"
  tried[picture smb]="$(did "$answer" 'getting file \picture') $(did "$answer" 'as \picture')"
}

# Lists the folder $0, makes a file in it, reads the picture, writes to it.
# shellcheck disable=SC2016
try_all='try() { if "$@" >/dev/null 2>&1; then echo yes; else echo no; fi; }
try ls "$0"; try touch "$0/$1"; try cat "$0/picture"; try sh -c ": >>\"\$0\"" "$0/picture"'

# try_in DOOR PERSON FOLDER
try_in() {
  local came
  mapfile -t came < <(at_home "$2" sh -c "$try_all" "$3" "made-$1")
  tried[folder $1]="${came[0]} ${came[1]}"
  tried[picture $1]="${came[2]} ${came[3]}"
}

tries() {
  rm -f /tmp/picture /vol/photos/made-*
  try_over_smb "$1"
  try_in nfs "$1" "$(place_over_nfs /vol/photos)"
  try_in local "$1" /vol/photos
}

# doors_of FILTER: of JSON, what it says of each door; what_became_of OBJECT: the same of the tries.
doors_of() { jq -r "$@" | sort; }
what_became_of() { for door in local nfs smb; do echo "$door ${tried[$1 $door]}"; done; }
said_of_each='to_entries[] | "\(.key) \(.value.read) \(.value.write)"'

# compare PERSON: what "effective" says of the folder, and "who", asked before, of the picture, with what comes of
# trying it.
compare() {
  tries "$1"
  expect "$(keelhouse --json effective /vol/photos "$1" | doors_of ".doors | $said_of_each")" \
    "$(what_became_of folder)" "the folder to $1"
  expect "$(doors_of --arg name "$1" ".people[] | select(.user == \$name).doors | $said_of_each" </tmp/who.json)" \
    "$(what_became_of picture)" "the picture to $1"
}

ask_who() { keelhouse --json who /vol/photos/picture >/tmp/who.json; }

set_the_list() {
  does keelhouse acl set /vol/photos 'allow group:crew read,write:inherit' 'allow user:carl read:inherit'
  does keelhouse propagate /vol/photos --acl --follow
}

three_doors() {
  local person door
  echo "a picture" >/tmp/same
  set_the_list
  ask_who
  for person in "${people[@]}"; do
    compare "$person"
    for door in smb nfs local; do
      if [ "$person" = carl ]; then
        expect "yes no" "${tried[picture $door]}" "carl, who may read, at the door $door"
      else
        expect "yes yes" "${tried[picture $door]}" "$person, of the crew, at the door $door"
      fi
    done
  done
  deny_a_group
  set_the_list
}

# The kernel cannot deny a group; whom it lets in is said, and the command that was printed keeps them out.
deny_a_group() {
  does keelhouse acl add /vol/photos --first 'deny group:guests read,write:inherit'
  said "entry 1 denies group:guests" "locally and over NFS it still lets in dora; SMB refuses."
  local advice=$output
  does keelhouse propagate /vol/photos --acl --follow
  ask_who
  compare dora
  expect "no no, yes yes, yes yes" "${tried[picture smb]}, ${tried[picture nfs]}, ${tried[picture local]}" \
    "dora, of a denied group"
  output=$advice
  follow_advice "keelhouse acl strict /vol/photos"
  said "1 denial by name"
  does keelhouse propagate /vol/photos --acl --follow
  ask_who
  compare dora
  expect "no no, no no, no no" "${tried[picture smb]}, ${tried[picture nfs]}, ${tried[picture local]}" \
    "dora, denied by name"
  does keelhouse acl strict /vol/photos --off
}
