#!/usr/bin/env bash
# The supervisor example from outside: its command line, its configuration messages, how it restarts and ends commands,
# what it says of that, and its report.
# Usage: supervisor_test.sh SUPERVISOR
set -u
supervisor=$1
work=$(mktemp -d)
running=
trap '[[ -n $running ]] && kill -9 "$running"; rm -rf "$work"' EXIT
faults=0

fail() {
  printf 'FAILED %s\n' "$*"
  faults=$((faults + 1))
}

# expect WHAT STATUS TEXT COMMAND... runs COMMAND; its exit status and a part of its output must be as given.
expect() {
  local what=$1 status=$2 text=$3 output
  shift 3
  output=$(timeout 60 "$@" 2>&1)
  local actual=$?
  [[ $actual -eq $status && $output == *"$text"* ]] || fail "$what: status $actual, output: $output"
}

# config LINE... writes a configuration.
config() { printf '%s\n' "$@" >"$work/s.ini"; }

# start: runs the supervisor with it in the background, as `running`, and its output into a file.
start() {
  "$supervisor" -c "$work/s.ini" >"$work/out" 2>&1 &
  running=$!
}

# await TEXT: until it is in that file, within a time that only a hanging program needs.
await() {
  local tries
  for ((tries = 0; tries < 600; ++tries)); do
    grep -qsF -- "$1" "$work/out" && return
    sleep 0.05
  done
  fail "no '$1' in: $(cat "$work/out")"
}

# finish: waits for the supervisor, which must end with success.
finish() {
  wait "$running" || fail "the supervisor ended with status $?"
  running=
}

expect "no configuration named" 2 "supervisor: Option --config is required. Try --help." "$supervisor"
expect "option without a value" 2 "Option --config requires a value." "$supervisor" --config
expect "unknown option" 2 "Option --bad is not defined." "$supervisor" --bad
expect "argument of no option" 2 "'s.ini' belongs to no option." "$supervisor" -v s.ini
expect "empty argument" 2 "An argument is empty." "$supervisor" ""
expect "missing file" 1 "$work/none: cannot be read" "$supervisor" -c "$work/none"
expect "help" 0 "--config FILE, -c FILE  the INI file" "$supervisor" --help
for key in command restart grace show blocking workdir root env buffer log_service report password_env; do
  "$supervisor" --help | grep -qE "^  ($key|restart, $key) +[a-zA-Z]" || fail "help has no line for $key"
done

while IFS='|' read -r line message; do
  config '[job]' 'command = true' "$line"
  expect "configuration '$line'" 1 "$work/s.ini: $message" "$supervisor" -c "$work/s.ini"
done <<'ROWS'
colour = red|[job] colour: there is no such key
restart = many|[job] restart: 'many' is not a whole number from 0 to 2147483647
restart = -1|[job] restart: '-1' is not a whole number from 0 to 2147483647
restart = 4294967297|[job] restart: '4294967297' is not a whole number from 0 to 2147483647
grace = 1.5|[job] grace: '1.5' is not a whole number from 0 to 2147483647
buffer = 0|[job] buffer: '0' is not a whole number from 1 to 2147483647
root = maybe|[job] root: 'maybe' is not true or false
show = some|[job] show: 'some' is not all, ends or none
[other]|[other] command: is missing
ROWS
config '[supervisor]' 'password_env = OXU_NOT_SET'
expect "missing password" 1 "[supervisor] password_env: 'OXU_NOT_SET' is not set" "$supervisor" -c "$work/s.ini"
config '[supervisor]' 'restart = 1'
expect "no command" 1 "there is no section with a command" "$supervisor" -c "$work/s.ini"

# A name that is no plain JSON string, a variable, a directory, and a command that floods.
config '[supervisor]' "report = $work/report" $'[a"\\\t\xff\xc3\xa9]' 'command = echo "$PWD $OXU_SEEN" >&2; exit 3' \
  'workdir = /' 'env = OXU_SEEN' '[flood]' 'command = seq 1 20000' 'blocking = true' 'show = none'
