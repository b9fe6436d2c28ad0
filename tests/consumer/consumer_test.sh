#!/usr/bin/env bash
# Uses the library as a host project does. Usage: consumer_test.sh WAY SOURCE BUILD WORK, where WAY names one of the
# functions at the end, BUILD is a build of the library, and WORK a folder of this test's own. The environment has
# the compilers and their flags, CC, CXX, CFLAGS and CXXFLAGS, for CMake too.
set -euo pipefail
way=$1
source=$2
build=$3
work=$4
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
export CC=${CC:-cc} CXX=${CXX:-c++} CFLAGS=${CFLAGS:-} CXXFLAGS=${CXXFLAGS:-}
warnings=(-Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror)
level_names=(-DDEBUG -DTEST -DINFO -DWARNING -DERROR)
here=$source/tests/consumer
rm -rf "$work" && mkdir -p "$work"

configure() { cmake --no-warn-unused-cli -G Ninja "$@" >/dev/null; }

# install_library PREFIX [OPTION...] installs the build, or one made anew with the options.
install_library() {
  local prefix=$1 from=$build
  shift
  if (($#)); then
    from=$work/build
    configure -S "$source" -B "$from" -DOXU_BUILD_TESTS=OFF -DOXU_BUILD_EXAMPLES=OFF "$@"
    cmake --build "$from" -- --quiet
  fi
  cmake --install "$from" --prefix "$prefix" >/dev/null
}

# The consumers with a header that includes all of the library's, from the folder that holds oxu/.
copy_consumers() {
  mkdir -p "$work/consumer"
  cp "$here"/CMakeLists.txt "$here"/*.cpp "$work/consumer"
  (cd "$1" && printf '#include <%s>\n' oxu/*.h) >"$work/consumer/everything.h"
}

# build_consumers FOLDER [OPTION...] builds them; a step of the build runs each.
build_consumers() {
  local folder=$work/$1
  shift
  configure -S "$work/consumer" -B "$folder" -DCAPI="$source/examples/capi.c" -DVERSION="$version" "$@"
  cmake --build "$folder" -- --quiet
}

# compile_with_pkg_config PREFIX compiles the same by hand, in C++17 and in C11, and runs them.
compile_with_pkg_config() {
  local flags libraries
  export PKG_CONFIG_PATH
  PKG_CONFIG_PATH=$(dirname "$(find "$1" -name oxutool.pc)")
  flags=$(pkg-config --cflags oxutool)
  libraries="$(pkg-config --libs oxutool) -Wl,-rpath,$(dirname "$PKG_CONFIG_PATH")"
  [[ $(pkg-config --modversion oxutool) == "$version" ]] || { echo "wrong version in oxutool.pc"; return 1; }
  # shellcheck disable=SC2086
  $CXX $CXXFLAGS -std=c++17 "${warnings[@]}" $flags "$work"/consumer/*.cpp $libraries -pthread -o "$work/by_hand"
  # shellcheck disable=SC2086
  $CC $CFLAGS -std=c11 -D_POSIX_C_SOURCE=200809L "${warnings[@]}" $flags "$source/examples/capi.c" $libraries \
    -o "$work/by_hand_c"
  "$work/by_hand" && "$work/by_hand_c"
}

# build_examples PREFIX builds all installed examples, and runs the supervisor.
build_examples() {
  configure -S "$1/share/doc/liboxutool-dev/examples" -B "$work/examples"
  cmake --build "$work/examples" -- --quiet
  "$work/examples/supervisor" --help >"$work/help"
  grep -q command "$work/help"
}

# gdb finds the printers beside the library, once its user trusts the folder.
gdb_finds_printers() {
  local library
  library=$(find "$1" -name libOxuTool.so)
  [[ -n $library ]] || { echo "there is no libOxuTool.so"; return 1; }
  command -v gdb >/dev/null || { echo "the printers are not tried: there is no gdb"; return 0; }
  HOME=$work gdb -nx -batch -iex "add-auto-load-safe-path $1" -ex "file $(readlink -f "$library")" \
    -ex 'info pretty-printer' </dev/null >"$work/printers" 2>&1
  grep -q CRingBuffer "$work/printers"
}

# Moves the installed tree, then uses it from a project in both languages, from one in C alone, and by hand.
use_moved() {
  mv "$work/first" "$work/moved"
  copy_consumers "$work/moved/include"
  build_consumers both -DCMAKE_PREFIX_PATH="$work/moved"
  build_consumers c -DC_ALONE=ON -DCMAKE_PREFIX_PATH="$work/moved"
  compile_with_pkg_config "$work/moved"
}

installed() {
  install_library "$work/first"
  use_moved
  build_examples "$work/moved"
  gdb_finds_printers "$work/moved"
}

static() {
  install_library "$work/first" -DBUILD_SHARED_LIBS=OFF -DCMAKE_BUILD_TYPE=Debug
  use_moved
}

subdirectory() {
  copy_consumers "$source/include"
  build_consumers both -DSOURCE="$source" -DCMAKE_BUILD_TYPE=Debug
  # A project in C alone has no C++17 for the library to require: CMake would stop here.
  configure -S "$work/consumer" -B "$work/c" -DSOURCE="$source" -DCAPI="$source/examples/capi.c" -DC_ALONE=ON
  # A host project that installs itself does not install the library, and has none of its tests and examples.
  cmake --install "$work/both" --prefix "$work/none" >/dev/null
  [[ ! -e $work/none ]] && ! find "$work/both" -name '*supervisor*' -o -name oxutool_tests | grep .
}

# Each exported header alone, even where the host has macros of the level names.
headers() {
  command -v "$CXX" >/dev/null || { echo "skipped: there is no $CXX"; exit 77; }
  local standard
  cd "$source/include"
  for standard in 17 20 2b; do
    "$CXX" "-std=c++$standard" -fsyntax-only -x c++ "${warnings[@]}" "${level_names[@]}" -I. oxu/*.h
  done
  "$CC" -std=c11 -fsyntax-only -x c "${warnings[@]}" "${level_names[@]}" -I. oxu/CApi.h
}

# A wrong argument of push_log must not compile.
format() {
  local call='int main(void) { return push_log(1, "%s", 5); }' language
  for language in c c++; do
    printf '#include "oxu/CApi.h"\n%s\n' "$call" >"$work/wrong.$language"
    ! "$CC" -fsyntax-only -x "$language" -Werror=format -I"$source/include" "$work/wrong.$language" 2>"$work/errors" ||
      { echo "a wrong argument compiles in $language"; exit 1; }
    grep -qF 'Werror=format' "$work/errors"
  done
}

# expect_only PATTERN FILE: each line of the file matches.
expect_only() {
  ! grep -vxE "$1" "$2" || { echo "^ not expected in $2"; exit 1; }
}

# Checks the exported symbols, the soname and the needed libraries. REFRESH=1 makes the list of symbols anew.
abi() {
  # With std::string as sources have it.
  nm -DC --defined-only "$build/libOxuTool.so" >"$work/exported"
  sed -i -E 's/^[0-9a-f]+ //; s/\[abi:cxx11\]//g
    s/std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> >/std::string/g' "$work/exported"

  # Weak symbols and tables differ between compilers: only their namespace or class is checked.
  local tables='((vtable|typeinfo|typeinfo name) for )'
  local own='(oxu::|OS::|IniFile|Option|IBase|ISocket|CSocket|LogService)'
  expect_only ". $tables?$own.*|T [A-Za-z_]+(\(.*\))?" "$work/exported"
  sed -nE "/^. $tables/d; s/^[TDBR] //p" "$work/exported" | LC_ALL=C sort -u >"$work/symbols"
  [[ -z ${REFRESH:-} ]] || cp "$work/symbols" "$here/symbols.txt"
  diff -u "$here/symbols.txt" "$work/symbols"

  readelf -d "$build/libOxuTool.so" >"$work/dynamic"
  grep -qF "soname: [libOxuTool.so.${version%%.*}]" "$work/dynamic"
  sed -nE 's/.*\(NEEDED\).*\[(.*)\]/\1/p' "$work/dynamic" >"$work/needed"
  expect_only 'lib(stdc\+\+\.so\.6|m\.so\.6|gcc_s\.so\.1|c\.so\.6)|ld-linux.*' "$work/needed"
}

if [[ $CXXFLAGS == *-fsanitize* && $way != installed ]]; then
  echo "skipped: the same under a sanitizer, except the exported symbols, which it changes"
  exit 77
fi
"$way"
