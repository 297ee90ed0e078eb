#!/bin/sh
# Sets up the machine (as root when packages are missing) and builds into build/ (or
# build-asan/, build-tsan/ when YMSDK_SANITIZE is address or thread).
set -eu
cd "$(dirname "$0")/.."

sh scripts/setup.sh

sanitize="${YMSDK_SANITIZE:-}"
case "$sanitize" in
    "") build_dir=build; build_type=RelWithDebInfo ;;
    address) build_dir=build-asan; build_type=Debug ;;
    thread) build_dir=build-tsan; build_type=Debug ;;
    *) echo "build: YMSDK_SANITIZE must be empty, address or thread" >&2; exit 64 ;;
esac

cmake -S . -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE="$build_type" -DYMSDK_SANITIZE="$sanitize" >/dev/null
cmake --build "$build_dir" >&2

# The SDK rewrites bundle identifiers with /usr/libexec/PlistBuddy. Where the system has none,
# ours goes there (and is kept up to date); a PlistBuddy of the system's own is left alone.
target=/usr/libexec/PlistBuddy
if [ ! -e "$target" ] || grep -q "YumoClientSdk PlistBuddy" "$target" 2>/dev/null; then
    if [ "$(id -u)" -eq 0 ]; then
        install -D -m 0755 "$build_dir/tools/PlistBuddy" "$target"
    elif [ ! -e "$target" ]; then
        echo "build: run as root to install $target (the bundle-identifier tests skip without it)" >&2
    fi
fi
echo "$build_dir"
