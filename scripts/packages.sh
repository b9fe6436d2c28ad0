# Sourced by the other scripts: gets the Debian packages that they need.

# quietly COMMAND... runs the command, and shows its output only where it fails.
quietly() {
  local output
  output=$("$@" 2>&1 </dev/null) || { printf '%s\n' "$output" "FAILED: $*" >&2; return 1; }
}

# install_missing PACKAGE... installs the packages that are missing, as root or through sudo. Where neither works, says
# what to install, and ends the script.
install_missing() {
  local package missing=()
  if ! command -v dpkg-query >/dev/null; then
    echo "This is no Debian system. What the build needs, by its Debian names: $*" >&2
    return 0
  fi
  for package in "$@"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
      missing+=("$package")
  done
  ((${#missing[@]})) || return 0

  local as_root=()
  if ((EUID != 0)); then
    as_root=(sudo)
    if ! command -v sudo >/dev/null || ! { sudo -n true 2>/dev/null || { [[ -t 0 ]] && sudo -v; }; }; then
      echo "Please install these packages as root, then run this again:" >&2
      echo "  apt-get install --no-install-recommends ${missing[*]}" >&2
      exit 1
    fi
  fi
  echo "Installing ${missing[*]} ..."
  quietly "${as_root[@]}" apt-get update
  quietly "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
}

build_packages=(cmake g++ ninja-build)
test_packages=("${build_packages[@]}" gcc libgtest-dev pkgconf sudo)
# For the benchmarks, with the libraries that they compare with.
bench_packages=("${build_packages[@]}" git gnuplot-nox libbenchmark-dev python3
  libboost-dev libcli11-dev libcxxopts-dev libinih-dev libspdlog-dev nlohmann-json3-dev)
