#!/usr/bin/env bash
# The printers in gdb's batch mode. Usage: gdb_test.sh HOST SOURCE BUILD WORK
set -u
host=$1
source=$2
build=$3
work=$4
skip() { echo "skipped: $*"; exit 77; }
rm -rf "$work" && mkdir -p "$work"
export HOME=$work

# run OPTION... runs gdb without anybody's own settings.
run() { timeout 120 gdb -nx -batch -iex "set debuginfod enabled off" "$@" </dev/null 2>&1; }

command -v gdb >/dev/null || skip "there is no gdb"
run -ex 'python print("python")' | grep -qx python || skip "this gdb has no Python"
run -ex run /bin/true | grep -q "exited normally" || skip "no process may be traced here"

faults=0
expect() { grep -qF -- "$2" "$work/$1" || { echo "FAILED: no '$2' in"; cat "$work/$1"; faults=$((faults + 1)); }; }

# Values as they are; and overwritten ones, which must neither raise nor go on without end.
run -ex "source $source/gdb/oxutool-gdb.py" -ex 'break stop' -ex run -ex up -ex 'set print elements 8' \
  -ex 'print json' -ex 'print ini' -ex 'print options' -ex 'print ring' \
  -ex 'set print elements 2' -ex 'print json' \
  -ex 'set var json.m_object._M_t._M_impl._M_header._M_left = 8' -ex 'print json' \
  -ex 'set var json.m_type = 77' -ex 'print json' -ex 'set var ring.m_header->commitIndex = 1000' -ex 'print ring' \
  -ex 'set var ring.m_header = 8' -ex 'print ring' -ex 'set var ring.m_header = 0' -ex 'print ring' \
  -ex 'echo the end\n' -ex kill "$host" >"$work/values"
expect values '= Object = {["list"] = Array = {Null, 2.5}, ["text"] = "value", ["yes"] = true}'
expect values '= IniFile = {["net"] = std::map with 1 element = {["port"] = "80"}}'
expect values '= Option = {["port"] = RequiredValue "81"}'
expect values '= ring of 8 slots, 2 waiting = {[1] = INFO "first", [2] = INFO "second"}'
expect values '= Object = {["li"...] = Array = {Null, 2.5...}...}'
grep -qx '.* = Object' "$work/values" || faults=$((faults + 1))
expect values '<no Json: kind 77>'
expect values '<no ring: its header is overwritten>'
expect values '<cannot be read: Cannot access memory'
expect values 'ring without storage'
expect values 'the end'
if grep -E 'Traceback|Python Exception' "$work/values"; then faults=$((faults + 1)); fi

# Loaded by itself from an installed tree.
if cmake --install "$build" --prefix "$work/prefix" >/dev/null 2>&1; then
  library=$(find "$work/prefix" -name 'libOxuTool.so.*.*.*' ! -name '*.py')
  run -iex "add-auto-load-safe-path $work/prefix" -ex "file $library" -ex 'info pretty-printer global oxutool' \
    -ex 'info pretty-printer' >"$work/installed"
  expect installed 'CRingBuffer'
fi
exit "$faults"
