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
    sh -e "$here/../debian/oxtfs-tools.postrm" remove >"$base/out" 2>&1 || fail "apt remove would fail: $(cat "$base/out")"
    umount /var/lib
}

# A purge takes files of our names, and directories that the package made and that are empty then. A removal takes none.
purge() {
    local ours=(data/oxtfs{save.dat,monitor.json} work/oxtfs{.sock,ctl.lock,shm.key{0,2,2.bak.1}} log/{oxtfs.log{,.3},svalert.json{,.1}})
    mount -t tmpfs none /var/lib
    purged oxtfs-tools oxtfs-agent-standin oxtfs-provider
    purged oxtfs-provider # which the others need: what they left goes with it
    umount /var/lib
}
purged() { # PACKAGE...
    local package left keys="work/oxtfsshm.key0 work/oxtfsshm.key2 work/oxtfsshm.key2.bak.1 "
    mkdir -p /var/lib/oxtfs-provider "$agent"/{data,work,log,lib}
    printf "$agent/%s\n" data work log lib >/var/lib/oxtfs-provider/made
    (cd "$agent" && touch "${ours[@]}" data/agent.db data/oxtfssave.dat.mine log/svtrace.conf)
    for package; do
        sed "s,#AGENT_DIR#,$agent/," "$here/../debian/$package.postrm" >"$base/postrm"
        [ "$package" != "$1" ] || sh -e "$base/postrm" remove
        [ "$package" != "$1" ] || (cd "$agent" && ls "${ours[@]}" >/dev/null) || fail "a removal takes files"
        sh -e "$base/postrm" purge || fail "$package cannot be purged"
        if [ "$package" = oxtfs-agent-standin ]; then # the settings may be those of the library that is there
            left=$(cd "$agent" && printf "%s " [dwl]*/[aos]*)
            [ "$left" = "data/agent.db data/oxtfssave.dat data/oxtfssave.dat.mine log/svtrace.conf $keys" ] ||
                fail "purges of the other two leave $left"
            rm "$agent"/lib/libsv{trace,alert}.so
        fi
    done
    [ "$(cd "$agent" && printf "%s " * : */*)" = "data : data/agent.db data/oxtfssave.dat.mine " ] ||
        fail "a purge of $* leaves $(cd "$agent" && find . | tr '\n' ' ')"
    [ ! -e /var/lib/oxtfs-provider ] || fail "a purge leaves its state"
}

# Whoever has taken the object manager's port answers root's registration.
answeredByAStranger() {
    local port=$((20000 + RANDOM % 20000)) length
    for length in "BASH_VERSINFO[\$(touch $base/open/ran)]" 99999999 -1; do
        : >"$base/listens"
        "${stranger[@]}" perl -MIO::Socket::INET -e '
            my $listener = IO::Socket::INET->new(LocalAddr => "127.0.0.1", LocalPort => $ARGV[0], Listen => 1, ReuseAddr => 1);
            $| = 1;
            print "listens\n";
            my $client = $listener->accept();
            my $asked = "";
            sysread($client, $asked, 4096, length $asked) or last until $asked =~ m{</CIM>};
            print $client "HTTP/1.1 200 OK\r\nContent-Length: $ARGV[1]\r\n\r\n<x/>";
        ' "$port" "$length" >"$base/listens" 2>&1 &
        until grep -q listens "$base/listens"; do sleep 0.1; done
        timeout 20 bash "$here/../packaging/sfcb/sfcb-ask" "$port" root/x C >"$base/out" 2>&1 &&
            fail "the length $length is believed: $(cat "$base/out")"
    done
    [ ! -e "$base/open/ran" ] || fail "the answer ran a command as $(stat -c %U "$base/open/ran")"
}
