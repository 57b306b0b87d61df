#!/usr/bin/env bash
# What is made over SMB, over NFS or locally in a shared folder that passes entries on may be used over SMB, over
# NFS and locally by exactly those whom the folder's entries let in.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh

configure_samba
include_shares
install_and_start
systemctl start nfs-server
python3 -B ./doors_in_guest.py
systemctl stop smbd paddockd
