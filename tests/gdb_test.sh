#!/usr/bin/env bash
# What gdb's printers show of a program's values. Usage: gdb_test.sh PROGRAM PRINTERS COMMANDS
set -u
program=$1 printers=$2 commands=$3

# Nothing of the user's, and no look-up of debug information over the network.
run_gdb() { env -u DEBUGINFOD_URLS HOME=/nonexistent timeout 60 gdb -nx -batch "$@" </dev/null 2>&1; }

[[ $(run_gdb -ex 'python print("Python", 1)') == "Python 1" ]] || { echo "skipped: no gdb with Python"; exit 77; }
output=$(run_gdb -ex "source $printers" -x "$commands" "$program")
if grep -i 'ptrace: \|trace the inferior' <<<"$output"; then
  echo "skipped: this process may not trace another"
  exit 77
fi
# A line that is printed several times in a row counts once: there are many of "cannot be read".
diff <(sed -n 's/^#= //p' "$commands") <(sed '1,/^ready$/d; s/^\$[0-9]* = //' <<<"$output" | uniq) && exit
echo "$output"
exit 1
