#!/usr/bin/env bash
# Root privilege through the system's own sudo: makes a user with a password and a sudoers entry, and lets that user
# run the supervisor example with commands that want root. Since it changes the machine for a few seconds, it wants
# OXU_TEST_SUDO=1. Ends with 77, which is a skip, without that and where such a user is impossible.
# Usage: sudo_test.sh SUPERVISOR
set -u
[[ ${OXU_TEST_SUDO:-} == 1 ]] ||
  { echo "skipped: it makes a user with a sudoers entry for some seconds, which OXU_TEST_SUDO=1 allows"; exit 77; }
((EUID == 0)) || { echo "skipped: only root can make the user that this test needs"; exit 77; }
for tool in sudo useradd chpasswd setpriv setsid; do
  command -v "$tool" >/dev/null || { echo "skipped: there is no $tool"; exit 77; }
done

user=oxutest$$
password="$(head -c 18 /dev/urandom | base64) x" # with a blank
work=$(mktemp -d)
export user work
cleanup() {
  rm -rf "$work" "/etc/sudoers.d/$user" "/run/sudo/ts/$user"
  userdel --force "$user" >/dev/null 2>&1
}
export -f cleanup
trap cleanup EXIT
# Cleans up as well where this script is killed: a process that is nobody's child, in a session of its own.
(setsid bash -c "tail --pid=$$ --sleep-interval=0.2 -f /dev/null; cleanup" </dev/null >/dev/null 2>&1 &)
useradd --no-create-home --shell /bin/bash "$user" && chpasswd <<<"$user:$password" &&
  (umask 337 && echo "$user ALL=(ALL) ALL" >"/etc/sudoers.d/$user") && visudo -c >/dev/null ||
  { echo "skipped: no user with a sudoers entry can be made here"; exit 77; }

# The library that the supervisor uses stands beside it or above it, where the user may not look.
cp "$1" "$(dirname "$1")"/../libOxuTool.so* "$work" 2>/dev/null
chmod 755 "$work"
cat >"$work/s.ini" <<'INI'
[supervisor]
password_env = OXU_PASSWORD
[who]
command = id -u; printf '<%s>\n' $OXU_KEPT
env = OXU_KEPT
root = true
INI
seconds=$((1000000 + $$)) # tells this run's command from that of another
cat >"$work/long.ini" <<INI
[supervisor]
password_env = OXU_PASSWORD
grace = 1
[stubborn]
command = $work/stubborn
root = true
[gentle]
command = $work/gentle
root = true
grace = 30
[flood]
command = seq 1 50000
root = true
blocking = true
show = none
INI
printf '#!/bin/bash\ntrap "" TERM\nsleep %s\n' $seconds >"$work/stubborn"
printf '#!/bin/bash\ntrap "echo saved; exit" TERM\nwhile :; do sleep 0.1; done\n' >"$work/gentle"
chmod 755 "$work/stubborn" "$work/gentle"

# run PASSWORD FILE [TIMEOUT] runs the supervisor as the user.
run() {
  cd "$work" && LD_LIBRARY_PATH=. OXU_KEPT=kept OXU_PASSWORD=$1 timeout --preserve-status -s TERM "${3:-30}" \
    setpriv --reuid="$user" --regid="$user" --init-groups ./supervisor -c "$2" 2>&1
}

faults=0
expect() { # WHAT TEXT OUTPUT
  [[ $3 == *"$2"* ]] && return
  printf 'FAILED %s:\n%s\n' "$1" "$3"
  faults=$((faults + 1))
}
expect "a wrong password" "try again" "$(run wrong s.ini)"
output=$(run "$password" s.ini)
expect "root" "password for $user: 0" "$output"
expect "the kept environment" "who      | <kept>" "$output"
output=$(run "$password" long.ini 3)
expect "SIGTERM to root" ": saved" "$output"
expect "the end by SIGTERM" "gentle ended with SIGTERM, SIGTERM was enough" "$output"
expect "the end by SIGKILL" "stubborn ended with SIGTERM, it took SIGKILL" "$output"
expect "blocking output" '"lines":50000,"name":"flood"' "$output"
# Only what still runs counts; the root command is found by its own words.
sleep 0.5
alive=$(grep -lxz "$seconds" /proc/[0-9]*/cmdline 2>/dev/null | xargs -r grep -lxz sleep 2>/dev/null)
expect "no root command left behind" "none" "${alive:-none}"
((faults == 0)) && echo "all as expected"
exit "$faults"
