# Sourced by testAttacks.sh: the machine that is attacked, with one disk file system, which the mount table names under a
# directory, and the object manager's commands.
#
# shellcheck disable=SC2015,SC2016 # "fail" succeeds; what others run is quoted

fixture() {
    major=$(sed -n '/^Block devices:/,$s/^ *\([0-9]*\) \(sd\|virtblk\)$/\1/p' /proc/devices | head -n 1)
    if [ -z "$major" ]; then
        printf 'Block devices:\n  8 sd\n\n' >"$base/devices"
        mount --bind "$base/devices" /proc/devices || skip "no known driver, and /proc/devices cannot be replaced"
        major=8
    fi
    mkdir "$base/data" "$base/etc" "$base/open"
    chmod 1777 "$base/open"
    { mknod "$base/disk" b "$major" 1 && mount -t tmpfs -o size=200m none "$base/data"; } || skip "cannot make a disk"
    # "/etc/mtab" is a link into /proc, so another /etc stands in for the whole, with what programs need to start.
    cp -a /etc/ld.so.cache "$base/etc" || skip "cannot copy /etc/ld.so.cache"
    echo root:x:0:0::/:/bin/sh >"$base/etc/passwd"
    echo "$base/disk $base/data ext4 rw 0 0" >"$base/etc/mtab"
    mount --bind "$base/etc" /etc || skip "cannot mount over /etc"
}

# A program of any user's that bears the daemon's name, and that runs before the daemon.
fakeDaemon() {
    local prefix=$base/sfcb
    fake_sfcb "$prefix" "$daemon"
    install_register "$register"
    cp "$daemon" "$base/open/sfcbd"
    : >"$base/open/sfcbd.ran"
    chmod 666 "$base/open/sfcbd.ran"
    "${stranger[@]}" "$base/open/sfcbd" &
    until grep -q 65534 "$base/open/sfcbd.ran"; do sleep 0.1; done
    sh "$register" install >"$base/out" 2>&1 || fail "install: $(cat "$base/out")"
    kill -0 $! || fail "the stranger's program was ended"
    # Beside the daemon itself, and once more when an upgrade has replaced the daemon.
    for _ in 1 2; do
        "$prefix/sbin/sfcbd" -d
        sh "$register" install --reload >"$base/out" 2>&1
        grep -q "it answers" "$base/out" || fail "the daemon was not restarted: $(cat "$base/out")"
        kill -0 $! || fail "the stranger's program was ended"
        rm "$prefix/sbin/sfcbd" && cp "$daemon" "$prefix/sbin/sfcbd"
        kill $(pgrep -U 0 -x sfcbd)
    done
    grep -q '^0$' "$base/open/sfcbd.ran" && fail "the stranger's program ran as root"
}

removal() {
    mount -t tmpfs none /var/lib && mkdir -p /var/lib/prometheus/node-exporter/oxtfs.prom
    sh -e "$here/../packaging/debian/tools.postrm.in" remove >"$base/out" 2>&1 || fail "apt remove would fail: $(cat "$base/out")"
    umount /var/lib
}
