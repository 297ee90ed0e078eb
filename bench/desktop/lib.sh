# lib.sh: shell helpers of the desktop measurements, sourced by run.sh and by each figure script.
#
# A figure script is run as   bench/desktop/figN-NAME.sh BIN BUILD_DIR
# with $HOME a fresh temporary folder (run.sh makes one per figure) and, unless the figure makes its
# own, a private session bus. BIN holds the helper programs run.sh compiled. A figure prints one
# readable line and then one line "json {...}".

set -u

desk_setup() {   # BIN BUILD_DIR
    BIN=$1
    BUILD=$2
    YMSIM=$(desk_tool "$BUILD" ymsim) || { echo "no ymsim in $BUILD" >&2; exit 1; }
    YMCTL=$(desk_tool "$BUILD" ymctl) || { echo "no ymctl in $BUILD" >&2; exit 1; }
    case "$HOME" in
        /tmp/*) ;;
        *) echo "refusing to run with HOME=$HOME (not a temporary folder)" >&2; exit 1 ;;
    esac
    SIM_PID=
    SIM_OUT=$HOME/ymsim.out
    CONTAINER="$HOME/Library/Group Containers/Q4W7N2R8TX.YumoClient3rd"
    trap desk_cleanup EXIT
}

desk_tool() {    # BUILD_DIR NAME: the tool's path (build/tools/NAME or build/tools/NAME/NAME)
    local f
    for f in "$1/tools/$2" "$1/tools/$2/$2"; do
        if [ -f "$f" ] && [ -x "$f" ]; then echo "$f"; return 0; fi
    done
    return 1
}

desk_install_sim() {   # VERSION [DIR]
    "$YMSIM" install --version "$1" --dir "${2:-$HOME/Applications}" >/dev/null
}

desk_sim_executable() { echo "${1:-$HOME/Applications}/yumoapp.app/Contents/MacOS/yumoapp"; }

desk_start_sim() {     # ARGUMENTS...: runs the installed simulator, its output in $SIM_OUT
    "$(desk_sim_executable)" "$@" >"$SIM_OUT" 2>&1 &
    SIM_PID=$!
    local i
    for i in $(seq 1 200); do
        grep -q '^ready' "$SIM_OUT" 2>/dev/null && return 0
        sleep 0.05
    done
    echo "the simulator did not get ready" >&2
    return 1
}

desk_stop_sim() {      # ends the simulator (SIGTERM: with --quiet it prints "received N")
    if [ -n "$SIM_PID" ]; then
        kill -TERM "$SIM_PID" 2>/dev/null
        wait "$SIM_PID" 2>/dev/null
        SIM_PID=
    fi
}

desk_cleanup() {
    if [ -n "${SIM_PID:-}" ]; then kill -KILL "$SIM_PID" 2>/dev/null; wait "$SIM_PID" 2>/dev/null; fi
}

desk_field() {         # TEXT KEY: the word after KEY in TEXT
    echo "$1" | tr ' ' '\n' | awk -v k="$2" 'found { print; exit } $0 == k { found = 1 }'
}

desk_log() { echo "$CONTAINER/yumoclientsdk.log"; }
