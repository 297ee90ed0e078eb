#!/bin/sh
# Builds the Debian packages with debhelper (dpkg-buildpackage -us -uc -b) from a copy of the tree
# in build-deb/src, and checks them with lintian (no error, no warning). Prints the paths of the
# packages, one a line: the library, its -dev, the tools, the Python module, the reference and
# the -dbgsym packages.
set -eu
cd "$(dirname "$0")/.."
sh scripts/setup.sh >&2
rm -rf build-deb
mkdir -p build-deb/src
# The tree as it is (what git tracks, and new files it does not ignore), not its build folders.
git ls-files -z --cached --others --exclude-standard | tar --null -T - -cf - | tar -xf - -C build-deb/src
(cd build-deb/src && dpkg-buildpackage -us -uc -b >&2)
# lintian checks every package the build made; it refuses nothing it knows to be fine.
lintian --fail-on error,warning --no-tag-display-limit build-deb/*.changes >&2
ls build-deb/*.deb
