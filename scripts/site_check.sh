#!/usr/bin/env bash
# Installs what is missing, builds the API site with the manual pages, and checks it: every reference leads somewhere,
# and a browser finds every picture, script and style, and something by the search.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/packages.sh

install_missing "${build_packages[@]}" chromium chromium-driver doxygen doxygen-awesome-css mandoc \
  python3 python3-selenium
# What a build before has left would be checked as well.
rm -rf build/docs/docs/html
cmake --preset docs >/dev/null
cmake --build --preset docs -- --quiet
# The system's own, which has the package.
/usr/bin/python3 -B scripts/site_check.py build/docs/docs/html
