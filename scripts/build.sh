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
cmake --build "$build_dir"
echo "$build_dir"
