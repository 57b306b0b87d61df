# shellcheck shell=bash
# What the unit lets the daemon and its programs do, and what brings it back when it hangs: parts of
# daemon_unit.sh, which is run in the guest.
: "${configuration:?}"

limits=/run/systemd/system/paddockd.service.d/limits.conf

main_process() { systemctl show --property=MainPID --value paddockd; }
age() { ps -o etimes= -p "$(main_process)" | tr -d ' '; }
restarts() { systemctl show --property=NRestarts --value paddockd; }
of_process() { sed -n "s/^$1:[[:space:]]*//p" "/proc/$(main_process)/status"; }

exposure_is_low() {
  local figure
  figure=$(systemd-analyze security --no-pager paddockd | sed -n 's/.*exposure level for paddockd.service: \([0-9.]*\) .*/\1/p')
  echo "exposure of paddockd.service: $figure"
  if [ -z "$figure" ] || [ "$(printf '%s\n4.0\n' "$figure" | sort -V | tail -n 1)" != 4.0 ]; then
    fail "the exposure is above 4"
  fi
  # CHOWN, DAC_OVERRIDE, DAC_READ_SEARCH, FOWNER, FSETID, SYS_ADMIN, SYS_RESOURCE, AUDIT_WRITE
  expect 000000002120001f "$(of_process CapBnd)" "what the daemon and its programs may ever be allowed"
  expect 000000002120001f "$(of_process CapEff)" "what the daemon is allowed"
  expect 1 "$(of_process NoNewPrivs)" "new privileges are kept from it"
  expect 2 "$(of_process Seccomp)" "its system calls are filtered"
}

socket_is_of_systemd() {
  expect "666 root root" "$(stat -c '%a %U %G' /run/paddock/paddockd.sock)" "the socket"
  expect active "$(systemctl is-active paddockd.socket)" "its unit"
  systemctl stop paddockd 2>/dev/null
  expect inactive "$(systemctl is-active paddockd || true)" "the daemon after its stop"
  keelhouse status >/dev/null || fail "nobody starts the daemon for who asks it"
  expect active "$(systemctl is-active paddockd)" "the daemon after somebody asked it"
  grep -qx 'StatusText=serving' <(systemctl show --property=StatusText paddockd) || fail "systemd does not know that it serves"
}

# checked PASSWORD: the status of a user's password, which the host checks.
checked() {
  keelhouse request paddock_directory getRecord - <<<'{"node": "/System", "type": "dsRecTypeStandard:Users",
    "name": "root", "adminUserName": "viewer", "adminPassword": "'"$1"'"}' | jq .status
}

passwords_and_quotas() {
  chpasswd <<<"viewer:${password:?}"
  expect 0 "$(checked "$password")" "the password of a user of the host"
  expect 13 "$(checked wrong)" "another password"
  keelhouse quota on /vol >/dev/null || fail "quotas cannot be switched on"
  keelhouse quota set /vol viewer 8M 9M >/dev/null || fail "a limit cannot be set"
  quota -u -v -w -p viewer | grep -q ' 8192 ' || fail "the kernel does not have the limit: $(quota -u -v -w -p viewer)"
}

