#!/usr/bin/env bash
# The beginning of an administrator's first hour: the daemon is installed under systemd, a folder is shared
# over SMB and NFS while their servers come up, its list tried at three doors, and a team gets its folder. What
# is printed is compared with what clients and the kernel make of it.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh
password=not-a-secret
people=(anna bert carl dora)
for part in clients doors; do
  # shellcheck source=/dev/null
  . "./first_hour/$part.sh"
done

# heard COMMAND...: runs it; what it prints on either stream is in $output, its status in $status.
heard() {
  status=0
  output=$("$@" 2>&1 </dev/null) || status=$?
}

# does COMMAND...: it must succeed.
does() {
  heard "$@"
  [ "$status" -eq 0 ] || fail "$* ended with $status: $output"
}

# said TEXT: what was printed last has it.
said() { [[ $output == *"$1"* ]] || fail "wanted to read \"$1\", got: $output"; }

part() { printf '%s %3ss  %s\n' '--' "$SECONDS" "$*"; }

install_everything() {
  local person
  install_and_start
  groupadd crew
  groupadd guests
  for person in "${people[@]}"; do
    useradd --create-home --shell /bin/bash "$person"
    printf '%s\n%s\n' "$password" "$password" | smbpasswd -s -a "$person" >/dev/null
  done
  usermod -aG crew anna
  usermod -aG crew bert
  usermod -aG crew,guests dora
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
  does keelhouse status
  said "plug-in paddock_sharing"
}

part "installing"
install_everything
part "sharing a folder, one service after the other"
share_while_services_come_up
part "a list at three doors"
list_at_three_doors
part "a team's folder"
team_folder
systemctl stop paddockd
expect inactive "$(systemctl is-active paddockd || true)" "the daemon's unit after its stop"
part "done"
echo "the first hour began as it was printed"
