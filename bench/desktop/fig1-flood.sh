#!/bin/bash
# Figure 1: presence asked from 8 threads against the simulator, then a drain.
#   fig1-flood.sh BIN BUILD_DIR        (FLOOD_SECONDS, default 10; DRAIN_SECONDS, default 15; THREADS, default 8)
# Every call should answer 0; the simulator (5.6.0, sockets) prints a line for each request that
# reached it.
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
threads=${THREADS:-8}; flood=${FLOOD_SECONDS:-10}; drain=${DRAIN_SECONDS:-15}

desk_install_sim 5.6.0
desk_start_sim || exit 1
out=$("$BIN/flood" "$threads" "$flood" "$drain")
desk_stop_sim
received=$(grep -c '^received socket client: .*"commandId":1[,}]' "$SIM_OUT")
calls=$(desk_field "$out" calls); nonzero=$(desk_field "$out" nonzero); answers=$(desk_field "$out" answers)
lost=$((calls - received))
pct=$(awk -v l="$lost" -v c="$calls" 'BEGIN { printf "%.1f", c ? 100 * l / c : 0 }')
echo "1 flood: $threads threads x ${flood} s, ${drain} s drain: $calls calls ($nonzero not 0); reached the client $received; never arrived $lost ($pct %); answers delivered $answers"
echo "json {\"figure\":1,\"threads\":$threads,\"flood_s\":$flood,\"drain_s\":$drain,\"calls\":$calls,\"nonzero\":$nonzero,\"received\":$received,\"lost\":$lost,\"lost_pct\":$pct,\"answers\":$answers}"