# What commands of the configuration may do: the table in docs/services.md.
commands_may_do_what_is_written() {
  cat >/usr/local/bin/vspd-sync <<'COMMAND'
#!/bin/sh
try() {
  what=$1
  shift
  if "$@" >/dev/null 2>&1; then echo "$what: yes"; else echo "$what: no"; fi
}
{
  try "change files in a shared folder" touch /vol/by-command
  try "give files away" chown nobody /vol/by-command
  try "change files in /etc" touch /etc/by-command
  try "use /tmp" touch /tmp/by-command
  try "ask the daemon" keelhouse record list dsRecTypeStandard:Users
  try "ask systemd" systemctl show --property=Version
  try "have systemd do it" systemctl start vspd-sync.service
  try "log" logger --tag vspd-sync hello
  try "change files in /usr" touch /usr/local/by-command
  try "mount" mount -t tmpfs none /mnt
  try "read a disk" head -c 1 /dev/vdb
  try "become another user" setpriv --reuid=nobody --regid=nogroup --clear-groups true
  try "have a namespace of its own" unshare --mount true
  try "set the kernel" sh -c 'echo 1 >/proc/sys/vm/drop_caches'
} >/run/vspd.said
COMMAND
  chmod 755 /usr/local/bin/vspd-sync
  printf '[Service]\nType=oneshot\nExecStart=/bin/touch /usr/local/by-unit\n' >/etc/systemd/system/vspd-sync.service
  systemctl daemon-reload
  cp "$configuration" /tmp/before-commands.toml
  printf '[vsp]\nsync_command = ["/usr/local/bin/vspd-sync"]\n' >>"$configuration"
  systemctl reload paddockd
  until_seen 'changed: vsp.sync_command' journalctl -u paddockd
  expect 'vsp:status = 0' "$(keelhouse command vsp:command = syncSharePoints)" "the command"
  expect "change files in a shared folder, give files away, change files in /etc, use /tmp, ask the daemon, ask systemd, have systemd do it, log" \
    "$(sed -n 's/: yes$//p' /run/vspd.said | paste -sd, | sed 's/,/, /g')" "what a command may do"
  expect "change files in /usr, mount, read a disk, become another user, have a namespace of its own, set the kernel" \
    "$(sed -n 's/: no$//p' /run/vspd.said | paste -sd, | sed 's/,/, /g')" "what a command may not do"
  [ -e /usr/local/by-unit ] || fail "the unit that a command started changes nothing below /usr"
  cp /tmp/before-commands.toml "$configuration"
}

wait_less() {
  mkdir -p "${limits%/*}"
  # The unit's own minute would take the test as long.
  printf '[Service]\nWatchdogSec=10\n' >"$limits"
  systemctl daemon-reload
}

is_pushed_down() { [ "$(find /vol/tree ! -group lookers | wc -l)" -eq 0 ]; }

propagation_survives_a_restart() {
  local run before
  mkdir -p /vol/tree
  (cd /vol/tree && seq -f 'file %g' 4000 | tr '\n' '\0' | xargs -0 touch)
  chgrp lookers /vol/tree
  before=$(main_process)
  keelhouse propagate /vol/tree --group >/dev/null
  run=$(pgrep -x copyprivs) || fail "the propagation does not run, or is over"
  kill -STOP "$run"
  if is_pushed_down; then fail "the propagation was over before the restart"; fi
  systemctl restart paddockd
  [ "$(main_process)" != "$before" ] || fail "the daemon was not started again"
  expect "$run" "$(pgrep -x copyprivs)" "the propagation after the restart"
  keelhouse status | grep -q 'propagation /vol/tree' || fail "the new daemon does not know it: $(keelhouse status)"
  kill -CONT "$run"
  eventually is_pushed_down || fail "the propagation does not end: $(find /vol/tree ! -group lookers | wc -l) are left"
}

hanging_daemon_is_started_again() {
  local before shares lines waiting began
  shares=$(keelhouse share list)
  lines=$(wc -l </var/log/paddock/audit.jsonl)
  before=$(main_process)
  while [ "$(age)" -lt 13 ]; do sleep 0.5; done
  expect 0 "$(restarts)" "restarts of a daemon that runs for longer than the time limit"
  began=$SECONDS
  kill -STOP "$before"
  # Asked while nobody answers; the socket keeps the question.
  keelhouse share list >/tmp/answer 2>&1 &
  waiting=$!
  while [ "$(main_process)" = "$before" ] && [ "$((SECONDS - began))" -lt 60 ]; do sleep 0.5; done
  until_seen 'Watchdog timeout (limit 10s)' journalctl -u paddockd
  wait "$waiting" || fail "who asked while it hung has no answer: $(cat /tmp/answer)"
  expect "$shares" "$(cat /tmp/answer)" "what the next daemon answers"
  keelhouse share set /vol/shared --comment "after the hang" >/dev/null 2>&1 || fail "nothing can be changed any more"
  [ "$(wc -l </var/log/paddock/audit.jsonl)" -gt "$lines" ] || fail "the audit log lost lines"
  rm "$limits"
  systemctl daemon-reload
}
