#!/usr/bin/env bash
# Installs what is missing, builds the library and shows the supervisor at work for a few seconds. Ends as
# Ctrl-C in its terminal would end it.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

install_missing "${build_packages[@]}"
cmake --preset release -DOXU_BUILD_TESTS=OFF -B build/demo >/dev/null
cmake --build build/demo --target supervisor

timeout --preserve-status --signal INT 6 build/demo/examples/supervisor --restart 2 \
  clock='while sleep 1; do date +"%T"; done' \
  failing='echo "about to fail"; ls /nonexistent; exit 3' \
  noisy='for i in 1 2 3; do echo "warning $i" >&2; sleep 0.5; done; sleep 1000' \
  killed='echo "this shell ends itself"; kill -SEGV $$' \
  family='for n in 1 2 3; do (while sleep 1.5; do echo "grandchild $n of $$"; done) & done; wait'
