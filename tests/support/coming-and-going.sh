#!/bin/sh
# Runs a companion that follows the meeting client while the simulated client comes and goes:
#   coming-and-going.sh YMSIM COMMAND [ARGUMENT ...]
# In a fresh $HOME: installs the simulator as 5.6.0, starts the companion, then starts the client,
# stops it, installs 6.0.0 over it and removes it, waiting each time for the companion to print
# the change ("started: ", "quit: ", "updated: ", "removed: "). Then sends SIGTERM, which must end
# the companion with status 0. Prints the companion's output; exits 1 at the first step missed.
set -eu
ymsim=$1
shift
home=$(mktemp -d "${TMPDIR:-/tmp}/ymwatch-XXXXXX")
companion=
simulator=
trap 'kill "$simulator" "$companion" 2>/dev/null || true; rm -rf "$home"' EXIT INT TERM
export HOME="$home"
out="$home/companion.out"

# Waits (at most 30 s: a bound against a hang on a busy machine, not a measure) for the
# companion's output to hold a line starting with $1.
expect() {
    tries=0
    until grep -q "^$1" "$out"; do
        tries=$((tries + 1))
        if [ "$tries" -gt 300 ]; then
            echo "coming-and-going: no \"$1\" line from the companion; it printed:" >&2
            cat "$out" >&2
            exit 1
        fi
        sleep 0.1
    done
}

"$ymsim" install --version 5.6.0 >/dev/null
"$@" >"$out" 2>&1 &
companion=$!
expect "now: installed=yes running=no version=5.6.0"

fifo="$home/ready"
mkfifo "$fifo"
"$HOME/Applications/yumoapp.app/Contents/MacOS/yumoapp" --quiet >"$fifo" &
simulator=$!
read -r line <"$fifo"
[ "$line" = ready ] || { echo "coming-and-going: the simulator did not start" >&2; exit 1; }
expect "started: installed=yes running=yes version=5.6.0 transport=sockets"

kill "$simulator"
wait "$simulator" 2>/dev/null || true
simulator=
expect "quit: installed=yes running=no version=5.6.0 transport=none"

"$ymsim" install --version 6.0.0 >/dev/null
expect "updated: installed=yes running=no version=6.0.0"

rm -rf "$HOME/Applications/yumoapp.app"
expect "removed: installed=no"

kill -TERM "$companion"
status=0
wait "$companion" || status=$?
companion=
cat "$out"
[ "$status" -eq 0 ] || { echo "coming-and-going: the companion exited $status after SIGTERM" >&2; exit 1; }
