#!/bin/sh
# Sets up, builds and runs the demo: a companion talking to the simulated meeting client, under a
# private $HOME and a private session bus, so nothing of the real user is touched.
set -eu
cd "$(dirname "$0")/.."

build_dir=$(sh scripts/build.sh | tail -n 1)

demo_home=$(mktemp -d "${TMPDIR:-/tmp}/ymdemo-home-XXXXXX")
trap 'rm -rf "$demo_home"' EXIT INT TERM
export HOME="$demo_home"

if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
    dbus-run-session -- "$build_dir/tools/ymdemo" "$build_dir/tools"
else
    "$build_dir/tools/ymdemo" "$build_dir/tools"
fi
