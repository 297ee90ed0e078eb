#!/bin/bash
# Figure 3: the first call with a stopped session bus. A private dbus-daemon is started, stopped
# (SIGSTOP), and the companion's first call (ymGetSDKAvailableFeatures) is timed in a child that is
# killed at the cap.
#   fig3-stopped-bus.sh BIN BUILD_DIR   (CAP_SECONDS, default 20)
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
cap=${CAP_SECONDS:-20}
busdir=$(mktemp -d /tmp/ymdesk-bus.XXXXXX)
bus_pid=$(dbus-daemon --session --address="unix:path=$busdir/bus" --fork --print-pid=1 --nopidfile)
kill -STOP "$bus_pid"
start=$(date +%s%N)
out=$(DBUS_SESSION_BUS_ADDRESS="unix:path=$busdir/bus" timeout -s KILL "$cap" "$BIN/companion" first-call)
status=$?
end=$(date +%s%N)
kill -CONT "$bus_pid"; kill -TERM "$bus_pid"
rm -rf "$busdir"
if [ $status -eq 0 ] && [ -n "$out" ]; then
    ms=$(desk_field "$out" first_call_ms)
    wall=$(awk -v s="$start" -v e="$end" 'BEGIN { printf "%.1f", (e - s) / 1e6 }')
    echo "3 stopped bus: first call returned after $ms ms (process $wall ms)"
    echo "json {\"figure\":3,\"cap_s\":$cap,\"returned\":true,\"first_call_ms\":$ms,\"process_ms\":$wall}"
else
    echo "3 stopped bus: first call did not return: >$cap s (killed)"
    echo "json {\"figure\":3,\"cap_s\":$cap,\"returned\":false}"
fi
