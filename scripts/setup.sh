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

# The Node.js module: Node.js with its headers (Debian's nodejs and libnode-dev, or a Node.js that
# carries them), npm, and node-addon-api (Debian's package where Debian's nodejs is installed, else
# from the npm registry).
locate="$(dirname "$0")/../node/scripts/locate.js"
if command -v node >/dev/null 2>&1 && node "$locate" >/dev/null 2>&1; then
    echo "setup: Node.js, its headers and node-addon-api are there"
elif [ "$(id -u)" -ne 0 ]; then
    echo "setup: the Node.js module needs: $(node "$locate" 2>&1 >/dev/null || echo 'Node.js (apt-get install nodejs libnode-dev node-addon-api npm)')" >&2
    echo "setup: run this script as root to install it" >&2
    exit 1
else
    export DEBIAN_FRONTEND=noninteractive
    if ! command -v node >/dev/null 2>&1; then
        echo "setup: installing Debian's Node.js"
        apt-get install -y -q --no-install-recommends nodejs libnode-dev node-addon-api npm
    fi
    # Debian's nodejs keeps its headers in libnode-dev; a Node.js from elsewhere carries its own,
    # and cannot take Debian's node-addon-api (which depends on Debian's nodejs).
    if node "$locate" 2>&1 >/dev/null | grep -q "no Node.js headers"; then
        apt-get install -y -q --no-install-recommends libnode-dev
    fi
    if node "$locate" 2>&1 >/dev/null | grep -q "no node-addon-api"; then
        apt-get install -y -q --no-install-recommends node-addon-api 2>/dev/null ||
            npm install -g --no-audit --no-fund node-addon-api@8
    fi
    command -v npm >/dev/null 2>&1 || apt-get install -y -q --no-install-recommends npm
    node "$locate" >/dev/null
    echo "setup: Node.js, its headers and node-addon-api are installed"
fi
