#!/usr/bin/env bash
# What is made over SMB, over NFS or locally in a shared folder that passes entries on may be used over SMB, over
# NFS and locally by exactly those whom the folder's entries let in.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh

cat >/etc/samba/smb.conf <<'CONFIGURATION'
[global]
server role = standalone server
disable netbios = yes
smb ports = 445
interfaces = lo
bind interfaces only = yes
load printers = no
printing = bsd
include = /etc/samba/paddock-shares.conf
CONFIGURATION

install_and_start
systemctl start nfs-server
python3 -B ./doors_in_guest.py
systemctl stop smbd paddockd
