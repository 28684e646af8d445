# Sourced by tests over real file systems, as SCRIPT OXTFSCTL AGENT_DIRECTORY with $tool and $agent set: on a private
# machine it makes ext4 and xfs images, mounted by loop. The rest of the script finds them in $base, their number in
# $number, and "/etc/mtab" with a line for each.
#
# Needs loop devices and mkfs.ext4; mkfs.xfs is taken when it is there. Exits with 77 where it cannot run.
. "$(dirname "$0")/privateMachine.sh"

for program in mkfs.ext4 losetup df; do
    command -v $program >/dev/null || skip "needs $program"
done
equal() { # what, is, expected
    [ "$2" = "$3" ] || fail "$1: is '$2', expected '$3'"
}

# An agent directory of its own: other tests are at work in the one below.
{ cp -r "${agent}lib" "$base/lib" && mount -t tmpfs -o mode=755 none "$agent"; } || skip "cannot mount over $agent"
mkdir "${agent}data" "${agent}work" "${agent}log" && chmod 750 "${agent}"/*/ && mv "$base/lib" "${agent}lib"

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
