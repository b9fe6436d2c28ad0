#!/usr/bin/env bash
# Does what the README says, in a fresh clone of the last commit:
# - runs the sh blocks in the root of the clone, one after the other;
# - compiles and runs the cpp and c blocks with the built library;
# - builds the cmake blocks as projects of a consumer who has the library installed, or as a folder libOxuTool.
# Where a block names a source file that does not exist, that file is the README's first block in its language.
# Usage: readme_check.sh [--skip LINE]...; these lines of sh blocks are left out.
set -euo pipefail
# A block may run the tests or all of CI, which may run this script again.
[[ -z ${OXU_README_CHECK:-} ]] || { echo "skipped: the README is being checked already"; exit 0; }
export OXU_README_CHECK=1
cd "$(dirname "$0")/.."

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
skipped=$work/skipped
: >"$skipped"
while [[ ${1:-} == --skip ]]; do
  echo "$2" >>"$skipped"
  shift 2
done

clone=$work/clone
prefix=$work/prefix
git clone -q . "$clone"
cd "$clone"

# Writes each block to NUMBER.LANGUAGE.
awk -v to="$work" '
  !file && /^```[a-z]/ { file = sprintf("%s/%02d.%s", to, ++count, substr($1, 4)); next }
  /^```/ { file = ""; next }
  file { print > file }' README.md
shopt -s nullglob
blocks=("$work"/[0-9]*.{sh,cpp,c,cmake})
((${#blocks[@]})) || { echo "README.md has no blocks"; exit 1; }
mapfile -t blocks < <(printf '%s\n' "${blocks[@]}" | sort)

cmake --no-warn-unused-cli -G Ninja -B build/readme -DCMAKE_BUILD_TYPE=Release -DOXU_BUILD_TESTS=OFF \
  -DOXU_BUILD_EXAMPLES=OFF -DOXU_INSTALL=ON -DCMAKE_INSTALL_PREFIX="$prefix" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
cmake --build build/readme -- --quiet
cmake --install build/readme >/dev/null
# What a block puts into the home folder is removed with the rest.
export HOME=$work/home
mkdir "$HOME"

# provide FOLDER FILE...: copies the first block of the right language to each file that is missing there.
provide() {
  local folder=$1 file sources
  shift
  for file in "$@"; do
    sources=("$work"/[0-9]*."${file##*.}")
    [[ -e $folder/$file ]] || ((${#sources[@]} == 0)) || cp "${sources[0]}" "$folder/$file"
  done
}

# The source files that a block names.
named() { grep -oE '[A-Za-z_0-9/]+\.(cpp|c)\b' "$1" || true; }

run_sh() {
  # shellcheck disable=SC2046
  provide . $(named "$1")
  grep -vxF -f "$skipped" "$1" >"$work/script" || true
  bash -euo pipefail "$work/script"
}

run_source() {
  "${@:2}" -Wall -Wextra -Werror -Iinclude "$1" -o "$work/program" -Lbuild/readme -lOxuTool \
    -Wl,-rpath,"$PWD/build/readme" -pthread
  "$work/program"
}

run_cmake() {
  local project=$work/consumer target
  rm -rf "$project" && mkdir "$project" && ln -s "$clone" "$project/libOxuTool"
  target=$(grep -oP 'target_link_libraries\(\K\w+' "$1" | head -n 1)
  {
    grep -q 'project(' "$1" || printf 'cmake_minimum_required(VERSION 3.25)\nproject(consumer CXX)\n'
    grep -q 'add_executable(' "$1" || echo "add_executable($target host.cpp)"
    cat "$1"
  } >"$project/CMakeLists.txt"
  # shellcheck disable=SC2046
  provide "$project" $(named "$project/CMakeLists.txt")
  cmake --no-warn-unused-cli -G Ninja -S "$project" -B "$project/build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DFETCHCONTENT_SOURCE_DIR_OXUTOOL="$clone" >/dev/null
  cmake --build "$project/build" -- --quiet
  "$project/build/$target"
}

run_block() {
  case $1 in
    *.sh) run_sh "$1" ;;
    *.cpp) run_source "$1" c++ -std=c++17 ;;
    *.c) run_source "$1" cc -std=c11 ;;
    *.cmake) run_cmake "$1" ;;
  esac
}

for block in "${blocks[@]}"; do
  printf '\n-- %s\n' "${block##*/}"
  sed 's/^/| /' "$block"
  # In a shell of its own and outside a condition, so that -e holds in it.
  set +e
  (set -e; run_block "$block") </dev/null
  status=$?
  set -e
  ((status == 0)) || { echo "FAILED with status $status: block ${block##*/} of README.md"; exit 1; }
done
printf '\nREADME.md: %d blocks did what they say\n' "${#blocks[@]}"
