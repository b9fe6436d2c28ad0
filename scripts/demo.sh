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

A supervisor runs the six commands of examples/supervisor.ini for $seconds seconds, and forwards what they write to a
collector, which puts it into $folder/collected.json. Ctrl-C ends it earlier.

  clock     runs on
  failing   ends with exit 3, and is started twice again, after 1 and 2 seconds
  crashing  crashes, and is started once again
  noisy     writes 20000 lines at once, of which the first and the last are shown, and none is lost
  family    starts processes of its own, which are ended with it
  stubborn  does not mind SIGTERM, so it is killed after a second

The lines of [ProcessMonitor] are the library's, an ERROR and a DEBUG for every end, be it intended or not.

TEXT

rm -f "$folder"/{collector,supervisor,collected}.json "$folder/collector.log"
# In sessions of their own: Ctrl-C is for this script, which passes it on once.
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
# A signal ends the wait as well.
until wait "$supervisor"; do kill -0 "$supervisor"; done
kill -INT "$collector"
wait "$collector"
trap - INT EXIT

# objects FILE: those of a list, one a line.
objects() { sed 's/},{/\n/g' "$1"; }

printf '\n%s\n\n' "In figures, which are in $folder/supervisor.json and $folder/collector.json as well:"
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
