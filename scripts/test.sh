#!/usr/bin/env bash
# Installs what is missing, builds the library and runs every test. Arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

install_missing "${test_packages[@]}"
cmake --preset release >/dev/null
cmake --build --preset release
ctest --preset release --parallel "$(nproc)" "$@"
