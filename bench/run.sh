#!/usr/bin/env bash
# Installs what is missing, builds and runs the benchmarks, and writes their page and its pictures.
# Usage: run.sh [--quick | --page] [FOLDER]
#   --quick  a run of some seconds that shows that everything works; its figures say nothing
#   --page   measures nothing, and writes the page of the run before anew
#   FOLDER   where BENCHMARKS.md and images/bench-*.svg go: docs, or build/bench/docs for a quick run
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

options=()
folder=docs
if [[ ${1:-} == --* ]]; then
  options=("$1")
  [[ $1 != --quick ]] || folder=build/bench/docs
  shift
fi

install_missing "${bench_packages[@]}"
cmake --preset bench >/dev/null
cmake --build --preset bench -- --quiet
python3 -B bench/run.py "${options[@]}" "${1:-$folder}"
