#!/bin/sh
# Runs a companion against the simulated meeting client, in a home of its own:
#   with-simulator.sh YMSIM VERSION COMMAND [ARGUMENT ...]
# installs the simulator as VERSION under a fresh $HOME, starts it, runs the command, stops the
# simulator and removes the home. Exits with the command's status.
set -eu
ymsim=$1
version=$2
shift 2
home=$(mktemp -d "${TMPDIR:-/tmp}/ymexample-XXXXXX")
trap 'kill "$simulator" 2>/dev/null || true; rm -rf "$home"' EXIT INT TERM
export HOME="$home"
"$ymsim" install --version "$version" >/dev/null
fifo="$home/ready"
mkfifo "$fifo"
"$HOME/Applications/yumoapp.app/Contents/MacOS/yumoapp" --quiet >"$fifo" &
simulator=$!
read -r line <"$fifo"
[ "$line" = ready ] || { echo "with-simulator: the simulator did not start" >&2; exit 1; }
status=0
"$@" || status=$?
exit "$status"
