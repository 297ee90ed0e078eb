#!/bin/sh
# Builds the Debian package into build-package/ (installing to /usr) and prints its path.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh >&2
cmake -S . -B build-package -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DYMSDK_BUILD_TESTS=OFF -DYMSDK_BUILD_BENCH=OFF >&2
cmake --build build-package >&2
(cd build-package && cpack -G DEB >&2)
ls build-package/yumoclientsdk_*.deb
