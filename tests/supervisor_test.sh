#!/usr/bin/env bash
# The supervisor example from outside: its command line, its configuration messages, its restarts and its report.
# Usage: supervisor_test.sh SUPERVISOR
set -u
supervisor=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
faults=0

# expect WHAT STATUS TEXT COMMAND... runs COMMAND; its exit status and a part of its output must be as given.
expect() {
  local what=$1 status=$2 text=$3 output
  shift 3
  output=$(timeout 60 "$@" 2>&1)
  local actual=$?
  [[ $actual -eq $status && $output == *"$text"* ]] && return
  printf 'FAILED %s: status %s, output:\n%s\n' "$what" "$actual" "$output"
  faults=$((faults + 1))
}

# config LINE... writes a configuration.
config() { printf '%s\n' "$@" >"$work/s.ini"; }

expect "no configuration named" 2 "Option --config is required." "$supervisor"
expect "usage after a fault" 2 "Usage:  [options]" "$supervisor" --config
expect "unknown option" 2 "Option --bad is not defined." "$supervisor" --bad
expect "help" 0 "  -config <value>  the INI file" "$supervisor" --help
expect "missing file" 1 "$work/none: cannot be read" "$supervisor" -c "$work/none"

while IFS='|' read -r line message; do
  config '[job]' 'command = true' "$line"
  expect "configuration '$line'" 1 "$work/s.ini: $message" "$supervisor" -c "$work/s.ini"
done <<'ROWS'
colour = red|[job] colour: there is no such key
restart = many|[job] restart: 'many' is not a whole number from 0 to 2147483647
restart = -1|[job] restart: '-1' is not a whole number from 0 to 2147483647
restart = 4294967297|[job] restart: '4294967297' is not a whole number from 0 to 2147483647
buffer = 0|[job] buffer: '0' is not a whole number from 1 to 2147483647
root = maybe|[job] root: 'maybe' is not true or false
[other]|[other] command: is missing
ROWS
config '[supervisor]' 'password_env = OXU_NOT_SET'
expect "missing password" 1 "[supervisor] password_env: 'OXU_NOT_SET' is not set" "$supervisor" -c "$work/s.ini"
config '[supervisor]' 'restart = 1'
expect "no command" 1 "there is no section with a command" "$supervisor" -c "$work/s.ini"

# A name that is no plain JSON string, restarts, a variable, a directory, and a command that floods.
config '[supervisor]' "report = $work/report" $'[a"\\\t\xff\xc3\xa9]' 'command = echo "$PWD $OXU_SEEN" >&2; kill -9 $$' \
  'workdir = /' 'env = OXU_SEEN' 'restart = 2' '[flood]' 'command = seq 1 20000' 'blocking = true'
expect "run" 0 "| / here" env OXU_SEEN=here "$supervisor" -v -c "$work/s.ini"
expect "report of the restarts" 0 '{"bytes":21,"lines":3,"name":"a\"\\\u0009\ufffdé","pid":' cat "$work/report"
expect "report of the flood" 0 '{"bytes":108894,"lines":20000,"name":"flood","pid":' cat "$work/report"
expect "report that cannot be written" 1 "cannot be written to $work/none/report" \
  "$supervisor" -c "$work/s.ini" --report "$work/none/report"

# A console that is slower than the output, a grandchild that goes on writing, and one that stays behind.
config '[flood]' 'command = seq 1 3000' 'blocking = true' '[tick]' 'command = (while :; do echo t; sleep 0.01; done) &'
expect "slow console" 0 "| 3000" bash -c "'$supervisor' -c '$work/s.ini' | (sleep 2; cat)"

# A signal ends everything, grandchildren included, and the report still comes.
config '[long]' "command = echo \$\$ > $work/pid; sleep 1000 & wait"
expect "stopped by a signal" 0 '{"bytes":0,"lines":0,"name":"long"' timeout --preserve-status -s TERM 2 "$supervisor" -c "$work/s.ini"
# Those that wait for their new parent to collect them are gone for us.
alive=$(cat /proc/[0-9]*/stat 2>/dev/null | awk -v group="$(cat "$work/pid")" '$5 == group && $3 != "Z"')
expect "its process group" 0 "" test -z "$alive"

((faults == 0)) && echo "all as expected"
exit "$faults"
