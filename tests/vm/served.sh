#!/usr/bin/env bash
# What keelhouse says of a share point is what clients of the kernel's NFS server and of smbd find, with the
# servers stopped and running under systemd.
cd -- "$(dirname -- "$0")"
# shellcheck source=tests/vm/guest_lib.sh
. ./guest_lib.sh

smb_stopped="SMB: not served: smbd is stopped (systemctl start smbd)"
nfs_stopped="NFS: not served: nfs-server is stopped (systemctl start nfs-server)"
not_included="SMB: not served: /etc/samba/smb.conf does not include /etc/samba/paddock-shares.conf (add the line: $include_line)"

over_smb() {
  timeout 60 mount -t cifs "//127.0.0.1/$1" /mnt/smb -o "username=anna,password=$password,vers=3.1.1" 2>/dev/null &&
    umount /mnt/smb
}

# over_nfs VERSION FOLDER
over_nfs() {
  timeout 60 mount -t nfs -o "vers=$1,nolock,proto=tcp,timeo=50,retrans=1,retry=0" "127.0.0.1:$2" /mnt/nfs 2>/dev/null &&
    umount /mnt/nfs
}

# said WORD...: what keelhouse writes to standard error.
said() { { keelhouse "$@" >/dev/null; } 2>&1 || true; }

# again: the sentence after a change that changes nothing.
again() { said share set /vol/photos --no-ftp; }

# settled SENTENCE: it is that one, at the latest when the servers have come to it.
settled() {
  local tries=0
  until [ "$(again)" = "$1" ]; do
    tries=$((tries + 1))
    [ "$tries" -lt 20 ] || fail "wanted \"$1\", keelhouse says \"$(again)\""
    sleep 1
  done
}

share_while_both_are_stopped() {
  mkdir -p /vol/photos
  chmod 755 /vol/photos
  expect "$not_included, $nfs_stopped" \
    "$(said share add /vol/photos --smb-name Photos --no-vsp --no-ftp --nfs '127.0.0.1(rw,no_subtree_check,fsid=1)')" \
    "the sentence while both servers are stopped"
  include_shares
  expect "$smb_stopped, $nfs_stopped" "$(again)" "the sentence once the file is included"
  if over_smb Photos || over_nfs 4.2 /vol/photos; then fail "a stopped server serves"; fi
}

serve_over_smb_alone() {
  systemctl start smbd
  settled "Shared over SMB as Photos, $nfs_stopped"
  over_smb Photos || fail "Photos cannot be mounted over SMB"
  if over_nfs 4.2 /vol/photos; then fail "a stopped server serves"; fi
  local status=0
  keelhouse share set /vol/photos --no-ftp --require-served >/dev/null 2>&1 || status=$?
  expect 5 "$status" "the exit status with --require-served"
}

serve_over_both() {
  systemctl start nfs-server
  settled "Shared over SMB as Photos, NFS to 127.0.0.1(rw)"
  over_smb Photos || fail "Photos cannot be mounted over SMB"
  over_nfs 4.2 /vol/photos || fail "the folder cannot be mounted over NFS 4.2"
  keelhouse share set /vol/photos --no-ftp --require-served >/dev/null 2>&1 || fail "what is served ends with $?"
  journalctl -u paddockd | grep -q 'paddock_sharing: /vol/photos: Shared over SMB as Photos, NFS to 127.0.0.1(rw)' ||
    fail "the daemon's log does not say it"
}

# Who may view asks as root does.
ask_as_a_viewer() {
  useradd --no-create-home --groups paddock-view vera
  expect "$(keelhouse share list --check)" "$(runuser -u vera -- keelhouse share list --check)" "what a viewer is told"
}

stop_mountd() {
  kill "$(pidof rpc.mountd)"
  settled "Shared over SMB as Photos, NFS: not served: rpc.mountd, which the server asks, is stopped (systemctl restart nfs-server)"
  if over_nfs 3 /vol/photos; then fail "NFS 3 needs no mountd: the sentence is wrong"; fi
  systemctl restart nfs-mountd nfs-server
  settled "Shared over SMB as Photos, NFS to 127.0.0.1(rw)"
}

refuse_what_cannot_be_served() {
  local before
  before=$(cat /etc/exports)
  [[ $(said share set /vol/photos --nfs 'nowhere.invalid(rw)') == *"the host nowhere.invalid does not resolve: "* ]] ||
    fail "a host that does not resolve is not refused"
  [[ $(said share set /vol/photos --nfs '*(readwrite)') == *"exportfs does not know the option \"readwrite\" of *"* ]] ||
    fail "an unknown option is not refused"
  expect "$before" "$(cat /etc/exports)" "the exports file after the refusals"
}

share_what_the_kernel_cannot_export() {
  mkdir -p /run/over/{lower,upper,scratch} /vol/over
  mount -t tmpfs none /run/over
  mkdir -p /run/over/{lower,upper,scratch}
  mount -t overlay overlay -o lowerdir=/run/over/lower,upperdir=/run/over/upper,workdir=/run/over/scratch /vol/over
  local found
  found=$(said share add /vol/over --no-smb --no-vsp --no-ftp --nfs '127.0.0.1(rw,no_subtree_check,fsid=2)')
  expect "NFS: not served: its file system cannot be exported" "$(head -n 1 <<<"$found")" "the sentence of an overlay"
  [[ $found == *"exportfs: /vol/over does not support NFS export"* ]] || fail "what exportfs said is not told: $found"
  if over_nfs 3 /vol/over; then fail "an overlay can be mounted"; fi
  keelhouse share remove /vol/over >/dev/null 2>&1
}

lose_the_folder() {
  mv /vol/photos /vol/elsewhere
  keelhouse share list --check | grep -q '^/vol/photos  *gone  *not served  *not served ' ||
    fail "a folder that is gone: $(keelhouse share list --check)"
  if over_smb Photos; then fail "a folder that is gone is served"; fi
  mv /vol/elsewhere /vol/photos
}

unshare() {
  expect "" "$(said share remove /vol/photos)" "what is said of a folder that nobody serves any more"
  if over_nfs 4.2 /vol/photos; then fail "the folder can be mounted after it was unshared"; fi
}

mkdir -p /mnt/smb /mnt/nfs
install_and_start
systemctl stop smbd nfs-server
configure_samba
add_samba_user anna --no-create-home --shell /usr/sbin/nologin
share_while_both_are_stopped
serve_over_smb_alone
serve_over_both
ask_as_a_viewer
stop_mountd
refuse_what_cannot_be_served
share_what_the_kernel_cannot_export
lose_the_folder
unshare
systemctl stop smbd nfs-server paddockd
echo "what was said of SMB and NFS was what their clients found"
