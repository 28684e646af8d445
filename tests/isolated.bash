# Sourced by tests over real file systems, as SCRIPT OXTFSCTL AGENT_DIRECTORY with $tool and $agent set: makes ext4 and xfs
# images, mounted by loop in a private mount and IPC namespace in which the rest of the script then runs. It finds them
# in $base, their number in $number, and "/etc/mtab" with a line for each.
#
# Needs root, loop devices and mkfs.ext4; mkfs.xfs is taken when it is there. Exits with 77 where it cannot run.

skip() {
    echo "SKIP: $1"
    exit 77
}
failures=0
fail() {
    echo "FAIL: $1"
    failures=$((failures + 1))
}
equal() { # what, is, expected
    [ "$2" = "$3" ] || fail "$1: is '$2', expected '$3'"
}

if [ "${3:-}" != inside ]; then
    [ "$(id -u)" = 0 ] || skip "needs root"
    for program in unshare mkfs.ext4 losetup df; do
        command -v $program >/dev/null || skip "needs $program"
    done
    unshare --mount --ipc --propagation private true 2>/dev/null || skip "no right to make namespaces"
    base=$(mktemp -d) || skip "no temporary directory"
    unshare --mount --ipc --propagation private bash "$0" "$tool" "$agent" inside "$base"
    result=$?
    rm -rf --one-file-system "$base"
    exit $result
fi

base=$4
mount -t tmpfs -o mode=755 none "$base" || skip "cannot mount"
for part in data work log; do
    mount -t tmpfs -o mode=750 none "$agent/$part" || skip "cannot mount over $agent/$part"
done

# A block driver of this machine that serves fixed disks, or one that we say it has.
major=$(sed -n '/^Block devices:/,$s/^ *\([0-9]*\) \(sd\|md\|virtblk\|device-mapper\)$/\1/p' /proc/devices | head -n 1)
if [ -z "$major" ]; then
    printf 'Block devices:\n  8 sd\n\n' >"$base/devices"
    mount --bind "$base/devices" /proc/devices || skip "no known driver, and /proc/devices cannot be replaced"
    major=8
fi

# The mount table names a disk of that driver for each directory. "/etc/mtab" is a link into /proc in most places, so
# another /etc, of only what programs need to start, stands in for the whole.
{ mkdir "$base/etc" && cp -a /etc/ld.so.cache "$base/etc"; } || skip "cannot copy /etc/ld.so.cache"
number=0
for type in ext4 xfs; do
    command -v mkfs.$type >/dev/null || { echo "without $type: no mkfs.$type"; continue; }
    { truncate -s 320M "$base/$type.image" && mkfs.$type -q "$base/$type.image"; } || skip "mkfs.$type failed"
    mkdir "$base/$type"
    mount -o loop -t $type "$base/$type.image" "$base/$type" || { echo "without $type: it cannot be mounted"; continue; }
    number=$((number + 1))
    mknod "$base/disk$number" b "$major" $number
    echo "$base/disk$number $base/$type $type rw,relatime 0 0" >>"$base/etc/mtab"
done
[ $number -gt 0 ] || skip "no file system could be mounted"
mount --bind "$base/etc" /etc || skip "cannot mount over /etc"

mib() { # size or avail, of a directory, in whole MiB
    echo $(($(df --output="$1" -B1 "$2" | tail -n 1) / 1048576))
}
