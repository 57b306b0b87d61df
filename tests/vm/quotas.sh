#!/usr/bin/env bash
# The quotas of ext4 (built-in, and in a file of the kernel's) and of XFS are switched on and off
# through the daemon; a user over the limit is stopped as long as they are on; what the daemon lists
# is what repquota lists at that moment; limits that keelhouse sets are those that repquota shows, and
# the other way round; a refused switch of keelhouse's leaves nothing behind.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh

request_for() { jq -nc --arg path "$1" --argjson more "${2:-{\}}" '{optionalArguments: {path: $path}} + $more'; }

# settings VOLUME: what the daemon reads of its quotas; the status goes with it.
settings() {
  keelhouse request paddock_sharing readSettings "$(request_for "$1")" |
    jq -c '.configuration.volumeQuotas + {status: .readStatus}'
}

# switch VOLUME true|false: the status of the write.
switch() {
  keelhouse request paddock_sharing writeSettings \
    "$(request_for "$1" "{\"configuration\": {\"volumeQuotas\": {\"isEnabled\": $2}}}")" | jq .writeStatus
}

# is_enabled VOLUME: as the daemon says, with the status.
is_enabled() { settings "$1" | jq -r '"\(.isEnabled) \(.status)"'; }

# write_two_megabytes VOLUME: what becomes of it when alice, who may have one, writes two.
write_two_megabytes() {
  local said
  rm -f "$1/alice/file"
  if said=$(runuser -u alice -- dd if=/dev/zero of="$1/alice/file" bs=64k count=32 conv=fsync 2>&1); then
    echo written
  elif [[ $said == *"Disk quota exceeded"* ]]; then
    echo "over the limit"
  else
    echo "failed: $said"
  fi
}

make_volume_of_alice() {
  mkdir -p "$1/alice"
  chown alice "$1/alice"
}

# Off, on, off and on again, with the state seen from both sides.
switch_and_look() {
  local volume=$1 round
  for round in 1 2; do
    expect 0 "$(switch "$volume" false)" "$volume: switching off, round $round"
    expect off "$(kernel_state "$volume")" "$volume: the kernel's state"
    expect "false 0" "$(is_enabled "$volume")" "$volume: the daemon's state"
    expect written "$(write_two_megabytes "$volume")" "$volume: two megabytes without quotas"
    expect 0 "$(switch "$volume" true)" "$volume: switching on, round $round"
    expect on "$(kernel_state "$volume")" "$volume: the kernel's state"
    expect "true 0" "$(is_enabled "$volume")" "$volume: the daemon's state"
    expect "over the limit" "$(write_two_megabytes "$volume")" "$volume: two megabytes with quotas"
  done
  expect 0 "$(switch "$volume" true)" "$volume: switching on what is on"
  expect 0 "$(switch "$volume" false)" "$volume: switching off"
  expect 0 "$(switch "$volume" false)" "$volume: switching off what is off"
  expect 0 "$(switch "$volume" true)" "$volume: switching on"
}

# kernel_state VOLUME: whether users' limits are enforced, by Q_XGETQSTAT of quotactl(2). (quotaon -p
# says that quotas are on also when they are counted alone.)
kernel_state() {
  python3 - "$(findmnt -no SOURCE "$1")" <<'PYTHON'
import ctypes, struct, sys
state = ctypes.create_string_buffer(256)
command = (ord("X") << 8 | 5) << 8
asked = ctypes.CDLL(None, use_errno=True).quotactl(command, sys.argv[1].encode(), 0, state)
flags = struct.unpack_from("=H", state, 2)[0]
print("off" if asked != 0 or not flags & 2 else "on")
PYTHON
}

# Users but root with KiB in use and KiB allowed, as the daemon lists them now, and as repquota does.
listed_users() {
  settings "$1" | jq -r '.usr[] | "\(.name) \(.used / 1024 | ceil) \(.limit / 1024)"' | sort
}
users_of_repquota() {
  repquota -u "$1" | awk 'lines && NF > 4 && $1 != "root" { print $1, $3, $5 } /^-----/ { lines = 1 }' | sort
}

