# shellcheck shell=bash
# Limits are the kernel's: what is printed is what repquota prints, and what stops a user.
: "${output=}"

# repquota's line of a user: KiB in use, soft and hard limit.
kept_of() { repquota -u /vol | awk -v name="$1" '$1 == name { print $3, $4, $5 }'; }
limits_of() { kept_of "$1" | cut -d ' ' -f 2-; }

# What keelhouse lists of a user, in the same way.
listed_of() {
  keelhouse --json quota show /vol | jq -r --arg name "$1" '.kernel.users[] | select(.name == $name) |
    "\(.usedBytes / 1024 | ceil) \(.softBytes / 1024) \(.hardBytes / 1024)"'
}

write_past_the_limit() {
  local refusal
  if refusal=$(at_home anna dd if=/dev/zero of=/vol/own/file bs=64k count=64 conv=fsync 2>&1); then
    fail "anna writes past her limit"
  fi
  [[ $refusal == *"Disk quota exceeded"* ]] || fail "anna was stopped otherwise: $refusal"
}

limits() {
  mkdir -p /vol/own
  chown anna /vol/own
  does keelhouse quota on /vol
  said "Quotas of /vol are on for users and on for groups."
  expect "user quota on /vol ($(findmnt -no SOURCE /vol)) is on" \
    "$(quotaon -pu /vol | sed 's/ *$//')" "the kernel's user quotas"
  does keelhouse quota set /vol anna 1M 2M
  said "1.0 MiB  2.0 MiB"
  expect "1024 2048" "$(limits_of anna)" "anna's limits by repquota"
  write_past_the_limit
  does keelhouse quota show /vol
  said "at the hard limit"
  expect "2048 1024 2048" "$(kept_of anna)" "what anna uses by repquota"
  expect "$(kept_of anna)" "$(listed_of anna)" "what keelhouse lists of anna"
  rm /vol/own/file
  does keelhouse quota show /vol
  [[ $output != *"hard limit"* ]] || fail "a remark that is stale: $output"
  does keelhouse quota set /vol anna none none
  expect "0 0" "$(limits_of anna)" "anna's limits by repquota, taken away"
  at_home anna dd if=/dev/zero of=/vol/own/file bs=64k count=64 conv=fsync 2>/dev/null ||
    fail "anna is stopped without a limit"
  expect "$(kept_of anna)" "$(listed_of anna)" "what keelhouse lists of anna without limits"
}
