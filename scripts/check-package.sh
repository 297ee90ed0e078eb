#!/bin/sh
# As a companion developer takes the SDK: builds the package, installs it with apt, builds the
# example out of tree with find_package and with pkg-config against the installed SDK, and runs
# both against the installed simulator under a private home and session bus. Run as root.
set -eu
cd "$(dirname "$0")/.."
package=$(sh scripts/package.sh | tail -n 1)
export DEBIAN_FRONTEND=noninteractive
apt-get install -y -q "./$package" >/dev/null
echo "installed $package"

work=$(mktemp -d "${TMPDIR:-/tmp}/ymexample-XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
cp examples/*.cpp examples/*.c examples/CMakeLists.txt examples/Makefile "$work/"
cmake -S "$work" -B "$work/cmake-build" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
echo "built with find_package: $work/cmake-build/{companion,poll_loop,glib_loop,c_companion}"
make -s -C "$work" all >/dev/null
echo "built with pkg-config:   $work/{companion,poll_loop,glib_loop,c_companion}"

export HOME="$work/home"
mkdir -p "$HOME"
ymsim install --version 5.6.0 >/dev/null
cat > "$work/run.sh" <<'RUN'
set -eu
"$HOME/Applications/yumoapp.app/Contents/MacOS/yumoapp" --quiet >/dev/null &
simulator=$!
trap 'kill $simulator' EXIT
ymctl status >/dev/null || true
for companion in "$1"/cmake-build/companion "$1"/cmake-build/poll_loop "$1"/cmake-build/glib_loop \
    "$1"/cmake-build/c_companion "$1"/companion "$1"/poll_loop "$1"/glib_loop "$1"/c_companion; do
    echo "running $companion"
    "$companion"
done
RUN
dbus-run-session -- sh "$work/run.sh" "$work" 2>/dev/null
echo "package check: passed"
