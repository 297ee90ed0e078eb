#!/bin/sh
# As a companion developer takes the SDK: builds the Debian packages (scripts/build-packages.sh,
# lintian clean), installs them with apt, checks that the manual pages are there, builds every
# example as installed in /usr/share/doc/libyumoclientsdk-dev/examples against the installed SDK only
# (CMake's find_package and pkg-config; C++, C and GLib) and runs them, and the Python example, against the installed simulator under a private home and
# session bus. Run as root.
set -eu
cd "$(dirname "$0")/.."
sh scripts/build-packages.sh >/dev/null
export DEBIAN_FRONTEND=noninteractive
apt-get install -y -q ./build-deb/libyumoclientsdk1_*.deb ./build-deb/libyumoclientsdk-dev_*.deb \
    ./build-deb/yumoclientsdk-tools_*.deb ./build-deb/python3-yumoclientsdk_*.deb ./build-deb/libyumoclientsdk-doc_*.deb \
    ./build-deb/node-yumoclientsdk_*.deb >/dev/null
echo "installed: $(dpkg-query -W -f='${Package} ' libyumoclientsdk1 libyumoclientsdk-dev yumoclientsdk-tools python3-yumoclientsdk libyumoclientsdk-doc node-yumoclientsdk)"
for page in ymctl ymsim PlistBuddy; do
    man -w "$page" >/dev/null
done
echo "manual pages: $(man -w ymctl ymsim PlistBuddy | tr '\n' ' ')"

# Nothing of the build tree: the installed SDK alone.
unset LD_LIBRARY_PATH PKG_CONFIG_PATH CMAKE_PREFIX_PATH PYTHONPATH YUMOCLIENTSDK_ADDON || true
work=$(mktemp -d "${TMPDIR:-/tmp}/ymexample-XXXXXX")
trap 'rm -rf "$work"' EXIT INT TERM
examples=/usr/share/doc/libyumoclientsdk-dev/examples
cp "$examples"/*.cpp "$examples"/*.c "$examples"/*.py "$examples"/CMakeLists.txt "$examples"/Makefile "$work/"
cmake -S "$work" -B "$work/cmake-build" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
make -s -C "$work" all >/dev/null
echo "built from $examples with find_package and with pkg-config: companion poll_loop glib_loop c_companion client_watch c_client_watch"

export HOME="$work/home"
mkdir -p "$HOME"
ymsim install --version 5.6.0 >/dev/null
cat > "$work/run.sh" <<'RUN'
set -eu
"$HOME/Applications/yumoapp.app/Contents/MacOS/yumoapp" --quiet >/dev/null &
simulator=$!
trap 'kill $simulator' EXIT
ymctl status >/dev/null || true
for companion in companion poll_loop glib_loop c_companion; do
    for built in "$1/cmake-build/$companion" "$1/$companion"; do
        echo "running $built"
        "$built" >/dev/null
    done
done
echo "running $1/companion.py"
/usr/bin/python3 "$1/companion.py" >/dev/null
RUN
dbus-run-session -- sh "$work/run.sh" "$work" 2>/dev/null
# The companions that follow the meeting client, while it starts, quits, is updated and removed.
for built in "$work/cmake-build/client_watch" "$work/client_watch" "$work/cmake-build/c_client_watch" "$work/c_client_watch"; do
    echo "running $built as the client comes and goes"
    dbus-run-session -- sh tests/support/coming-and-going.sh "$(command -v ymsim)" "$built" >/dev/null 2>&1
done
echo "running $work/asyncio_companion.py as the client comes and goes"
dbus-run-session -- sh tests/support/coming-and-going.sh "$(command -v ymsim)" /usr/bin/python3 "$work/asyncio_companion.py" >/dev/null 2>&1

# The Node.js module, as a JavaScript developer takes it: Debian's package, then the npm tarball
# packed from the tree (with the installed addon in it, and without one) and installed offline.
node_module=$(dpkg -L node-yumoclientsdk | grep '/nodejs/yumoclientsdk$')
run_node_checks() {
    echo "running examples/node_companion.mjs and the transports' tests with $1"
    YUMO_MODULE="$1" YMSIM="$(command -v ymsim)" dbus-run-session -- \
        node --test tests/node/example.test.mjs tests/node/transports.test.mjs >"$work/node-test.out" 2>&1 ||
        { cat "$work/node-test.out"; exit 1; }
}
run_node_checks "$node_module"
# With a Node.js that does not look in /usr/lib/<arch>/nodejs: Debian's copy linked into a project.
mkdir -p "$work/project-linked"
(cd "$work/project-linked" && npm init -y >/dev/null && npm install --offline --no-audit --no-fund "$node_module" >/dev/null &&
    node --input-type=module -e "import yumo from 'yumoclientsdk'; if (yumo.availableFeatures() !== 3) process.exit(1);")
echo "imported Debian's module linked into a fresh project with npm install $node_module"
for carried in yes no; do
    project="$work/project-$carried"
    mkdir -p "$project"
    if [ "$carried" = yes ]; then addon="$node_module/build/Release/yumoclientsdk.node"; else addon=/nonexistent; fi
    tarball=$(cd node && YUMOCLIENTSDK_ADDON="$addon" npm pack --silent --pack-destination "$work" 2>/dev/null | tail -n 1)
    (cd "$project" && npm init -y >/dev/null && npm install --offline --no-audit --no-fund "$work/$tarball" >/dev/null)
    echo "installed $tarball offline into a fresh project ($( [ "$carried" = yes ] && echo 'its own addon' || echo 'addon built at install'))"
    run_node_checks "$project/node_modules/yumoclientsdk"
done
echo "package check: passed"
