# Sourced by testAttacks.sh: files where others may write: the log directory, whose writer is another account on some
# machines, and the directory of the metrics' reader.
#
# shellcheck disable=SC2015,SC2016 # "fail" succeeds; what others run is quoted

strangeFiles=(
    'ln -s "$base/secret" NAME'
    'ln -s /dev/zero NAME'
    'mkfifo NAME'
    'mkdir NAME'
    'truncate -s 200G NAME'
)

logFiles() {
    echo "the secret" >"$base/secret"
    for way in "${strangeFiles[@]}"; do
        for name in oxtfs.log oxtfs.log.1; do
            rm -rf "$agent/log"/*
            [ $name = oxtfs.log ] || echo "a line" >"$agent/log/oxtfs.log"
            eval "${way//NAME/\"\$agent/log/\$name\"}"
            timeout 20 "$tool" log -n 100 >"$base/out" 2>&1
            [ $? != 124 ] || fail "log does not end: ${way//NAME/$name}"
            grep -q secret "$base/out" && fail "log shows what a link leads to: ${way//NAME/$name}"
            [ $name = oxtfs.log ] || grep -q "a line" "$base/out" || fail "log shows nothing beside: ${way//NAME/$name}"
        done
    done
}

watchedFiles() {
    for way in "${strangeFiles[@]}"; do
        rm -rf "$agent/log"/*
        eval "${way//NAME/\"\$agent/log/svalert.json\"}"
        watch
        kill -TERM "$watching"
        for _ in $(seq 100); do
            kill -0 "$watching" 2>/dev/null || break
            sleep 0.1
        done
        kill -KILL "$watching" 2>/dev/null && fail "watch is deaf to SIGTERM: ${way//NAME/svalert.json}"
        wait "$watching" || fail "watch ended badly: $(cat "$base/watch")"
    done
    # An alert of his own making is shown as one, and steers no terminal. A pass every second, as in names.sh.
    rm -rf "$agent/log"/*
    printf '# Version=1.0.0.0\n\1\0\12\0\20\16\74\0\0\0\0\0' >"$agent/data/oxtfssave.dat"
    watch
    printf '%s\n' '{"time":"now\n","severity":"\u001b[2J","event":"forged \u202e\u009b"}' >>"$agent/log/svalert.json"
    for _ in $(seq 100); do
        grep -q forged "$base/watch" && break
        sleep 0.1
    done
    kill -TERM "$watching"
    wait "$watching" || fail "watch ended badly: $(cat "$base/watch")"
    grep -q 'now.x0a alert .x1b.2J: forged' "$base/watch" || fail "watch shows $(cat "$base/watch")"
    harmless watch "$base/watch"
}

# The reader owns the directory above, as an exporter's account does, and puts things in the way 100 times over.
metrics() {
    mkdir -p "$base/reader/real" "$base/reader/mine" "$base/system"
    chown 65534 "$base/reader" "$base/reader/mine"
    echo precious >"$base/system/oxtfs.prom"
    chmod 600 "$base/system/oxtfs.prom"
    cp -p "$base/system/oxtfs.prom" "$base/before"
    local file=$base/reader/directory/oxtfs.prom
    ln -s real "$base/reader/directory"
    "${stranger[@]}" bash -c '
        cd "$1" || exit
        while :; do
            for to in real mine "$2"; do
                ln -sfn "$to" directory
                for name in mine/.oxtfs.* mine/oxtfs.prom; do
                    ln -sf "$2/oxtfs.prom" "$name" && : >"$1/tried"
                done
                rm -f mine/oxtfs.prom mine/.oxtfs.*
                mkdir mine/oxtfs.prom && rmdir mine/oxtfs.prom
            done
        done' reader "$base/reader" "$base/system" 2>/dev/null &
    until [ -e "$base/reader/tried" ]; do sleep 0.1; done
    for _ in $(seq 100); do
        writeMetrics "$file" >/dev/null 2>&1
        [ "$(stat -c '%a %s %u' "$base/system/oxtfs.prom")" = "$(stat -c '%a %s %u' "$base/before")" ] || break
    done
    [ "$(stat -c '%a %s' "$base/system/oxtfs.prom")" = "600 9" ] || fail "root's file is now $(ls -l "$base/system")"
    [ "$(ls -A "$base/system")" = oxtfs.prom ] || fail "files were made: $(ls -A "$base/system")"
    kill $!
    wait $! 2>/dev/null
    # Where nobody else can write, they appear as a whole, over whatever was there.
    ln -s "$base/before" "$base/system/new.prom"
    writeMetrics "$base/system/new.prom" || fail "no metrics"
    [ -f "$base/system/new.prom" ] && [ "$(stat -c %a "$base/system/new.prom")" = 644 ] || fail "$(ls -l "$base/system")"
    grep -q "$base/data" "$base/system/new.prom" || fail "no metrics: $(cat "$base/system/new.prom")"
    [ "$(cat "$base/before")" = precious ] || fail "a link was followed"
    # Cut off at any moment, they are the old or the new ones, and nothing lies beside them.
    for delay in $(seq -w 0 3 60); do
        writeMetrics "$base/system/new.prom" &
        sleep "0.0$delay"
        kill -KILL $! 2>/dev/null
        wait $! 2>/dev/null
        ipcrm --all=shm
        grep -q oxtfs_filesystems "$base/system/new.prom" || fail "cut off: $(cat "$base/system/new.prom")"
    done
    writeMetrics "$base/system/new.prom"
    [ "$(ls -mA "$base/system")" = "new.prom, oxtfs.prom" ] || fail "left behind: $(ls -A "$base/system")"
}
writeMetrics() { "$tool" list --format prometheus --output-file "$1"; }

lockedDirectory() {
    chmod 755 "$agent/work"
    (cd "$agent/work" && exec "${stranger[@]}" flock --no-fork . sleep 1000) &
    sleep 0.5
    works "beside a lock on work/"
}

openDirectories() {
    for part in data work; do
        chmod 777 "$agent/$part"
        says 3 "$agent/$part can be written by everybody" list
        chmod 750 "$agent/$part"
        chown 65534 "$agent/$part"
        says 3 "$agent/$part belongs to" list
        chown 0 "$agent/$part"
    done
    works "when the directories are root's"
}

# Root without any capability but one for the monitor, and an account that may only read segments for the metrics.
fewRights() {
    for part in data work; do chgrp 4711 "$agent/$part"; done
    mkdir "$base/metrics"
    chown 4711 "$base/metrics"
    local file=$base/metrics/oxtfs.prom
    local account=(setpriv --reuid=4711 --regid=4711 --clear-groups "--bounding-set=-all,+ipc_owner"
        "--inh-caps=-all,+ipc_owner" "--ambient-caps=-all,+ipc_owner")
    "${stranger[@]}" test -x "$tool" || { echo "the services without their rights: other accounts do not reach $tool"; return; }
    "${account[@]}" "$tool" list --format prometheus --output-file "$file" >"$base/out" 2>&1 && fail "metrics of no provider"
    grep -q "cannot be written: Permission denied" "$base/out" || fail "the metrics' account is told $(cat "$base/out")"
    grep -qx 'oxtfs_monitor_up 0' "$file" || fail "the metrics of no provider: $(cat "$file")"
    "${stranger[@]}" "$tool" peek >"$base/out" 2>&1 && fail "peek by a stranger"
    grep -q "cannot be told" "$base/out" || fail "a stranger is told $(cat "$base/out")"
    through=(setpriv "--bounding-set=-all,+dac_read_search" --inh-caps=-all)
    watch
    through=()
    "${account[@]}" "$tool" list --format prometheus --output-file "$file" || fail "the metrics' account gets no metrics"
    grep -q "$base/data" "$file" || fail "no metrics: $(cat "$file")"
    "${account[@]}" "$tool" peek --format prometheus | grep -q "$base/data" || fail "the metrics' account cannot read segments"
    kill -TERM "$watching"
    wait "$watching" || fail "watch without rights: $(cat "$base/watch")"
}