# VOLUME -u|-g: name, bytes and files in use and their limits, without root.
kernel_limits_of_keelhouse() {
  local key=users
  [ "$2" = -u ] || key=groups
  keelhouse --json quota show "$1" | jq -r ".kernel.${key}[] | \"\(.name) \(.usedBytes / 1024 | ceil) \
\(.softBytes / 1024) \(.hardBytes / 1024) \(.usedFiles) \(.softFiles) \(.hardFiles)\"" | sort
}
kernel_limits_of_repquota() {
  repquota -vp "$2" "$1" |
    awk '{ sub("^#", "") }
      lines && NF > 8 && $1 != "root" && $3 + $4 + $5 + $7 + $8 + $9 > 0 { print $1, $3, $4, $5, $7, $8, $9 }
      /^-----/ { lines = 1 }' | sort
}

# become_alike OURS THEIRS VOLUME [ARGUMENT]: what both functions print of it, asked anew each time, because
# XFS frees what was deleted a moment later, also between the two questions.
become_alike() {
  local ours=$1 theirs=$2 answer
  shift 2
  both_answers_alike() { answer=$("$ours" "$@") && [ -n "$answer" ] && [ "$answer" = "$("$theirs" "$@")" ]; }
  eventually both_answers_alike "$@" || expect "$("$theirs" "$@")" "${answer:-nobody}" "$*: $theirs and $ours"
}
compare_with_repquota() { become_alike listed_users users_of_repquota "$1"; }
compare_kernel_with_repquota() { become_alike kernel_limits_of_keelhouse kernel_limits_of_repquota "$@"; }

# limits VOLUME -u|-g NAME: as repquota has them, "SOFT HARD" in KiB, then of files.
limits() {
  repquota -vp "$2" "$1" | awk -v name="$3" '$1 == name { print $4, $5, $8, $9 }'
}

within_the_soft_limit() { [[ $(keelhouse quota show "$1") != *"over the soft limit"* ]]; }

# Limits that keelhouse sets, as repquota has them, and setquota's as keelhouse has them; what is listed is new
# at once.
limits_of_both() {
  local volume=$1 said
  keelhouse quota set "$volume" alice 1.5M 3MiB --files 10 none >/dev/null
  expect "1536 3072 10 0" "$(limits "$volume" -u alice)" "$volume: alice's limits by repquota"
  keelhouse quota set --volume "$volume" alice 500K 1G >/dev/null
  expect "500 1048576 10 0" "$(limits "$volume" -u alice)" "$volume: without --files those of files stay"
  keelhouse quota set "$volume" staff 2M 20M --group >/dev/null
  expect "2048 20480 0 0" "$(limits "$volume" -g staff)" "$volume: the group's limits by repquota"
  setquota -u bob 1000 0 0 7 "$volume"
  setquota -g games 0 4096 3 0 "$volume"
  rm -f "$volume/alice/file"
  sync
  compare_kernel_with_repquota "$volume" -u
  compare_kernel_with_repquota "$volume" -g
  runuser -u alice -- dd if=/dev/zero of="$volume/alice/new" bs=1k count=600 conv=fsync 2>/dev/null
  said=$(keelhouse quota show "$volume")
  # Seven of them in the second in which the kernel began to count, six from then on.
  [[ $said =~ alice.*over\ the\ soft\ limit,\ [67]\ days\ left ]] || fail "$volume: no remark on alice: $said"
  compare_kernel_with_repquota "$volume" -u
  compare_with_repquota "$volume"
  rm "$volume/alice/new"
  sync
  eventually within_the_soft_limit "$volume" || fail "$volume: a remark that is stale"
  keelhouse quota set "$volume" alice none none --files none none >/dev/null
  expect "0 0 0 0" "$(limits "$volume" -u alice)" "$volume: alice without limits"
  if keelhouse quota set "$volume" root 1M 2M >/dev/null 2>&1; then fail "$volume: root was limited"; fi
  if keelhouse quota set "$volume" nobody-here 1M 2M >/dev/null 2>&1; then fail "$volume: nobody was limited"; fi
}

# loop_volume TYPE FOLDER MOUNT_OPTIONS [MKFS_ARGUMENTS...]
loop_volume() {
  local type=$1 folder=$2 options=$3
  shift 3
  mkdir -p "$folder"
  truncate -s 400M "/var/tmp/$(basename "$folder").img"
  "mkfs.$type" -q "$@" "/var/tmp/$(basename "$folder").img"
  mount -o "loop$options" "/var/tmp/$(basename "$folder").img" "$folder"
}

