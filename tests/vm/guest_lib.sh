# shellcheck shell=bash
# What the scripts in the guest share.
set -euo pipefail

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# expect WANTED GOT WHAT
expect() { [ "$1" = "$2" ] || fail "$3: wanted \"$1\", got \"$2\""; }

# Installs the tree on the guest's own root and starts the daemon by its unit.
install_and_start() {
  cp -a /host/tree/. /
  systemd-sysusers paddock.conf
  systemctl daemon-reload
  systemctl start paddockd
  keelhouse status >/dev/null || fail "the daemon does not answer"
}
