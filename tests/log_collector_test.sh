#!/usr/bin/env bash
# The supervisor and the collector together: what one captures the other prints and sums up, whatever breaks.
# Usage: log_collector_test.sh SUPERVISOR LOG_COLLECTOR REDIRECT
set -u
supervisor=$1
collector=$2
redirect=$3
work=$(mktemp -d)
collector_pid=
trap '[[ -n $collector_pid ]] && kill -9 "$collector_pid"; rm -rf "$work"' EXIT
# An address of its own: its ports are in nobody else's way.
ip=127.0.$((RANDOM % 200 + 1)).$((RANDOM % 200 + 1))
faults=0

fail() {
  printf 'FAILED %s\n' "$*"
  faults=$((faults + 1))
}

# expect WHAT FILE TEXT [LINES]: so many lines of the file must contain the text, within a time that only a hanging
# program needs.
expect() {
  local what=$1 file=$2 text=$3 lines=${4:-1} tries
  for ((tries = 0; tries < 600; ++tries)); do
    [[ $(grep -csF -- "$text" "$file") -ge $lines ]] && return
    sleep 0.05
  done
  fail "$what: no $lines times '$text' in:"
  cat "$file"
}

# start_collector PORT [OPTION]...: listens, and sets collector_pid and port.
start_collector() {
  rm -f "$work/collector" "$work/collector.err"
  "$collector" --listen "$ip:$1" "${@:2}" >"$work/collector" 2>"$work/collector.err" &
  collector_pid=$!
  local file=$work/collector
  [[ " $* " != *" --json "* ]] || file=$work/collector.err
  expect "start" "$file" "listening on $ip:"
  port=$(sed -n "s/.*listening on $ip:\([0-9]*\).*/\1/p" "$file")
}

stop_collector() {
  kill -INT "$collector_pid"
  wait "$collector_pid" || fail "the collector ended with status $?"
  collector_pid=
}

# closed_connections COUNT: waits until so many have ended.
closed_connections() { expect "connections that end" "$work/collector.err" "close socket" "$1"; }

"$collector" >/dev/null 2>&1
(($? == 2)) || fail "a collector without an address"
for address in 127.0.0.1 localhost:1 127.0.0.1:65536 127.0.0.1:1x; do
  "$collector" --listen "$address" 2>&1 | grep -qF "'$address' is not IP:PORT" || fail "address $address"
done

"$collector" --listen "$ip:1" stray 2>&1 | grep -qF "'stray' belongs to no option" || fail "a stray argument"
"$collector" --help | grep -qE '^  --listen IP:PORT +the address' || fail "help"

# Two supervisors at once: nothing is lost or mixed up.
cat >"$work/a.ini" <<'INI'
[flood]
command = seq 1 20000
blocking = true
[quo"te]
command = printf 'no line end'
INI
sed 's/flood/stream/; s/quo"te/other/' "$work/a.ini" >"$work/b.ini"
start_collector 0
"$supervisor" -c "$work/a.ini" --log-service "$ip:$port" >"$work/a" 2>&1 &
first=$!
"$supervisor" -c "$work/b.ini" --log-service "$ip:$port" >"$work/b" 2>&1 || fail "the second supervisor"
wait "$first" || fail "the first supervisor"
closed_connections 2

# A host that forwards what it prints itself.
"$redirect" "$ip" "$port" >/dev/null 2>&1 || fail "the host that redirects its output"
closed_connections 3

# A frame that comes byte by byte, one that breaks off, and bytes that are no frames.
send() { exec 3<>"/dev/tcp/$ip/$port"; for bytes in "$@"; do printf "$bytes" >&3; sleep 0.02; done; exec 3>&-; }
send '\x0a' '\0' '\0' '\0\x01' '\x02' '\0a' 'b12\n' '34' '\x0a\0\0\0\x01\x03'
send '\xff\xff\xff\xff rubbish'
# Control characters could write lines of their own.
send '\x0d\0\0\0\x01\x04\0c\xc2\x9bd\x1b[2K\t\n'
for text in 'flood    | 20000' 'stream   | 20000' 'redirect | last words' 'ab       | 12' $'c?d      | ?[2K\t' \
  'ended within a frame'; do
  expect "print" "$work/collector" "$text"
done
expect "bytes that are no frames" "$work/collector.err" "Broken frame from"
closed_connections 6
stop_collector
summary=$(tail -n 1 "$work/collector")
for entry in '"bytes":108894,"frames":[0-9]*,"lines":20000,"name":"flood"' \
  '"bytes":108894,"frames":[0-9]*,"lines":20000,"name":"stream"' '"bytes":11,"frames":1,"lines":1,"name":"quo\\"te"' \
  '"bytes":5,"frames":1,"lines":2,"name":"ab"'; do
  grep -q "$entry" <<<"$summary" || fail "no $entry in $summary"
done

# As JSON: every line is an object and nothing else is there, whatever bytes came; long lines come in pieces.
start_collector 0 --json --report "$work/summary"
send '\x11\0\0\0\x01\x03\0a"b\xff\x1b\xc3\xa9"x\n1234' '\x09\0\0\0\x01\x03\0a"b567'
printf '%s\n' '[long]' 'command = printf "a%.0s" {1..3999}; printf "\xc3\xa9\n"' >"$work/d.ini"
"$supervisor" -c "$work/d.ini" --log-service "$ip:$port" >"$work/d" 2>&1 || fail "the supervisor with a long line"
closed_connections 2
stop_collector
time='"time":"20[0-9-]{8}T[0-9:]{8}\.[0-9]{3}Z"'
lines=$(grep -cxE '\{"name":"(a\\"b|long)","peer":"127.0.0.1:[0-9]+","text":".*",'"$time"'\}' "$work/collector")
[[ $lines == 4 && $(wc -l <"$work/collector") == 4 ]] || fail "lines of JSON: $(cat "$work/collector")"
expect "escapes" "$work/collector" $'"text":"\xef\xbf\xbd\\u001b\xc3\xa9\\"x"'
expect "a line in two frames" "$work/collector" '"text":"1234567"'
expect "a character that is not cut" "$work/collector" $'"text":"\xc3\xa9"'
expect "the summary" "$work/summary" '"frames":2,"lines":2,"name":"a\"b"'
if command -v python3 >/dev/null; then
  python3 -m json.tool --json-lines "$work/collector" >/dev/null || fail "lines that are no JSON"
fi

# No service, a service that comes, goes without a word, and comes again: told once each time.
printf '%s\n' '[supervisor]' "log_service = $ip:$port" '[tick]' 'command = while sleep 0.05; do echo t; done' \
  >"$work/c.ini"
"$supervisor" -c "$work/c.ini" >"$work/c" 2>"$work/c.err" &
first=$!
lost="log service $ip:$port: no connection"
expect "no service" "$work/c" "$lost"
start_collector "$port"
expect "a service that comes" "$work/collector" "tick     | t"
kill -9 "$collector_pid"
wait "$collector_pid" 2>/dev/null
start_collector "$port"
expect "a service that comes again" "$work/collector" "tick     | t"
kill -INT "$first"
wait "$first" || fail "the supervisor without a service"
stop_collector
(($(grep -cF "$lost" "$work/c") == 2)) || fail "told $(grep -cF "$lost" "$work/c") times"
expect "what was not sent" "$work/c" "chunks not sent"
(($(grep -c 'chunks not sent' "$work/c") == 1)) || fail "told more than once what was not sent"

((faults == 0)) && echo "all as expected"
exit "$faults"
