#!/usr/bin/env bash
# The daemon's unit under a real systemd: what a configuration that is wrong does to its start and its reload,
# that a reload takes over what it can, what it and its programs may do, and that it comes back when it hangs.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh

configuration=/etc/paddock/paddockd.toml
# shellcheck source=tests/vm/daemon_sandbox.sh
. ./daemon_sandbox.sh
shipped=/tmp/shipped.toml

# until_seen TEXT COMMAND...: waits until the command prints the text.
until_seen() {
  local wanted=$1 tries=0
  shift
  # A command that says it may fail all the same.
  until grep -qF -- "$wanted" <<<"$("$@" 2>&1 || true)"; do
    [ "$((tries += 1))" -le 50 ] || fail "$* does not say: $wanted, but: $("$@" 2>&1 || true)"
    sleep 0.2
  done
}

as_viewer() { setpriv --reuid=viewer --regid=viewer --init-groups keelhouse "$@"; }

broken_reload_keeps_the_daemon() {
  local process
  process=$(systemctl show --property=MainPID --value paddockd)
  printf '[access]\nview_group = "lookers"\nbogus = 1\n' >"$configuration"
  if systemctl reload paddockd; then fail "a reload of a broken configuration did not fail"; fi
  until_seen "$configuration:3: unknown key \"access.bogus\"" journalctl -u paddockd
  expect active "$(systemctl is-active paddockd)" "the unit after a reload that failed"
  expect "$process" "$(systemctl show --property=MainPID --value paddockd)" "the process after a reload that failed"
  keelhouse share list >/dev/null || fail "the daemon does not answer after a reload that failed"
  # The signal alone: the daemon looks for itself.
  kill -HUP "$process"
  until_seen "not read again, the one before stays: $configuration:3:" keelhouse status
  if as_viewer share list 2>/dev/null; then fail "a part of a broken configuration was taken over"; fi
}

reload_takes_over_a_group() {
  if as_viewer share list 2>/tmp/refused; then fail "somebody in no group is answered"; fi
  grep -qF 'you need to be in the group paddock (changes) or paddock-view (looking): usermod -aG paddock-view viewer' \
    /tmp/refused || fail "the refusal does not say which group to join: $(cat /tmp/refused)"
  # Nothing else than these two keys may be another than at start.
  sed 's|^\[access\]$|&\nview_group = "lookers"|; s|^\[indexing\]$|&\ncommand = ["/bin/true"]|' "$shipped" \
    >"$configuration"
  systemctl reload paddockd
  until_seen 'a restart (systemctl restart paddockd) is needed for indexing.command' keelhouse status
  until_seen 'configuration read again; changed: access.view_group' journalctl -u paddockd
  as_viewer share list >/dev/null || fail "the group that was reloaded is not let in"
  mkdir -p /vol/shared
  as_viewer who /vol/shared >/dev/null || fail "a viewer is not told who may do what"
  if as_viewer audit 2>/dev/null; then fail "a viewer reads the audit log"; fi
}

rotated_audit_log_is_opened_again() {
  mv /var/log/paddock/audit.jsonl /var/log/paddock/audit.jsonl.1
  # As /etc/logrotate.d/paddock says.
  sh -c "$(sed -n '/postrotate/,/endscript/{/script$/d;/postrotate/d;p}' /etc/logrotate.d/paddock)"
  local tries=0
  until [ -e /var/log/paddock/audit.jsonl ] || [ "$((tries += 1))" -gt 50 ]; do sleep 0.2; done
  keelhouse share add /vol/shared >/dev/null
  grep -q writeSettings /var/log/paddock/audit.jsonl || fail "the audit log was not opened again"
  keelhouse audit --limit 1 | grep -q '/vol/shared' || fail "keelhouse audit does not show the change"
}

broken_start_says_why() {
  systemctl stop paddockd
  printf '[limits]\nbody_bytes = "many"\n' >"$configuration"
  if systemctl start paddockd; then fail "the daemon starts with a broken configuration"; fi
  until_seen "$configuration:2: " journalctl -u paddockd
  expect 0 "$(systemctl show --property=MainPID --value paddockd)" "the process of a unit that cannot start"
  rm "$configuration"
  systemctl reset-failed paddockd
  systemctl start paddockd
  keelhouse status >/dev/null || fail "the daemon does not answer once its configuration is right"
}

# timed COMMAND...: runs it, and says when it was done.
timed() {
  "$@"
  printf '%4s s  %s\n' "$SECONDS" "$1"
}

timed install_and_start
cp "$configuration" "$shipped"
groupadd lookers
useradd --user-group --groups lookers viewer
timed reload_takes_over_a_group
timed rotated_audit_log_is_opened_again
timed exposure_is_low
timed passwords_and_quotas
printf '[access]\nview_group = "paddock-view"\n' >"$configuration"
systemctl reload paddockd
until_seen "paddock-view" as_viewer share list
timed commands_may_do_what_is_written
wait_less
timed propagation_survives_a_restart
timed broken_reload_keeps_the_daemon
rm "$configuration"
timed hanging_daemon_is_started_again
timed broken_start_says_why
timed socket_is_of_systemd
echo "a wrong configuration is said at once and keeps the running daemon, a reload takes over what it can, and what hangs comes back"
