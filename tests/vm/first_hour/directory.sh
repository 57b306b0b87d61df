# shellcheck shell=bash
# A stock slapd with our schema: looking leaves it as it is, automounts go there, and a client that reads it
# mounts the folder by what it finds.
: "${password:?}" "${status=}" "${output=}"

server=ldapi://%2Frun%2Fsite%2Fsocket
account=cn=paddock,dc=example

start_slapd() {
  mkdir -p /run/site/db
  cat >/run/site/slapd.conf <<CONFIGURATION
include /etc/ldap/schema/core.schema
include /etc/ldap/schema/cosine.schema
include /etc/ldap/schema/nis.schema
include /usr/share/paddockd/ldap/paddock.schema
modulepath /usr/lib/ldap
moduleload back_mdb
pidfile /run/site/pid
database mdb
maxsize 67108864
suffix "dc=example"
rootdn "cn=admin,dc=example"
rootpw $password
directory /run/site/db
index objectClass,paddockType,paddockMatch,entryUUID eq
access to attrs=userPassword by anonymous auth by * none
access to * by dn.exact="$account" write by * read
CONFIGURATION
  slapd -f /run/site/slapd.conf -h "$server"
  local tries=0
  until [ -S /run/site/socket ]; do
    [ "$((tries += 1))" -lt 100 ] || fail "slapd does not listen"
    sleep 0.2
  done
  ldapadd -x -H "$server" -D cn=admin,dc=example -w "$password" >/dev/null <<ENTRIES
dn: dc=example
objectClass: domain
dc: example

dn: ou=paddock,dc=example
objectClass: organizationalUnit
ou: paddock

dn: $account
objectClass: organizationalRole
objectClass: simpleSecurityObject
cn: paddock
userPassword: $password
ENTRIES
}

connect_daemon() {
  install -m 600 /dev/stdin /etc/paddock/site.password <<<"$password"
  cat >>/etc/paddock/paddockd.toml <<CONFIGURATION

[[ldap]]
name = "site"
uri = "$server"
base = "dc=example"
records_base = "ou=paddock,dc=example"
bind_dn = "$account"
password_file = "/etc/paddock/site.password"
CONFIGURATION
  does paddockd --check-config
  does systemctl restart paddockd
}

# What the server keeps.
site() { slapcat -f /run/site/slapd.conf 2>/dev/null; }

# found_by_a_client ATTRIBUTE: of the automount records, as a client asks for them.
found_by_a_client() {
  ldapsearch -x -LLL -o ldif-wrap=no -H "$server" -b ou=paddock,dc=example objectClass=paddockMount "$1" |
    sed -n "s/^$1: //p"
}

look_around() {
  local before
  before=$(site)
  does keelhouse nodes
  said "/LDAP/site  writable (as configured)"
  does keelhouse status
  said "node /LDAP/site"
  does keelhouse share list
  does keelhouse acl show /vol/photos
  does keelhouse who /vol/photos
  does keelhouse record list --node /LDAP/site mounts
  expect "" "$output" "the mounts of an empty server"
  heard keelhouse share set /vol/photos --nfs --automount /Network/Servers/ --node /LDAP/site \
    --admin "$account" --password-fd 3 3<<<"wrong"
  expect 1 "$status" "the status with a wrong password"
  said "the directory node /LDAP/site refuses $account" "Nothing was changed."
  expect "$before" "$(site)" "the server's data after looking"
}

# A client mounts what the record names, from where it says, to where it says.
mount_as_a_client() {
  local name place
  name=$(found_by_a_client cn)
  place=$(found_by_a_client paddockVFSLinkDir)
  expect "$(hostname):/vol/photos nfs /Network/Servers/" "$name $(found_by_a_client paddockVFSType) $place" "the record"
  mount_nfs "$name" "$place" || fail "$name cannot be mounted at $place"
  expect "a picture" "$(at_home anna cat "$place/picture")" "the file by way of the automount record"
  umount "$place"
}

directory() {
  start_slapd
  connect_daemon
  look_around
  does keelhouse share set /vol/photos --nfs --automount /Network/Servers/ --node /LDAP/site \
    --admin "$account" --password-fd 3 3<<<"$password"
  said "automountMountPath: /Network/Servers/" "automountDSPath: /LDAP/site"
  does keelhouse share list
  said "/Network/Servers/ over NFS by /LDAP/site"
  does keelhouse record list --node /LDAP/site mounts
  expect "$(found_by_a_client cn)" "$output" "the records as keelhouse lists them"
  [[ $(site) == *"cn: $(hostname):/vol/photos"* ]] || fail "the server's database does not hold the record"
  mount_as_a_client
  does keelhouse share set /vol/photos --no-automount --admin "$account" --password-fd 3 3<<<"$password"
  expect "" "$(found_by_a_client cn)" "the records once clients mount it no longer"
}
