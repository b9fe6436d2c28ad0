#!/usr/bin/env bash
# Installs what is missing, builds the library, and shows the supervisor at work for a few seconds. It prints what its
# commands write, and forwards it to a collector, whose summary comes last. Ends as Ctrl-C in its terminal would end
# it.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

install_missing "${build_packages[@]}"
cmake --preset release -DOXU_BUILD_TESTS=OFF -B build/demo >/dev/null
cmake --build build/demo --target supervisor log_collector

collected=$(mktemp)
build/demo/examples/log_collector --listen 127.0.0.1:0 >"$collected" 2>&1 &
collector=$!
trap 'kill "$collector" 2>/dev/null || true; rm -f "$collected"' EXIT
until service=$(grep -o '127\.0\.0\.1:[1-9][0-9]*' "$collected"); do
  kill -0 "$collector"
  sleep 0.1
done

timeout --preserve-status --signal INT 6 \
  build/demo/examples/supervisor -v --config examples/supervisor.ini --log-service "$service"

kill -INT "$collector"
wait "$collector"
echo
echo "What the collector at $service received:"
tail -n 8 "$collected"
