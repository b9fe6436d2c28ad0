#!/usr/bin/env bash
# Installs what is missing, builds the library and runs the tests. Arguments go to ctest. A test that this machine
# cannot run is skipped, with its reason.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

install_missing "${test_packages[@]}"
cmake --preset release >/dev/null
cmake --build --preset release
status=0
ctest --preset release --parallel "$(nproc)" "$@" || status=$?
# ctest names the tests that are skipped, and keeps what they say in its log.
awk '/^[0-9]+\/[0-9]+ Test: / { name = $3 } /^skipped: / { print name ": " $0 }' \
  build/release/Testing/Temporary/LastTest.log
exit "$status"
