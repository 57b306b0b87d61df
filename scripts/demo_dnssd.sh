# shellcheck shell=bash disable=SC2016,SC2154
# (The command lines that are shown are in single quotes, and expand when they run; "work", "T" and the
# like are the demo's.)
# The part of ./paddock demo about DNS-SD: a D-Bus and an Avahi daemon with a network of their own, and
# what they advertise of the daemon's share points.
: "${project:?}"

can_advertise() {
  local program
  [ "$(id -u)" -eq 0 ] && unshare --mount --net true 2>/dev/null || return 1
  for program in dbus-daemon avahi-daemon avahi-browse ip; do
    command -v "$program" >/dev/null || return 1
  done
}

write_bus_configuration() {
  cat >"$work/network/bus.conf" <<END
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=$work/network/bus</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="root"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
END
}

# The daemon's own pid file is in /run, and nothing of it is to be on this machine's network.
run_avahi() {
  printf '[server]\nhost-name=demo-server\nuse-ipv6=no\n[wide-area]\nenable-wide-area=no\n' >"$work/network/avahi.conf"
  exec unshare --mount --propagation private --net sh -c '
    mount -t tmpfs tmpfs /run && ip link set lo up &&
      exec avahi-daemon --file "$1" --no-drop-root --no-chroot --no-rlimits
  ' sh "$work/network/avahi.conf" >"$work/network/avahi.log" 2>&1 </dev/null
}

# Before the daemon starts, when the programs for it are there; $network then says so.
make_network() {
  can_advertise || return 0
  mkdir "$work/network"
  write_bus_configuration
  export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$work/network/bus
  dbus-daemon --config-file="$work/network/bus.conf" --nofork --nopidfile --print-address \
    >"$work/network/address" 2>"$work/network/bus.log" </dev/null &
  bus=$!
  wait_until "there is no D-Bus" test -s "$work/network/address"
  run_avahi &
  avahi=$!
  sed -i '/^\[dnssd\]/,/^\[/ s/^enabled = false/enabled = true/' "$T/etc/paddock/paddockd.toml"
  network=own
}

drop_network() {
  local pid
  for pid in ${avahi:-} ${bus:-}; do
    kill -TERM "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  avahi='' bus='' network=''
}

# wait_until WHAT-IF-NOT COMMAND...: until the command succeeds.
wait_until() {
  local what=$1 tries=0
  shift
  until "$@"; do
    tries=$((tries + 1))
    [ "$tries" -lt 100 ] || demo_fail "$what"
    sleep 0.1
  done
}

browse() { timeout 10 avahi-browse --resolve --parsable --no-db-lookup --terminate _adisk._tcp; }

is_advertised() { browse 2>/dev/null | grep '^=' | grep -qF "$1"; }
is_not_advertised() { ! is_advertised "$1"; }

demo_dns_sd() {
  demo_heading "Offer a folder for backups: the network sees it over DNS-SD"
  if [ -z "$network" ]; then
    leave_out "it takes root, and the packages dbus-daemon, avahi-daemon, avahi-utils and iproute2"
    return
  fi
  # A folder of its own: the backup group gets an entry in its list.
  # shellcheck disable=SC2034
  local B=$work/Backups
  mkdir -- "$B"
  step 'keelhouse share add "$B" --backup'
  expect_status 0
  wait_until "Avahi does not see the backup share point" is_advertised "adVN=Backups"
  step 'avahi-browse --resolve --parsable --no-db-lookup --terminate _adisk._tcp'
  expect_text "demo-server.local"
  expect_text ";311;"
  expect_text "dk0=adVN=Backups,adVF=0xa1,adVU="
  step 'keelhouse share remove "$B"'
  expect_status 0
  wait_until "Avahi still sees the backup share point" is_not_advertised "adVN=Backups"
  step 'avahi-browse --resolve --parsable --no-db-lookup --terminate _adisk._tcp'
  expect_no_text "adVN"
}
