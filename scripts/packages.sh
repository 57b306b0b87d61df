# shellcheck shell=bash
# The Debian packages of each purpose, and installing those that are missing.
: "${project:?}"

# What for each of them is: the table of dependencies in README.md.
packages_of() {
  case $1 in
    build) echo g++ cmake ninja-build libmicrohttpd-dev nlohmann-json3-dev libpugixml-dev \
      libtomlplusplus-dev libcli11-dev libcurl4-openssl-dev libsqlite3-dev libutf8proc-dev libpam0g-dev libcrypt-dev libwbclient-dev nettle-dev libavahi-client-dev libldap-dev libsystemd-dev pkg-config ;;
    test) echo libgtest-dev libgmock-dev git python3 python3-jsonschema python3-samba samba samba-common-bin samba-vfs-modules smbclient winbind sqlite3 curl nfs-kernel-server e2fsprogs mount avahi-daemon avahi-utils dbus-daemon dbus-bin iproute2 util-linux libnss-extrausers slapd ldap-utils openssl strace mmdebstrap logrotate ;;
    vm) echo qemu-system-x86 mmdebstrap busybox-static e2fsprogs python3 ;;
    demo) echo curl sqlite3 attr acl ;;
    bench) echo samba-common-bin nfs-kernel-server acl e2fsprogs mount slapd python3 ;;
    lint) echo clang clang-format clang-tidy g++ git libclang-dev llvm-dev libgtest-dev libgmock-dev shellcheck python3 ;;
    fuzz) echo clang libclang-rt-14-dev ;;
    fresh) echo mmdebstrap git ;;
    *) die "no packages are listed for \"$1\"" ;;
  esac
}

is_installed() {
  [ "$(dpkg-query -W -f '${db:Status-Status}' -- "$1" 2>/dev/null)" = installed ]
}

apt_install() {
  quietly "$project/build/log/apt-install.log" env DEBIAN_FRONTEND=noninteractive \
    apt-get -o DPkg::Lock::Timeout=300 install -y --no-install-recommends --no-remove -- "$@"
}

apt_update() { quietly "$project/build/log/apt-update.log" apt-get -o DPkg::Lock::Timeout=300 update; }

apt_has_lists() { [ -n "$(find /var/lib/apt/lists -maxdepth 1 -name '*_Packages*' -print -quit 2>/dev/null)" ]; }

# The tests run an NFS server's tools, an smbd, a winbindd, a slapd and an avahi-daemon of their own, never
# the servers of this machine: nothing that a package brings is started or enabled. Calls its arguments
# with the start of services refused.
without_services() {
  local policy=/usr/sbin/policy-rc.d status=0 made=
  if [ ! -e "$policy" ]; then
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod 755 "$policy"
    made=1
  fi
  "$@" || status=$?
  [ -z "$made" ] || rm -f "$policy"
  return "$status"
}

disable_services_of() {
  local unit package
  [ -d /run/systemd/system ] || return 0
  for package in "$@"; do
    case $package in
      avahi-daemon) systemctl disable --quiet avahi-daemon.service avahi-daemon.socket 2>/dev/null || true ;;
      slapd) systemctl disable --quiet slapd.service 2>/dev/null || true ;;
      winbind) systemctl disable --quiet winbind.service 2>/dev/null || true ;;
      samba)
        for unit in smbd.service nmbd.service samba-ad-dc.service; do
          systemctl disable --quiet "$unit" 2>/dev/null || true
        done
        ;;
      nfs-kernel-server)
        for unit in nfs-server.service nfs-client.target rpcbind.service rpcbind.socket; do
          systemctl disable --quiet "$unit" 2>/dev/null || true
        done
        ;;
    esac
  done
}

# need_packages PURPOSE...: all packages of these purposes are installed, or the run ends.
need_packages() {
  local purpose package missing=()
  command -v dpkg-query >/dev/null || die "this is not a Debian system: dpkg-query is missing"
  for purpose in "$@"; do
    for package in $(packages_of "$purpose"); do
      is_installed "$package" || [[ " ${missing[*]-} " == *" $package "* ]] || missing+=("$package")
    done
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  [ "$(id -u)" -eq 0 ] || die "packages are missing, and installing them takes root. As root:
    apt-get install --no-install-recommends ${missing[*]}"
  say "installing ${missing[*]}"
  apt_has_lists || apt_update || die "apt-get cannot fetch its package lists"
  without_services apt_install "${missing[@]}" 2>/dev/null ||
    { apt_update && without_services apt_install "${missing[@]}"; } ||
    die "apt-get cannot install ${missing[*]}"
  disable_services_of "${missing[@]}"
}