test_builtin_ext4() {
  make_volume_of_alice /vol
  setquota -u alice 0 1024 0 0 /vol
  expect "true 0" "$(is_enabled /vol)" "/vol as it was mounted"
  switch_and_look /vol
  compare_with_repquota /vol
  expect 1048576 "$(settings /vol | jq '.usr[] | select(.name == "alice") | .limit')" "alice's limit"
  expect 0 "$(settings /vol | jq '.usr[] | select(.name == "alice") | .free')" "what is left to alice"
  limits_of_both /vol
}

test_xfs() {
  loop_volume xfs /xfs ,uquota,gquota
  make_volume_of_alice /xfs
  xfs_quota -x -c 'limit -u bhard=1m alice' /xfs
  expect "true 0" "$(is_enabled /xfs)" "/xfs as it was mounted"
  switch_and_look /xfs
  compare_with_repquota /xfs
  limits_of_both /xfs
}

# Quotas that the kernel keeps in aquota.user.
test_ext4_with_a_file() {
  loop_volume ext4 /old ,usrquota -O ^quota
  make_volume_of_alice /old
  quotacheck -cum /old
  setquota -u alice 0 1024 0 0 /old
  expect "false 0" "$(is_enabled /old)" "/old as it was mounted"
  switch_and_look /old
  compare_with_repquota /old
}

# A checker that was started for a volume whose switch was refused ends without a file.
no_checker() { ! pgrep -x quotascan >/dev/null; }

# refused_by_keelhouse VOLUME WHY: nothing is there afterwards that was not there before.
refused_by_keelhouse() {
  local before after said
  eventually no_checker || fail "$1 ($2): a checker does not end"
  before=$(ls -A "$1")
  if said=$(keelhouse quota on "$1" 2>&1); then fail "$1 ($2): switched on: $said"; fi
  [[ $said == *CANNOT_SET_QUOTA_STATE_ERR* ]] || fail "$1 ($2): $said"
  sleep 1
  eventually no_checker || fail "$1 ($2): the checker does not end"
  after=$(ls -A "$1")
  expect "$before" "$after" "$1 ($2): what keelhouse's refused switch leaves"
}

# refused VOLUME WHY
refused() {
  refused_by_keelhouse "$@"
  expect "false 0" "$(is_enabled "$1")" "$1 ($2)"
  expect 100080 "$(switch "$1" true)" "$1 ($2): switching on"
  [ -e "$1/.quota.ops.user" ] || fail "$1 ($2): no marker"
  expect "false 0" "$(is_enabled "$1")" "$1 ($2) after the refusal"
  refused_by_keelhouse "$@"
}

test_volumes_without_quotas() {
  loop_volume ext4 /plain "" -O ^quota
  refused /plain "without quotas"
  loop_volume xfs /xfs_plain ""
  refused /xfs_plain "mounted without quotas"
  mkdir /vol/folder
  expect 100080 "$(switch /vol/folder true)" "a folder that is no volume root"
  [ ! -e /vol/folder/.quota.user ] || fail "a quota file in a folder that is no volume root"
  # Another user's file is not taken for the kernel's.
  loop_volume ext4 /trap ,usrquota -O ^quota
  quotacheck -cum /trap
  chown alice /trap/aquota.user
  expect 100080 "$(switch /trap true)" "a file of another user"
}

test_restart_and_family() {
  systemctl restart paddockd
  expect "true 0" "$(is_enabled /vol)" "/vol after a restart"
  [ "$(settings /vol | jq '.usr | length')" -gt 0 ] || fail "/vol lists nobody after a restart"
  sed -i 's/^#ufs_family = .*/ufs_family = ["xfs"]/' /etc/paddock/paddockd.toml
  systemctl restart paddockd
  expect '[]' "$(settings /vol | jq -c .usr)" "ext4 outside the family"
  [ "$(settings /xfs | jq '.usr | length')" -gt 0 ] || fail "XFS inside the family lists nobody"
}

useradd alice
useradd bob
install_and_start
test_builtin_ext4
test_xfs
test_ext4_with_a_file
test_volumes_without_quotas
test_restart_and_family
systemctl stop paddockd
expect inactive "$(systemctl is-active paddockd || true)" "the daemon's unit after its stop"
echo "quotas of ext4 and XFS were switched, enforced and listed"
