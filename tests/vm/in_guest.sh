#!/usr/bin/env bash
# in_guest.sh FOLDER COMMAND...: runs the command in FOLDER in the guest of $PADDOCK_VM, or says why not.
set -euo pipefail
folder=$1
shift
if [ -z "${PADDOCK_VM:-}" ] || [ -z "${PADDOCK_VM_CACHE:-}" ]; then
  echo "skipped: needs a guest of its own; PADDOCK_VM names no folder with vm-build and vm-run"
  exit 77
fi
exec "$PADDOCK_VM/vm-run" --timeout "${PADDOCK_VM_SECONDS:-850}" "$PADDOCK_VM_CACHE" "$folder" -- "$@"