expect "run" 0 "| / here" env OXU_SEEN=here "$supervisor" -v -c "$work/s.ini"
expect "report of a name" 0 '{"bytes":7,"ended":"exit 3","lines":1,"name":"a\"\\\t�é","pid":' cat "$work/report"
expect "report of the flood" 0 '{"bytes":108894,"ended":"exit 0","lines":20000,"name":"flood","pid":' cat "$work/report"
expect "report that cannot be written" 1 "cannot be written to $work/none/report" \
  "$supervisor" -c "$work/s.ini" --report "$work/none/report"

# A console that is slower than the output, a grandchild that goes on writing, and one that stays behind.
config '[flood]' 'command = seq 1 3000' 'blocking = true' '[tick]' 'command = (while :; do echo t; sleep 0.01; done) &'
expect "slow console" 0 "| 3000" bash -c "'$supervisor' -c '$work/s.ini' | (sleep 2; cat)"

# Each way to end, by itself and by a signal; the group of each has ended then, too.
config '[supervisor]' 'grace = 30' \
  '[exits]' 'command = exit 3' 'restart = 2' \
  '[crashes]' 'command = kill -SEGV $$' \
  '[leaves]' 'command = (trap "" TERM; sleep 1000) & sleep 0.3' 'grace = 1' \
  '[reads]' 'command = cat; echo end of input' \
  '[counts]' 'command = seq --format "line %g" 300' 'show = ends' \
  '[gentle]' 'command = trap "echo saved; exit 4" TERM; while :; do sleep 0.1; done' \
  '[family]' \
  "command = echo \$\$ >$work/pid; (trap 'sleep 1; echo late; exit' TERM; while :; do sleep 0.1; done) & sleep 1000" \
  '[stubborn]' 'command = trap "" TERM; sleep 1000' 'grace = 1'
SECONDS=0
start
await "exits ended with exit 3, and is not started again"
# The pauses before the starts take 1 and 2 seconds.
((SECONDS >= 2)) || fail "restarts came after $SECONDS seconds"
await "leaves ended"
kill -TERM "$running"
finish
while IFS= read -r line; do
  grep -qE "\]  $line\$" "$work/out" || fail "no '$line' in: $(cat "$work/out")"
done <<'ROWS'
exits ended with exit 3, starting it again \(1 of 2\)
exits ended with exit 3, starting it again \(2 of 2\)
crashes ended with SIGSEGV
leaves ended with exit 0, what it left behind took SIGKILL
reads    \| end of input
counts   \| line 1
counts   \| \(298 more lines\)
counts   \| line 300
ending what still runs: family, gentle, stubborn
gentle   \| saved
gentle ended with exit 4, SIGTERM was enough
family   \| late
family ended with SIGTERM, SIGTERM was enough
stubborn ended with SIGKILL, it took SIGKILL
ROWS
(($(grep -c "counts   |" "$work/out") == 3)) || fail "not only the ends are shown"
grep -q '"ended":"SIGKILL","lines":0,"name":"stubborn"' "$work/out" || fail "the report after a signal"
alive=$(cat /proc/[0-9]*/stat 2>/dev/null | awk -v group="$(cat "$work/pid")" '$5 == group')
[[ -z $alive ]] || fail "processes left behind: $alive"

# A second signal ends what would have much time left, and one that comes twice counts once.
config '[stubborn]' 'command = trap "" TERM; echo ready; sleep 1000' 'grace = 1000'
start
await "| ready"
kill -INT "$running" && kill -INT "$running"
await "ending what still runs: stubborn"
sleep 1
grep -q killing "$work/out" && fail "a signal that came twice has killed"
kill -TERM "$running"
finish
await "stubborn ended with SIGKILL, it took SIGKILL"

# Colours are for terminals.
config '[job]' 'command = echo hello'
[[ $("$supervisor" -c "$work/s.ini") == *$'\e['* ]] && fail "colours in a pipe"
if command -v script >/dev/null; then
  on_terminal=(script -qec "'$supervisor' -c '$work/s.ini'" /dev/null)
  expect "colours on a terminal" 0 $'\e[0m' env -u NO_COLOR "${on_terminal[@]}"
  [[ $(NO_COLOR=1 "${on_terminal[@]}" </dev/null) == *$'\e['* ]] && fail "colours in spite of NO_COLOR"
fi

((faults == 0)) && echo "all as expected"
exit "$faults"
