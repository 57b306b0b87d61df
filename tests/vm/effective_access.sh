#!/usr/bin/env bash
# What effectiveprivs says of reading, writing, listing and making is what a mount over NFS lets a user do.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh

install_and_start
systemctl start nfs-server
python3 -B ./effective_access.py "$@"
systemctl stop paddockd
