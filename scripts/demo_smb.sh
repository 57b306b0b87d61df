# shellcheck shell=bash disable=SC2016,SC2154
# (The command lines that are shown are in single quotes, and expand when they run; "work" is the
# demo's.)
# The part of ./paddock demo that an SMB server plays: one of the demo's own, in namespaces that end
# with it, with its state in the demo's folder, on a free port of the loopback interface.
: "${project:?}"

smb_password=shown-in-a-demo

has_smb_server() {
  local program
  for program in smbd smbclient smbpasswd smbcontrol; do
    PATH=$PATH:/usr/sbin command -v "$program" >/dev/null || return 1
  done
  [ "$(id -u)" -eq 0 ] && unshare --mount --pid --fork --mount-proc true 2>/dev/null
}

answers_on_port() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

free_port() {
  local port=44500
  while answers_on_port "$port"; do port=$((port + 1)); done
  printf '%s\n' "$port"
}

# An smb.conf as anybody has it, but for the folders; its last line is what makes it serve share points.
write_smb_configuration() {
  local name
  {
    printf '[global]\nserver role = standalone\nbind interfaces only = yes\ninterfaces = lo\n'
    printf 'disable netbios = yes\nload printers = no\ndisable spoolss = yes\nsmb ports = %s\n' "$smb_port"
    for name in private lock state cache pid ncalrpc; do
      mkdir -m 755 "$work/smb/$name"
    done
    printf 'private dir = %s/private\nlock directory = %s/lock\nstate directory = %s/state\n' "$work/smb"{,,}
    printf 'cache directory = %s/cache\npid directory = %s/pid\nncalrpc dir = %s/ncalrpc\n' "$work/smb"{,,}
    printf 'log file = %s/log\ninclude = %s/etc/samba/paddock-shares.conf\n' "$work/smb" "$T"
  } >"$work/smb/smb.conf"
}

# The tree's own smbcontrol, which reaches the server where it runs.
install_smbcontrol() {
  mkdir -p "$T/usr/bin"
  printf '#!/bin/sh\nexec nsenter --target %s --mount --pid smbcontrol -s %s/smb/smb.conf "$@"\n' \
    "$1" "$work" >"$T/usr/bin/smbcontrol"
  chmod 755 "$T/usr/bin/smbcontrol"
}

start_smb_server() {
  local tries=0
  mkdir -m 755 "$work/smb"
  smb_port=$(free_port)
  write_smb_configuration
  printf '%s\n%s\n' "$smb_password" "$smb_password" |
    smbpasswd -c "$work/smb/smb.conf" -a -s root >/dev/null || demo_fail "smbpasswd makes no account"
  (umask 077 && printf 'username = root\npassword = %s\n' "$smb_password" >"$work/smb/user")
  unshare --mount --propagation private --pid --fork --kill-child --mount-proc bash -c '
    PATH=$PATH:/usr/sbin
    mount -t tmpfs -o mode=755 tmpfs /run && mkdir /run/samba && exec smbd -s "$1" -F -l "$2"
  ' bash "$work/smb/smb.conf" "$work/smb" >"$work/smb/output" 2>&1 </dev/null &
  smb_starter=$!
  until answers_on_port "$smb_port"; do
    kill -0 "$smb_starter" 2>/dev/null || demo_fail "smbd ended: $(tail -n 5 "$work/smb/output")"
    tries=$((tries + 1))
    [ "$tries" -lt 300 ] || demo_fail "smbd does not answer"
    sleep 0.1
  done
  smb_server=$(tr -d ' ' <"/proc/$smb_starter/task/$smb_starter/children")
  install_smbcontrol "$smb_server"
  SMB="--authentication-file=$work/smb/user --port=$smb_port --configfile=$work/smb/smb.conf"
  export SMB
}

stop_smb_server() {
  [ -n "${smb_server:-}" ] || return 0
  # What runs in its namespaces ends with it.
  kill -TERM "$smb_server" 2>/dev/null || true
  wait "$smb_starter" || true
  smb_server=
}

# The server reads its configuration again on its own time: the step is repeated until its output has
# (`has`) or has not (`lacks`) the text, and then shown.
smb_step_until() {
  local tries=0 seen
  while :; do
    seen=$(eval "$3" 2>&1 </dev/null) || true
    case $1 in
      has) [[ $seen != *"$2"* ]] || break ;;
      lacks) [[ $seen == *"$2"* ]] || break ;;
    esac
    tries=$((tries + 1))
    [ "$tries" -lt 100 ] || break
    sleep 0.1
  done
  step "$3"
}

demo_smb_serve() {
  demo_heading "What an SMB server makes of it, whose smb.conf includes the shares"
  if ! has_smb_server; then
    leave_out "it takes root, and the packages samba and smbclient"
    return
  fi
  start_smb_server
  step 'cat $T/etc/samba/paddock-shares.conf'
  expect_status 0
  expect_text "[Summer photos]"
  smb_step_until has "Summer photos" 'smbclient $SMB --list=localhost'
  expect_status 0
  expect_text "Summer photos"
  step 'smbclient $SMB "//localhost/Summer photos" -c "get beach.txt -"'
  expect_status 0
  expect_text "a picture"
}

demo_smb_gone() {
  [ -n "${smb_server:-}" ] || return 0
  demo_heading "The SMB server was told, and has no such share any more"
  smb_step_until lacks "Photos" 'smbclient $SMB --list=localhost'
  expect_status 0
  expect_no_text "Photos"
  step 'smbclient $SMB "//localhost/Photos" -c "ls"'
  expect_status 1
  expect_text "BAD_NETWORK_NAME"
  stop_smb_server
}
