# shellcheck shell=bash
# What the scripts in the guest share.
set -euo pipefail

# Of everybody who has an account in Samba.
export password=not-a-secret

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# expect WANTED GOT WHAT
expect() { [ "$1" = "$2" ] || fail "$3: wanted \"$1\", got \"$2\""; }

# eventually COMMAND...: whether it succeeds within half a minute; the guest is slow on a loaded machine.
eventually() {
  local end=$((SECONDS + 30))
  until "$@"; do
    [ "$SECONDS" -lt "$end" ] || return 1
    sleep 0.5
  done
}

# Installs the tree on the guest's own root and starts the daemon by its unit.
install_and_start() {
  cp -a /host/tree/. /
  systemd-sysusers paddock.conf
  systemctl daemon-reload
  systemctl start paddockd
  keelhouse status >/dev/null || fail "the daemon does not answer"
}

# A stand-alone server on loopback, without the shares of the daemon.
configure_samba() {
  cat >/etc/samba/smb.conf <<'CONFIGURATION'
[global]
server role = standalone server
disable netbios = yes
smb ports = 445
interfaces = lo
bind interfaces only = yes
load printers = no
printing = bsd
CONFIGURATION
}

# The line that has Samba read the shares of the daemon.
export include_line="include = /etc/samba/paddock-shares.conf"
include_shares() { echo "$include_line" >>/etc/samba/smb.conf; }

# add_samba_user NAME OPTION...: an account of the host, by useradd's options, that has one in Samba, too.
add_samba_user() {
  local name=$1
  shift
  useradd "$@" "$name"
  printf '%s\n%s\n' "$password" "$password" | smbpasswd -s -a "$name" >/dev/null
}
