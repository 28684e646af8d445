#!/bin/bash
# The provider over real file systems: ext4 and xfs images, mounted by loop on a private machine, shown by oxtfsctl with
# the numbers that df shows; and in service mode one of them filled and freed, with its alerts.
#
# Needs root, loop devices and mkfs.ext4; mkfs.xfs is taken when it is there. Exits with 77 where it cannot run.
set -u
PATH=$PATH:/usr/sbin:/sbin
tool=${1:?usage: testMounts.sh OXTFSCTL AGENT_DIRECTORY}
agent=${2:?usage: testMounts.sh OXTFSCTL AGENT_DIRECTORY}

. "$(dirname "$0")/fileSystems.sh"

# Each is shown with the numbers that df shows, and with the thresholds that follow.
index=0
while read -r device directory type _; do
    index=$((index + 1))
    shown=$("$tool" get --json "$directory")
    field() { echo "$shown" | sed -n "s/.*\"$1\": *\"\{0,1\}\([^\",]*\).*/\1/p"; }
    size=$(mib size "$directory")
    equal "$type" \
        "$(for name in index device type drive monitored status size free warning fatal; do field $name; done |
            tr '\n' ' ')" \
        "$index $device $type fixed true normal $size $(mib avail "$directory") $((size / 10)) $((size / 100)) "
done </etc/mtab
equal "number of file systems" "$("$tool" total --json | tr -cd 0-9)" "$number"

# In service mode, with a pass every second: no client may set that, but a save file may hold it.
printf '# Version=1.0.0.0\n\1\0\12\0\20\16\74\0\0\0\0\0' >"$agent/data/oxtfssave.dat"
"$tool" watch >"$base/watch" 2>&1 &
watch=$!
alerts=0
expectAlert() { # event, further fields of the alert
    alerts=$((alerts + 1))
    for _ in $(seq 100); do
        line=$(sed -n "${alerts}s/.*\"eventId\":\"\([^\"]*\)\".*\"strings\":\[\(.*\)\]}/\1,\2/p" "$agent/log/svalert.json" \
            2>/dev/null | tr -d '"' | tr ',' ' ' | sed 's, *$,,')
        [ -z "$line" ] || break
        sleep 0.2
    done
    equal "alert $alerts" "$line" "$*"
}
fill() { # file, MiB
    { fallocate -l "$2M" "$1" && sync -f "$1"; } || fail "cannot write $1"
}
expectAlert 0x400407D0 # the saved records were none
while read -r device directory type _; do
    size=$(mib size "$directory")
    fill "$directory/first" $(($(mib avail "$directory") - size / 20))
    expectAlert 0x800403E9 "$device" "$directory" "$(mib avail "$directory")" "$size" $((size / 10))
    fill "$directory/second" "$(mib avail "$directory")"
    expectAlert 0xC00403E8 "$device" "$directory" "$(mib avail "$directory")" "$size" $((size / 100))
    rm "$directory/first"
    sync -f "$directory"
    expectAlert 0x400403EA "$device" "$directory" "$(mib avail "$directory")" "$size"
done </etc/mtab
kill -TERM $watch
wait $watch || fail "watch ended with $?: $(cat "$base/watch")"
equal "alerts" "$(wc -l <"$agent/log/svalert.json")" $alerts
equal "save file" "$(stat -c %s "$agent/data/oxtfssave.dat")" $((30 + 1840 * number))
equal "segments" "$(($(wc -l </proc/sysvipc/shm) - 1))" 0

[ "$failures" = 0 ] && echo "$number file systems, $alerts alerts: as df says"
exit $((failures > 0))
