#!/bin/sh
# Holds what a command costs to the figure kept in the tree (bench/instructions.json): user-space
# instructions per SetAudioCmd, per GetIMPresenceStatus round trip, per audio event received (up
# to the delegate) and per audio event read off its socket, counted by callgrind with the
# simulator running. Instructions, not time: the same on any machine with the same packages,
# however busy. Fails when a figure grows by more than 20 % over the one kept.
#   scripts/check-instructions.sh            build (scripts/build.sh), count, compare
#   scripts/check-instructions.sh --update   count, and keep the figures counted
set -eu
cd "$(dirname "$0")/.."
kept=bench/instructions.json
case "${1:-}" in
    "" | --update) ;;
    *) echo "check-instructions: unknown argument \"$1\": --update or nothing" >&2; exit 64 ;;
esac
build_dir=$(sh scripts/build.sh | tail -n 1)
work=$(mktemp -d "${TMPDIR:-/tmp}/yminstructions-XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
dbus-run-session -- "$build_dir/bench/ymbench" --instructions --json "$work/counted.json" 2>/dev/null
exec python3 - "$kept" "$work/counted.json" "${1:-}" <<'PYTHON'
import json, sys
kept_path, counted_path, mode = sys.argv[1:4]
counted = json.load(open(counted_path)).get("instructions", {})
names = ("audioCommand", "presenceRoundTrip", "audioEventReceived", "audioEventRead")
if any(not isinstance(counted.get(name), int) for name in names):
    sys.exit("check-instructions: the commands could not be counted (is valgrind installed?)")
if mode == "--update":
    with open(kept_path, "w") as out:
        json.dump({name: counted[name] for name in names}, out, indent=2)
        out.write("\n")
    print(f"check-instructions: {kept_path} now keeps " + ", ".join(f"{name} {counted[name]}" for name in names))
    sys.exit(0)
kept = json.load(open(kept_path))
failed = False
for name in names:
    limit = kept[name] * 1.2
    verdict = "ok" if counted[name] <= limit else "TOO MANY"
    failed = failed or counted[name] > limit
    print(f"check-instructions: {name}: {counted[name]} instructions, kept {kept[name]}, limit {int(limit)}: {verdict}")
if failed:
    sys.exit(f"check-instructions: a command costs more than 20 % over {kept_path}")
PYTHON
