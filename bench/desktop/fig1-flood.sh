#!/bin/bash
# Figure 1: presence asked from 8 threads against the simulator, then a drain.
#   fig1-flood.sh BIN BUILD_DIR   (FLOOD_SECONDS, default 10; DRAIN_SECONDS, default 15; THREADS,
#                                  default 8; FREEZE=1: the simulator is stopped for 2 s of every
#                                  2.2 s while the flood lasts, so texts wait in the queue far
#                                  longer than 3 s while the client still takes some now and then)
# Every call should answer 0; the simulator (5.6.0, sockets) prints a line for each request that
# reached it. The last such line's distance from the flood's end says how long the last text waited.
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
threads=${THREADS:-8}; flood=${FLOOD_SECONDS:-10}; drain=${DRAIN_SECONDS:-15}; freeze=${FREEZE:-0}

desk_install_sim 5.6.0
desk_start_sim || exit 1
count() { grep -c '^received socket client: .*"commandId":1[,}]' "$SIM_OUT"; }
"$BIN/flood" "$threads" "$flood" "$drain" >"$HOME/flood.out" &
flooder=$!
start=$(date +%s.%N)
# Until the flooder ends: the freezes, and every half second the size of the simulator's output (it
# grows only with what it receives), with the time since the start.
: >"$HOME/arrivals"
while kill -0 "$flooder" 2>/dev/null; do
    now=$(date +%s.%N)
    if [ "$freeze" = 1 ] && awk -v n="$now" -v s="$start" -v f="$flood" 'BEGIN { exit !(n - s < f) }'; then
        kill -STOP "$SIM_PID"; sleep 2; kill -CONT "$SIM_PID"; sleep 0.2
    else
        sleep 0.5
    fi
    echo "$(awk -v n="$(date +%s.%N)" -v s="$start" 'BEGIN { printf "%.1f", n - s }') $(stat -c %s "$SIM_OUT")" >>"$HOME/arrivals"
done
wait "$flooder"
out=$(cat "$HOME/flood.out")
size=$(stat -c %s "$SIM_OUT")
desk_stop_sim
received=$(count)
# The first sample at which the output had its final size: the last request arrived by then.
last=$(awk -v r="$size" '$2 == r { print $1; exit }' "$HOME/arrivals")
after=$(awk -v l="${last:-0}" -v f="$flood" 'BEGIN { printf "%.1f", l - f }')
calls=$(desk_field "$out" calls); nonzero=$(desk_field "$out" nonzero); answers=$(desk_field "$out" answers)
lost=$((calls - received))
pct=$(awk -v l="$lost" -v c="$calls" 'BEGIN { printf "%.1f", c ? 100 * l / c : 0 }')
echo "1 flood: $threads threads x ${flood} s$([ "$freeze" = 1 ] && echo ', client frozen 2 s of every 2.2 s'), ${drain} s drain: $calls calls ($nonzero not 0); reached the client $received; never arrived $lost ($pct %); answers delivered $answers; the last request arrived by ${after} s after the flood"
echo "json {\"figure\":1,\"threads\":$threads,\"flood_s\":$flood,\"drain_s\":$drain,\"freeze\":$freeze,\"calls\":$calls,\"nonzero\":$nonzero,\"received\":$received,\"lost\":$lost,\"lost_pct\":$pct,\"answers\":$answers,\"last_after_flood_s\":$after}"
