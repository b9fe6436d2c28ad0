#!/usr/bin/env bash
# Installs what is missing, builds the library and shows the supervisor at work for a few seconds. Ends as
# Ctrl-C in its terminal would end it.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

install_missing "${build_packages[@]}"
cmake --preset release -DOXU_BUILD_TESTS=OFF -B build/demo >/dev/null
cmake --build build/demo --target supervisor

timeout --preserve-status --signal INT 6 build/demo/examples/supervisor -v --config examples/supervisor.ini
