#!/bin/bash
# Figure 5: a busy companion forks children that use the SDK.
#   fig5-forks.sh BIN BUILD_DIR   (CHILDREN, default 300; CAP_SECONDS per child, default 10;
#                                  PAUSE_US between the parent's commands, default 5000)
# After the run: is the parent's device still in the shared list (ymctl devices), and did the
# simulator receive release 101 for it.
. "$(dirname "$0")/lib.sh"
desk_setup "$1" "$2"
children=${CHILDREN:-300}; cap=${CAP_SECONDS:-10}; pause=${PAUSE_US:-5000}
desk_install_sim 5.6.0
# Only the releases are kept of the simulator's output (the parent sends thousands of commands).
"$(desk_sim_executable)" --no-audio-events > >(grep --line-buffered -F '"AudioCmd":101}' > "$HOME/releases.txt") 2>&1 &
SIM_PID=$!
for i in $(seq 1 200); do [ -S "$CONTAINER/s.yyhost" ] && break; sleep 0.05; done
sleep 0.3
out=$("$BIN/forks" "$children" "$cap" "$pause")
listed=no
"$YMCTL" devices 2>/dev/null | grep -q '^ParentHeadset ' && listed=yes
sleep 0.5
desk_stop_sim
sleep 0.5   # the filter reads what the simulator printed last
releases=$(grep -c '"deviceName":"ParentHeadset"' "$HOME/releases.txt")
hung=$(desk_field "$out" hung); failed=$(desk_field "$out" failed)
cpu=$(desk_field "$out" parent_cpu_s); io=$(desk_field "$out" io_cpu_s); idle=$(desk_field "$out" idle_cpu_s)
commands=$(desk_field "$out" commands); forks_s=$(desk_field "$out" forks_s)
per=$(desk_field "$out" us_per_command); alone=$(desk_field "$out" us_per_command_alone)
echo "5 forks: $hung of $children children hung (>${cap} s), $failed failed; parent's device still listed: $listed; releases 101 of the parent's device seen by the client: $releases; parent CPU over the forks ${cpu} s in ${forks_s} s, its sender $per µs CPU per command ($commands commands, ${pause} µs apart; $alone µs before the forks), I/O thread ${io} s, CPU in 2 s after ${idle} s"
echo "json {\"figure\":5,\"children\":$children,\"cap_s\":$cap,\"hung\":$hung,\"failed\":$failed,\"parent_device_listed\":\"$listed\",\"releases_101\":$releases,\"parent_cpu_s\":$cpu,\"io_cpu_s\":$io,\"idle_cpu_s\":$idle,\"commands\":$commands,\"pause_us\":$pause,\"forks_s\":$forks_s,\"us_per_command\":$per,\"us_per_command_alone\":$alone}"
