#!/bin/sh
# Installs every Debian package that the build, the tests, the benchmarks, the fuzzers and the tools
# need. Run as root on Debian 12. Idempotent: when every package is there it only checks and returns.
set -eu

PACKAGES="
build-essential g++ cmake pkg-config ninja-build
nlohmann-json3-dev libplist-dev libsdbus-c++-dev libsystemd-dev
libpango1.0-dev fonts-dejavu-core fontconfig
libssl-dev openssl zlib1g-dev libxml2-dev
libgtest-dev libgmock-dev googletest libbenchmark-dev
dbus dbus-bin dbus-daemon
clang libclang-rt-14-dev
binutils procps util-linux mount
dpkg-dev doxygen make git xz-utils
python3 python3-pytest python3-venv mypy libglib2.0-dev valgrind
debhelper dh-python python3-all lintian scdoc abigail-tools libjs-jquery man-db
"

missing=""
for p in $PACKAGES; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing="$missing $p"
    fi
done

if [ -n "$missing" ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "setup: these packages are missing:$missing" >&2
        echo "setup: run this script as root to install them" >&2
        exit 1
    fi
    echo "setup: installing$missing"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -q
    # shellcheck disable=SC2086
    apt-get install -y -q --no-install-recommends $missing
else
    echo "setup: every package is installed"
fi
