#!/usr/bin/env bash
# Checks the pages: each block between "<!-- example NAME -->" and "<!-- end -->" is the file examples/NAME, word for
# word, and each link to a file or a heading of the repository leads somewhere. --refresh copies the files into the
# blocks.
set -euo pipefail
cd "$(dirname "$0")/.."
pages=(./*.md docs/*.md)
faults=0

fault() {
  echo "$*" >&2
  faults=$((faults + 1))
}

# The page with its examples as they are in the files.
filled() {
  awk '
    /^<!-- example .* -->$/ {
      file = "examples/" $3
      language = file ~ /\.c$/ ? "c" : "cpp"
      print $0 "\n\n```" language
      while ((getline line < file) > 0) print line
      close(file)
      print "```\n"
      inside = 1
    }
    /^<!-- end -->$/ { inside = 0 }
    !inside' "$1"
}

# The page without code, in which brackets and parentheses are no links.
prose() { awk '/^ *```/ { code = !code; next } !code' "$1" | sed 's/`[^`]*`//g'; }

# The anchors of a page's headings.
anchors() {
  awk '/^```/ { code = !code } !code && sub(/^#+ /, "")' "$1" | tr '[:upper:] ' '[:lower:]-' | tr -cd '[:alnum:]_\n-'
}

for page in "${pages[@]}"; do
  missing=$(sed -n 's/^<!-- example \(.*\) -->$/\1/p' "$page" | while read -r name; do
    [[ -f examples/$name ]] || printf ' %s' "$name"
  done)
  if [[ -n $missing ]]; then
    fault "$page: missing in examples:$missing"
  elif [[ ${1:-} == --refresh ]]; then
    text=$(filled "$page")
    printf '%s\n' "$text" >"$page"
  elif ! filled "$page" | diff -u --label "$page" --label "as the examples are" "$page" - >&2; then
    fault "$page: an example has changed, run scripts/docs_check.sh --refresh"
  fi
  while read -r link; do
    [[ $link == *://* || $link == mailto:* ]] && continue
    target=${link%%#*}
    file=$page
    [[ -z $target ]] || file=$(dirname "$page")/$target
    if [[ ! -e $file ]]; then
      fault "$page: the link to $link leads nowhere"
    elif [[ $link == *#* ]] && ! anchors "$file" | grep -qxF -- "${link#*#}"; then
      fault "$page: there is no heading for $link"
    fi
  done < <(prose "$page" | grep -oP '\]\(\K[^)\s]+' || true)
done
((faults == 0)) || exit 1
echo "${#pages[@]} pages: examples and links are as they should be"
