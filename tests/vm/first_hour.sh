#!/usr/bin/env bash
# first_hour.sh [PART...]: an administrator's first hour, under systemd and with real clients. The daemon is
# installed, and then part by part a folder is shared over SMB and NFS while their servers come up, its list is
# tried at three doors, a team gets its folder, 20,000 files their privileges, users their limits, clients an
# automount from a directory server, a second administrator and a viewer join, and mistakes are made. What is
# printed is compared with what clients, servers and the kernel make of it. Parts can also be run alone.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh
people=(anna bert carl dora)
parts=(sharing three_doors team archive limits directory colleagues mistakes)
# shellcheck source=/dev/null
for part in clients "${parts[@]}"; do . "./first_hour/$part.sh"; done
[ $# -eq 0 ] || parts=("$@")

install_everything() {
  local person
  install_and_start
  groupadd crew
  groupadd guests
  for person in "${people[@]}"; do
    add_samba_user "$person" --create-home --shell /bin/bash
  done
  usermod -aG crew anna
  usermod -aG crew bert
  usermod -aG crew,guests dora
  configure_samba
  does keelhouse status
  said "plug-in paddock_sharing"
}

title() { printf '%s %3ss  %s\n' '--' "$SECONDS" "$*"; }

title installing
install_everything
for part in "${parts[@]}"; do
  title "$part"
  # What the first part comes to with much to say, the others begin with.
  [ "$part" = sharing ] || serve_photos
  "$part"
  leave_nfs
done
systemctl stop paddockd
expect inactive "$(systemctl is-active paddockd || true)" "the daemon's unit after its stop"
title "done"
echo "the first hour went as it was printed: ${parts[*]}"
