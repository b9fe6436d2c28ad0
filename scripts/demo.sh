#!/usr/bin/env bash
# Installs what is missing, builds the library, and shows the supervisor at work for some seconds: what its commands
# write, how they end and are started again, and that a collector has received all of it.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh
seconds=9
folder=build/demo

build() {
  cmake --preset release -DOXU_BUILD_TESTS=OFF -B "$folder" &&
    cmake --build "$folder" --target supervisor log_collector
}

install_missing "${build_packages[@]}"
echo "Building the library, the supervisor and the collector ..."
quietly build

cat <<TEXT

Two programs that use libOxuTool: a supervisor runs the six commands of examples/supervisor.ini for $seconds seconds,
prints what they write (COMMAND | LINE), and sends it over TCP to a collector. Ctrl-C ends it earlier, with the same
table at the end.

  clock     runs until it is ended
  failing   lists a folder that does not exist, exits with 3, and is restarted after 1 and after 2 seconds
  crashing  crashes after 3 seconds, and is restarted after 1 second
  noisy     writes 20000 lines in its 6th second; only the first and the last are shown, and none is lost
  family    starts three processes of its own, which are ended with it
  stubborn  ignores SIGTERM, so it is killed one second after the SIGTERM

Red is no fault here: the library's monitor prints two lines for each process that has gone, whatever the reason.
"ERROR ... is not exist, call quit callback" says that it has gone. "DEBUG ... quit callback result:0" is what the
callback returned, not the exit status. An empty line follows each. How a command ended is in the line after them.

TEXT

rm -f "$folder"/{collector,supervisor,collected}.json "$folder/collector.log"
# Both programs get sessions of their own, so that Ctrl-C reaches this script alone, which passes it on once.
setsid "$folder/examples/log_collector" --listen 127.0.0.1:0 --json --report "$folder/collector.json" \
  >"$folder/collected.json" 2>"$folder/collector.log" &
collector=$!
supervisor=
trap 'kill "$supervisor" 2>/dev/null && wait "$supervisor"; kill "$collector" 2>/dev/null' EXIT
until service=$(grep -o '127\.0\.0\.1:[1-9][0-9]*$' "$folder/collector.log"); do
  kill -0 "$collector"
  sleep 0.1
done
setsid "$folder/examples/supervisor" --config examples/supervisor.ini --log-service "$service" \
  --report "$folder/supervisor.json" &
supervisor=$!
trap 'kill -INT "$supervisor"' INT
sleep "$seconds" && kill -INT "$supervisor"
# A signal to this script ends the wait as well.
until wait "$supervisor"; do kill -0 "$supervisor"; done
kill -INT "$collector"
wait "$collector"
trap - INT EXIT

# objects FILE: the objects of a JSON list, one per line.
objects() { sed 's/},{/\n/g' "$1"; }

printf '\n%s\n%s\n\n' "The figures of all starts together, with the last end (also in $folder/supervisor.json" \
  "and $folder/collector.json; the output itself is in $folder/collected.json):"
awk '
  function value(key, text) {
    match($0, "\"" key "\":[^,}]*")
    text = substr($0, RSTART + length(key) + 3, RLENGTH - length(key) - 3)
    gsub("\"", "", text)
    return text
  }
  function row(a, b, c, d, e, f, g) { printf "%-10s %6s  %-8s %8s %7s %11s %16s\n", a, b, c, d, e, f, g }
  BEGIN { row("command", "starts", "ended", "seconds", "lines", "bytes sent", "bytes collected") }
  FNR == NR { collected[value("name")] = value("bytes"); next }
  {
    name = value("name")
    seconds = sprintf("%.1f", value("seconds"))
    row(name, value("starts"), value("ended"), seconds, value("lines"), value("bytes"), collected[name] + 0)
    bytes += value("bytes")
    differ += value("bytes") != collected[name] + 0
  }
  END {
    print ""
    if (differ != 0) print "supervisor and collector differ in " differ " of " FNR " commands"
    else print "supervisor and collector agree: " bytes " bytes of " FNR " commands"
    exit differ != 0
  }' <(objects "$folder/collector.json") <(objects "$folder/supervisor.json")
