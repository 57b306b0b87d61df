#!/usr/bin/env bash
# The services that publish share points, as a real systemd and a real kernel have them: their states,
# and that one request is all that an administrator has to send.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh

state_of() { keelhouse command "$1:command" = getState; }

make_vsp_server() {
  printf '[Service]\nExecStart=/bin/sleep infinity\n' >/etc/systemd/system/vspd.service
  printf '#!/bin/sh\nkeelhouse record list dsRecTypeStandard:SharePoints >/run/vspd.shares\n' >/usr/local/bin/vspd-sync
  chmod 755 /usr/local/bin/vspd-sync
  printf '[vsp]\nstate = "unit:vspd.service"\nsync_command = ["/usr/local/bin/vspd-sync"]\n' >/etc/paddock/paddockd.toml
}

states() {
  expect 'vsp:state = "STOPPED"' "$(state_of vsp)" "the state of a unit that was never started"
  systemctl start vspd
  expect 'vsp:state = "RUNNING"' "$(state_of vsp)" "the state of an active unit"
  systemctl kill --signal=KILL vspd
  local tries=0
  until [ "$(systemctl is-active vspd)" = failed ] || [ "$((tries += 1))" -gt 50 ]; do sleep 0.2; done
  expect 'vsp:state = "STOPPED"' "$(state_of vsp)" "the state of a unit that was killed"
  expect 'nfs:state = "STOPPED"' "$(state_of nfs)" "the state of NFS before its start"
  systemctl start nfs-server
  expect 'nfs:state = "RUNNING"' "$(state_of nfs)" "the state of NFS"
}

one_request_is_enough() {
  mkdir -p /vol/shared
  keelhouse share add /vol/shared --nfs '127.0.0.1(rw,no_subtree_check,fsid=1)' >/dev/null
  exportfs -s | grep -q '^/vol/shared ' || fail "the kernel does not export what was shared: $(exportfs -s)"
  grep -q shared /run/vspd.shares || fail "the server of VSP was not told: $(cat /run/vspd.shares)"
  keelhouse share remove /vol/shared >/dev/null
  expect "" "$(exportfs -s)" "exports after the removal"
  if grep -q shared /run/vspd.shares; then fail "the server of VSP was not told of the removal"; fi
}

install_and_start
make_vsp_server
systemctl daemon-reload
systemctl restart paddockd
states
one_request_is_enough
expect 'vsp:status = 0' "$(keelhouse command vsp:command = syncSharePoints)" "the answer of the server of VSP"
systemctl stop paddockd
expect inactive "$(systemctl is-active paddockd || true)" "the daemon's unit after its stop"
echo "the states are systemd's and the kernel's, and one request told both servers"
