#!/bin/bash
# run.sh: the desktop measurements of the event core (docs/RELIABILITY.md, "The event core on a
# desktop"), against any tree and build of this SDK.
#
#   bench/desktop/run.sh [--json FILE] TREE BUILD_DIR [FIGURE...]
#
# TREE is a source tree (its include/ is used), BUILD_DIR a build of it (libYumoClientSdk.so,
# tools/ymsim, tools/ymctl). The helper programs are compiled from this folder into a temporary
# folder against that build, so that the same script measures an old build and a new one.
# FIGURE: 1 to 9 (default: all). Each figure runs with a fresh temporary $HOME and, except 3 and 8
# which make their own, a private session bus (dbus-run-session); nothing of the real user is
# touched. Figure 8 needs root (it runs as uid 65534). One readable line per figure; with --json,
# a JSON document with every figure's numbers as well.
#
# Durations (about): 1: 27 s, 2: 9 s, 3: up to 20 s, 4: 6 s, 5: 5 s + 10 s per hung child, 6: 11 s,
# 7: 3 s, 8: up to 3 min, 9: 10 s. Each figure's variables are in its script (figN-*.sh).
set -u
json=
if [ "${1:-}" = "--json" ]; then json=$2; shift 2; fi
if [ $# -lt 2 ]; then
    sed -n '2,18p' "$0" | sed 's/^# \{0,1\}//'
    exit 64
fi
here=$(cd "$(dirname "$0")" && pwd)
tree=$(cd "$1" && pwd)
build=$(cd "$2" && pwd)
shift 2
figures=("$@")
[ ${#figures[@]} -eq 0 ] && figures=(1 2 3 4 5 6 7 8 9)

[ -e "$build/libYumoClientSdk.so" ] || { echo "no libYumoClientSdk.so in $build" >&2; exit 1; }

# Nothing of the caller's session is used.
unset DBUS_SESSION_BUS_ADDRESS XDG_RUNTIME_DIR YUMOCLIENTSDK_STDERR YUMOCLIENTSDK_LOG_LIMIT

bin=$(mktemp -d /tmp/ymdesk-bin.XXXXXX)
chmod 755 "$bin"   # figure 8 runs the helpers as another user
trap 'rm -rf "$bin"' EXIT
flags=(-O2 -g -pthread "-I$tree/include" "-L$build" -lYumoClientSdk "-Wl,-rpath,$build")
compile() {   # NAME SOURCE
    case "$2" in
        *.c) cc -std=c11 -D_GNU_SOURCE "$here/$2" -o "$bin/$1" "${flags[@]}" ;;
        *) c++ -std=c++17 -D_GNU_SOURCE "$here/$2" -o "$bin/$1" "${flags[@]}" ;;
    esac || { echo "cannot compile $2" >&2; exit 1; }
}
declare -A source=([flood]=flood.cpp [peer]=peer.cpp [companion]=companion.c [forks]=forks.cpp
                   [wakeups]=wakeups.cpp [facades]=facades.cpp [inotify_delay]=inotify_delay.cpp
                   [logwriters]=logwriters.cpp)
declare -A needs=([1]="flood" [2]="peer companion" [3]="companion" [4]="peer companion" [5]="forks"
                  [6]="wakeups" [7]="facades" [8]="inotify_delay" [9]="logwriters")
declare -A script=([1]=fig1-flood.sh [2]=fig2-memory.sh [3]=fig3-stopped-bus.sh [4]=fig4-accept-close.sh
                   [5]=fig5-forks.sh [6]=fig6-wakeups.sh [7]=fig7-facades.sh [8]=fig8-inotify.sh [9]=fig9-log.sh)
declare -A built=()
for f in "${figures[@]}"; do
    [ -n "${script[$f]:-}" ] || { echo "no figure $f (1 to 9)" >&2; exit 64; }
    for p in ${needs[$f]}; do
        [ -n "${built[$p]:-}" ] || { compile "$p" "${source[$p]}"; built[$p]=1; }
    done
done

commit=$(git -C "$tree" rev-parse --short HEAD 2>/dev/null || echo unknown)
dirty=$(git -C "$tree" status --porcelain --untracked-files=no 2>/dev/null | wc -l)
echo "# tree $tree (commit $commit$([ "$dirty" != 0 ] && echo ", $dirty files changed")), build $build, $(date -u +%Y-%m-%dT%H:%M:%SZ), $(nproc) cores"
records=()
for f in "${figures[@]}"; do
    home=$(mktemp -d /tmp/ymdesk-home.XXXXXX)
    case $f in
        3|8) output=$(HOME=$home bash "$here/${script[$f]}" "$bin" "$build" 2>&1) ;;
        *) output=$(HOME=$home dbus-run-session -- bash "$here/${script[$f]}" "$bin" "$build" 2>&1) ;;
    esac
    rm -rf "$home"
    echo "$output" | grep -v -e "^json " -e "^dbus-daemon\[.*Failed to set fd limit"
    record=$(echo "$output" | sed -n 's/^json //p' | tail -1)
    [ -n "$record" ] && records+=("$record")
done
if [ -n "$json" ]; then
    {
        echo "{\"tree\":\"$tree\",\"commit\":\"$commit\",\"changed_files\":$dirty,\"build\":\"$build\",\"figures\":["
        for i in "${!records[@]}"; do
            [ "$i" -gt 0 ] && echo ","
            echo -n "${records[$i]}"
        done
        echo "]}"
    } > "$json"
fi
