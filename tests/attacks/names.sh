# Sourced by testAttacks.sh: names that any user can give a directory, and that somebody mounts a disk on.
#
# shellcheck disable=SC2015,SC2016 # "fail" succeeds; what others run is quoted

hostile=(
    '$(touch${IFS}PWNED)' '$(touch PWNED)' '`touch PWNED`' '; touch PWNED' '--help' '* ?' "it's \"quoted\"" 'back\slash\x41' $'two\nlines'
    $'tab\tbed' $'\e[31mred\e]0;title\a' $'C1 \u009b31m' $'bidi \u202egnp.exe\u2066' $'Latin-1 \xe9' 'ü → 語' '%s%n' '<img src=x onerror=x>' '#1'
)

mountHostile() {
    mkdir -p "$base/names"
    for name in "${hostile[@]}"; do
        name=${name//PWNED/pwned}
        mkdir -p "$base/names/$name"
        local shown=${name//\\/\\134}
        shown=${shown// /\\040} shown=${shown//$'\t'/\\011} shown=${shown//$'\n'/\\012}
        echo "$base/disk $base/names/$shown ext4 rw 0 0"
    done >"$base/etc/mtab"
}
unmountHostile() { echo "$base/disk $base/data ext4 rw 0 0" >"$base/etc/mtab"; }

# Nothing that a terminal would act on: control characters but line feed, C1, bidirectional overrides.
harmless() { # harmless WHAT FILE
    LC_ALL=C grep -aqP '[\x00-\x09\x0b-\x1f\x7f]|\xc2[\x80-\x9f]|\xe2\x80[\x8e\x8f\xa8-\xae]|\xe2\x81[\xa6-\xa9]' "$2" &&
        fail "$1 shows $(LC_ALL=C grep -aP '[\x00-\x09\x0b-\x1f\x7f]|\xc2[\x80-\x9f]|\xe2\x80[\x8e\x8f\xa8-\xae]|\xe2\x81[\xa6-\xa9]' "$2" | cat -v | head -n 2)"
}

# Every way in which a person reads them, in the locale that shows the most.
names() {
    export LC_ALL=C.UTF-8
    mountHostile
    printf '[[rule]]\nmount = "*"\nwarning = "20%%"\n' >"$base/rules"
    "$tool" monitor 1 on >/dev/null || fail "monitor" # they are all on one device, which the first one stands for
    for way in list "list -r" "list -P" why record check config save "log -n 1000" "watch --for 1" "apply --dry-run $base/rules"; do
        # shellcheck disable=SC2086 # a command and its options
        "$tool" $way >"$base/out" 2>&1
        [ $? -lt 3 ] && [ -s "$base/out" ] || fail "$way: $(cat "$base/out")"
        harmless "$way" "$base/out"
    done
    for index in $(seq ${#hostile[@]}); do
        "$tool" get "$index"
        "$tool" monitor "$index" off
    done >"$base/out" 2>&1
    harmless get "$base/out"
    "$tool" get $'/nowhere \u202e\u009b\e' >"$base/out" 2>&1
    harmless "a message" "$base/out"
    # What a shell reads is no command, and gives the names back as list shows them.
    "$tool" list -P -o MOUNTPOINT >"$base/out" && (cd "$base/names" && . "$base/out" && [[ $MOUNTPOINT == *"#1" ]]) ||
        fail "pairs: $(cat "$base/out")"
    # The metrics are a line for each sample, whatever is in the names.
    "$tool" list --format prometheus >"$base/out"
    grep -vqE '^(#|oxtfs_[a-z_]+(\{.*\})? -?[0-9.]+$)' "$base/out" && fail "metrics: $(grep -vE '^(#|oxtfs_)' "$base/out")"
    [ "$(grep -c '^oxtfs_filesystem_status' "$base/out")" = ${#hostile[@]} ] || fail "metrics without all file systems"
    namesInAlerts
    [ -e "$base/names/pwned" ] || [ -e pwned ] && fail "a name was run"
    unmountHostile
    unset LC_ALL
}

# A monitor with a page, and a program for alerts: each name reaches it as it is, and its message as a person reads it.
namesInAlerts() {
    printf '#!/bin/bash\n[ "$OXTFS_MOUNTPOINT" ] || exit 0\nprintf "%%s\\0" "$OXTFS_MOUNTPOINT" >%s/mount.$$\nprintf "%%s\\n" "$OXTFS_MESSAGE" >>%s/messages\n' \
        "$base" "$base" >"$base/program"
    chmod 755 "$base/program"
    printf 'listen = ["127.0.0.1:9633"]\nexec = ["%s/program"]\n' "$base" >"$base/settings"
    # A pass every second: no client may set that, but a save file may hold it.
    printf '# Version=1.0.0.0\n\1\0\12\0\20\16\74\0\0\0\0\0' >"$agent/data/oxtfssave.dat"
    : >"$base/messages"
    watch --settings "$base/settings"
    "$tool" monitor 1 on >/dev/null || fail "monitor"
    for _ in $(seq 100); do
        [ "$(wc -l <"$base/messages")" -ge ${#hostile[@]} ] && break
        sleep 0.1
    done
    # An alert is text: a byte that is no UTF-8 is replaced.
    printf "$base/names/%s\0" "${hostile[@]//PWNED/pwned}" | LC_ALL=C sed -z 's/\xe9$/\xef\xbf\xbd/' | sort -z >"$base/expected"
    sort -z "$base"/mount.* >"$base/mounts"
    cmp -s "$base/mounts" "$base/expected" || fail "the program for alerts gets $(tr '\0' '|' <"$base/mounts")"
    [ "$(wc -l <"$base/messages")" = ${#hostile[@]} ] || fail "messages: $(cat "$base/messages")"
    exec {web}<>/dev/tcp/127.0.0.1/9633
    printf 'GET / HTTP/1.1\r\nHost: localhost\r\n\r\n' >&"$web"
    timeout 5 tr -d '\r' <&"$web" >"$base/page"
    exec {web}>&-
    grep -q "${hostile[-1]}" "$base/page" && ! grep -q '<img' "$base/page" || fail "page: $(cat "$base/page")"
    kill -TERM "$watching"
    wait "$watching" || fail "watch ended badly: $(cat "$base/watch")"
    for file in page messages watch; do harmless "$file" "$base/$file"; done
    for file in "$agent"/log/*; do harmless "$file" "$file"; done
}

# A real bash, at a real terminal: types the beginning of the name, presses Tab, and sees which arguments bash makes of it.
said() { # how much since its prompt came
    if grep -q 'ready>' "$terminal"; then stat -c %s "$terminal"; fi
}
atATerminal() { # atATerminal KEYS...: each when it has said something and no more since, or after a minute
    local keys before end=$((SECONDS + 60))
    : >"$terminal"
    for keys in "$@" $'\nexit\n'; do
        before=
        until [ -n "$before" ] && [ "$(said)" = "$before" ] || [ $SECONDS -ge $end ]; do
            before=$(said)
            sleep 0.2
        done
        printf %s "$keys"
    done | TERM=dumb timeout 70 script -qec "bash --noprofile --rcfile $base/bashrc -i" /dev/null >>"$terminal" 2>&1
}
completesTo() { # completesTo NAME TYPED: ends the process that it runs in
    terminal=$(mktemp -p "$base")
    ARGUMENTS=$(mktemp -p "$base")
    export ARGUMENTS
    failures=0
    atATerminal "oxtfsctl get $2"$'\t'
    # What is no text stands there as list shows it.
    perl -i -pe 's/\\x([0-9a-f]{2})/chr hex $1/ge' "$ARGUMENTS"
    harmless "Tab" <(tr -d '\r\a' <"$terminal")
    cmp -s "$ARGUMENTS" <(printf '%s\0' get "$1") ||
        fail "$2 and Tab make $(tr '\0' '|' <"$ARGUMENTS") of $1: $(cat -v "$terminal")"
    exit $((failures > 0))
}
allCompleteTo() { # allCompleteTo NAME TYPED...: at so many terminals at once, which mostly wait
    local typed typing=()
    for typed in "${@:2}"; do
        (completesTo "$1" "$typed") &
        typing+=($!)
    done
    for typed in "${typing[@]}"; do wait "$typed" || failures=$((failures + 1)); done
    [ ! -e "$base/names/pwned" ] || fail "Tab ran $1"
    rm -f "$base/names/pwned"
}
completion() {
    mkdir -p "$base/names"
    cat >"$base/bashrc" <<BASH
cd $base/names
PS1='ready>'
source $here/../packaging/completion/oxtfsctl
oxtfsctl() { printf '%s\0' "\$@" >"\$ARGUMENTS"; }
BASH
    export LC_ALL=C.UTF-8
    for name in "${hostile[@]}"; do
        name=$base/names/${name//PWNED/pwned}
        mkdir -p "$name"
        mount -t tmpfs /dev/none "$name" || fail "cannot mount on $name"
        allCompleteTo "$name" "$base/na" "'$base/na" "\"$base/na"
        umount "$name"
    done
    # All of them at once: Tab shows them.
    for name in "${hostile[@]}"; do
        mount -t tmpfs /dev/none "$base/names/${name//PWNED/pwned}" || fail "cannot mount on $name"
    done
    terminal=$base/terminal
    atATerminal "oxtfsctl get $base/names/"$'\t\t' $'\ny'
    for shown in '\x1b[31mred\x1b]0;title\x07' 'bidi \xe2\x80\xaegnp' 'Latin-1 \xe9' 'two\x0alines' 'back\slash\x5cx41' 'ü → 語'; do
        grep -qF "$shown" "$terminal" || fail "Tab does not show $shown: $(cat -v "$terminal")"
    done
    harmless "a list of Tab's" <(tr -d '\r\a' <"$terminal")
    umount "$base"/names/*
    unset LC_ALL
    # The word breaks of bash are no end of a name.
    mkdir -p "$base/a=b:c d" && mount -t tmpfs /dev/none "$base/a=b:c d"
    allCompleteTo "$base/a=b:c d" "$base/a" "$base/a=" "$base/a=b:" "$base/a=b:c\ "
    umount "$base/a=b:c d"
}
