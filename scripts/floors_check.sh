#!/usr/bin/env bash
# Checks the code against the table of folders in docs/ARCHITECTURE.md: a folder includes only its own files and those
# of the folders that its row names, and calls POSIX directly only where the row says so. No line of code or text is
# longer than 120 columns, tables aside.
set -euo pipefail
cd "$(dirname "$0")/.."
faults=0

while IFS='|' read -r _ folder _ includes posix _; do
  folder=$(tr -d ' `' <<<"$folder")
  own=${folder#include/}
  allowed=$(tr -d ' `' <<<"$includes" | tr ',' '|' | sed 's,include/,,')
  if grep -rnE '#include "' "$folder" | grep -vE "#include \"($allowed|$own)"; then faults=1; fi
  if [[ $posix != *yes* ]] && grep -rnE '(^|[^[:alnum:]_>:])::[a-z_]+\(' "$folder"; then faults=1; fi
done < <(grep -E '^\| `(include/oxu|os|log|json|config|net|process)/` ' docs/ARCHITECTURE.md)

# Uses find and not git: a machine that only builds need not have git.
find . \( -path ./build -o -path ./.git \) -prune -o -name '*.h' -print -o -name '*.cpp' -print -o -name '*.c' -print \
  -o -name '*.sh' -print -o -name '*.md' -print | xargs awk '
  length > 120 && !/^\|/ { print FILENAME ":" FNR ": too long"; bad = 1 }
  END { exit bad }' || faults=1
((faults == 0)) && echo "every folder includes and calls what its row says"
exit "$faults"
