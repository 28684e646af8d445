#!/usr/bin/env bash
# realMounts.sh COUNT OUT BUILD NODE_EXPORTER: measures over so many bind mounts, ours beside df, findmnt and
# node_exporter's file-system collector, and leaves JSON files in OUT. For root, and a process namespace of its own:
#   unshare --mount --pid --ipc --fork --mount-proc bench/realMounts.sh ...
# so that the mounts, the segments and the exporter are gone with it.
set -euo pipefail
count=$1 out=$2 build=$3 exporter=$4
[ "$$" = 1 ] || { echo "realMounts.sh: not in a namespace of its own" >&2; exit 1; }

mkdir -p "$build/mounts/source"
for i in $(seq -f %04.0f "$count"); do
    mkdir -p "$build/mounts/$i"
    mount --bind "$build/mounts/source" "$build/mounts/$i"
done

options=(--benchmark_repetitions="${REPETITIONS:-9}" --benchmark_enable_random_interleaving=true --benchmark_out_format=json)
"$build/bench/benchPass" --real="$count" --benchmark_filter='^(pass|floor.*|part.*)/' --benchmark_min_time=0.03 \
    "${options[@]}" --benchmark_out="$out/real-pass-$count.json" >/dev/null
"$build/bench/benchProcess" --benchmark_min_time=0.01 "${options[@]}" \
    --benchmark_out="$out/real-process-$count.json" >/dev/null

[ -n "$exporter" ] || exit 0
address=127.0.0.1:19917
"$exporter" --collector.disable-defaults --collector.filesystem --web.disable-exporter-metrics \
    --web.listen-address="$address" >/dev/null 2>&1 &
exporter_id=$!
for _ in $(seq 50); do
    curl -sf "http://$address/" >/dev/null && break
    sleep 0.1
done
# The collector tells on the clock how long it took.
for _ in $(seq 40); do
    curl -sf "http://$address/metrics" |
        sed -n 's/^node_scrape_collector_duration_seconds{collector="filesystem"} //p'
done >"$out/real-exporter-$count.txt"
kill "$exporter_id"
