#!/bin/bash
# Figure 9: lines missing from the shared log.
#   (a) four writers, each with a 64 KiB running limit, send COUNT numbered commands at once; of the
#       lines written after the last cut, how many are not in the visible log (ROUNDS times, summed:
#       only a few dozen lines follow the last cut in each);
#   (b) a companion writes until the log passes 102400 bytes, `ymctl status` runs beside it, the
#       companion writes COUNT_B more lines: how many reach the visible log.
#   fig9-log.sh BIN BUILD_DIR   (COUNT, default 1000, one every INTERVAL_US, default 500; ROUNDS, default 5;
#                              COUNT_B, default 4000)
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
count=${COUNT:-1000}; count_b=${COUNT_B:-4000}; interval=${INTERVAL_US:-500}; rounds=${ROUNDS:-5}
missing=0; of=0; absent=0
for round in $(seq 1 "$rounds"); do
    rm -rf "$CONTAINER" "$HOME"/times.*
    start=$(( $(date +%s%N) + 500000000 ))
    pids=()
    for w in 1 2 3 4; do
        "$BIN/logwriters" writer "$w" "$count" "$HOME/times.$w" "$start" "$interval" &
        pids+=($!)
    done
    wait "${pids[@]}"
    analysis=$("$BIN/logwriters" analyze "$HOME"/times.1 "$HOME"/times.2 "$HOME"/times.3 "$HOME"/times.4)
    total=$(echo "$analysis" | grep '^missing')
    missing=$((missing + $(desk_field "$total" missing))); of=$((of + $(desk_field "$total" of)))
    absent=$((absent + $(desk_field "$total" writers_absent)))
    echo "   round $round: $total" >&2
done
pct=$(awk -v m="$missing" -v o="$of" 'BEGIN { printf "%.1f", o ? 100 * m / o : 0 }')

rm -rf "$CONTAINER"
out=$("$BIN/logwriters" ymctl "$YMCTL" "$count_b")
reached=$(desk_field "$out" reached); size=$(desk_field "$out" log_bytes_before)
echo "9 shared log: four writers (64 KiB limit, $count lines each, $rounds rounds): $missing of $of lines written after the last cut missing ($pct %), absent from the file $absent of $((4 * rounds)) writers; beside \`ymctl status\` (log at $size bytes): $reached of $count_b next lines reached the visible log"
echo "json {\"figure\":9,\"count\":$count,\"rounds\":$rounds,\"missing\":$missing,\"expected\":$of,\"missing_pct\":$pct,\"writers_absent\":$absent,\"ymctl_log_bytes\":$size,\"ymctl_reached\":$reached,\"ymctl_lines\":$count_b}"
