#!/usr/bin/env bash
# Draws the pictures of the pages anew from their text sources, docs/images/*.dot.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

install_missing graphviz
for source in docs/images/*.dot; do
  program=dot
  if grep -q 'neato -n' "$source"; then program="neato -n"; fi
  $program -Tsvg "$source" -o "${source%.dot}.svg"
done
