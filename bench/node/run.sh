#!/bin/sh
# The Node.js module's own cost: a presence round trip and 10,000 audio commands (sent, and their
# events back) from JavaScript and from C, against one simulated meeting client, in one run.
#   bench/node/run.sh [BUILD_DIR] [ROUNDS]     (defaults: build, 2000 presence round trips)
# Prints a table with the ratios JavaScript / C.
set -eu
tree=$(cd "$(dirname "$0")/../.." && pwd)
build=$(cd "${1:-$tree/build}" && pwd)
rounds=${2:-2000}
commands=10000
[ -f "$build/node/yumoclientsdk.node" ] || { echo "run.sh: no $build/node/yumoclientsdk.node: build the tree with Node.js there" >&2; exit 1; }
work=$(mktemp -d "${TMPDIR:-/tmp}/ymnodebench-XXXXXX")
trap 'kill "$simulator" 2>/dev/null || true; rm -rf "$work"' EXIT INT TERM
cc -O2 -Wall -Wextra -I"$tree/include" "$tree/bench/node/round_trips.c" -o "$work/round_trips" \
    -L"$build" -lYumoClientSdk -Wl,-rpath,"$build"
export HOME="$work/home"
mkdir -p "$HOME"
"$build/tools/ymsim" install --version 5.6.0 >/dev/null
mkfifo "$work/ready"
"$HOME/Applications/yumoapp.app/Contents/MacOS/yumoapp" --quiet >"$work/ready" &
simulator=$!
read -r line <"$work/ready"
c=$("$work/round_trips" "$rounds" "$commands")
js=$(YUMOCLIENTSDK_ADDON="$build/node/yumoclientsdk.node" node "$tree/bench/node/round_trips.mjs" "$tree/node" "$rounds" "$commands")
node -e '
const [c, js] = [JSON.parse(process.argv[1]), JSON.parse(process.argv[2])];
const row = (what, key, unit) => console.log(`| ${what} | ${c[key]} ${unit} | ${js[key]} ${unit} | ${(js[key] / c[key]).toFixed(2)}× |`);
console.log("| figure | C | JavaScript | JavaScript / C |\n| --- | ---: | ---: | ---: |");
row("presence round trip, median", "presenceMedianMicroseconds", "µs");
row("10,000 audio commands sent and their events received", "audioCommandsMilliseconds", "ms");
console.log(`| audio events received | ${c.audioEvents} | ${js.audioEvents} | |`);
' "$c" "$js"
