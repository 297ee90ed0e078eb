#!/bin/sh
# Sets up, builds, and runs the benchmarks on a private session bus; prints a table and writes
# build/bench-results.json. --quick runs a tenth of the iterations; --losses measures instead
# what the SDK loses by design (docs/RELIABILITY.md).
set -eu
cd "$(dirname "$0")/.."
build_dir=$(sh scripts/build.sh | tail -n 1)
exec dbus-run-session -- "$build_dir/bench/ymbench" --json "$build_dir/bench-results.json" "$@" 2>/dev/null
