#!/usr/bin/env bash
# What gdb's printers show of a program's values. Usage: gdb_test.sh PROGRAM PRINTERS COMMANDS
set -u
program=$1 printers=$2 commands=$3

skip() { echo "skipped: $*"; exit 77; }

command -v gdb >/dev/null || skip "gdb is not installed"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Nothing of the user's, and no look-up of debug information over the network.
run_gdb() { env -u DEBUGINFOD_URLS HOME="$work" timeout 60 gdb -nx -batch "$@" </dev/null 2>&1; }

[[ $(run_gdb -ex 'python print("Python", 1)') == "Python 1" ]] || skip "this gdb has no Python"
output=$(run_gdb -ex "source $printers" -x "$commands" "$program")
[[ $output == *$'\nready\n'* ]] || {
  grep -i 'ptrace: \|trace the inferior' <<<"$output" && skip "this process may not trace another"
  echo "$output"
  exit 1
}
mapfile -t lines < <(sed '1,/^ready$/d; s/^\$[0-9]* = //' <<<"$output")
mapfile -t expected < <(sed -n 's/^#= //p' "$commands")

faults=0
for i in "${!expected[@]}"; do
  [[ ${lines[i]-} =~ ^${expected[i]}$ ]] && continue
  printf 'FAILED, expected: %s\n        printed:  %s\n' "${expected[i]}" "${lines[i]-}"
  faults=$((faults + 1))
done
printf '%s\n' "${lines[@]:${#expected[@]}}" >"$work/rest"
grep -n 'Python\|Error' "$work/rest" && faults=$((faults + 1))
((faults == 0)) && echo "${#expected[@]} lines as expected"
exit "$((faults != 0))"
