#!/bin/sh
# Sets up, builds and runs the demo: a companion talking to the simulated meeting client, under a
# private $HOME and a private session bus, so nothing of the real user is touched.
set -eu
cd "$(dirname "$0")/.."

build_dir=$(sh scripts/build.sh | tail -n 1)

demo_home=$(mktemp -d "${TMPDIR:-/tmp}/ymdemo-home-XXXXXX")
trap 'rm -rf "$demo_home"' EXIT INT TERM
export HOME="$demo_home"

# The demo's own diagnostics go to the SDK's log file; what else reaches standard error (the
# private bus's start-up notes) is shown only when the demo fails.
errors="$demo_home/demo-stderr.txt"
status=0
if [ -z "${DBUS_SESSION_BUS_ADDRESS:-}" ]; then
    dbus-run-session -- "$build_dir/tools/ymdemo" "$build_dir/tools" 2>"$errors" || status=$?
else
    "$build_dir/tools/ymdemo" "$build_dir/tools" 2>"$errors" || status=$?
fi
if [ "$status" -ne 0 ]; then
    cat "$errors" >&2
fi

log="$HOME/Library/Group Containers/Q4W7N2R8TX.YumoClient3rd/yumoclientsdk.log"
if [ -f "$log" ]; then
    echo
    echo "The SDK wrote $(wc -l < "$log") lines to its log, yumoclientsdk.log in the group container; the companion's calls:"
    grep -E '>> |<< ' "$log" | head -n 8 | sed 's/^/   /'
fi
exit "$status"
