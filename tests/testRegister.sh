#!/bin/bash
# oxtfs-register over an object manager of the tests' own: nothing is lost when a registration fails or is cut off, and
# a restart is over when the new daemon has answered.
#
# Needs root and the right to make namespaces. Exits with 77 where it cannot run.
# shellcheck disable=SC2015 # "fail" succeeds
set -u
register=${1:?usage: testRegister.sh OXTFS-REGISTER DAEMON} daemon=${2:?usage: testRegister.sh OXTFS-REGISTER DAEMON}
here=$(dirname "$(realpath "$0")")
. "$here/privateMachine.sh"
. "$here/fakeSfcb.sh"

run() { # run EXIT TEXT ARGUMENT...: how it ends, and what it has to say
    local output status
    output=$(sh "$register" "${@:3}" 2>&1)
    status=$?
    [ $status = "$1" ] && [[ $output == *"$2"* ]] || fail "oxtfs-register ${*:3}: exit $status, expected $1 and '$2': $output"
}
unchanged() { # unchanged WHAT: since `remember`
    diff -r --no-dereference "$base"/before "$prefix/var" >"$base"/difference || fail "$1 changed $(cat "$base"/difference)"
    [ -L "$prefix/lib/cmpi/libOXTFileSystemProvider.so" ] || fail "$1 took the library's link away"
}
remember() {
    rm -rf "$base"/before
    cp -a "$prefix/var" "$base"/before
    rm -rf "$base"/before/registration/*.previous "$prefix"/var/registration/*.previous
}
starts() { wc -l <"$prefix/sbin/sfcbd.ran"; }
ways() { printf %s "$*" >"$prefix/sbin/sfcbd.ways"; }

prefix=$base/sfcb
fake_sfcb "$prefix" "$daemon"
install_register "$register"
sed -i 's/^daemon_ends_within=.*/daemon_ends_within=2/; s/^daemon_answers_within=.*/daemon_answers_within=3/' \
    "$shared/sfcb-daemon.sh"
staged=$prefix/var/stage/mofs/root
other=$staged/cimv2/Other.mof
mkdir -p "${other%/*}"
: >"$other"

# Registered and taken out again, with nothing left behind; shown first without a change.
cp -a "$prefix"/var "$base"/before
run 0 "add $prefix/var/stage/regs/OXT_FileSystem.reg" install --dry-run
run 0 "link $prefix/lib/cmpi/libOXTFileSystemProvider.so to $library" install --dry-run
diff -r "$base"/before "$prefix"/var || fail "--dry-run changed something"
run 1 "not registered" status
run 0 "reads the registration when it starts" install
run 0 "is registered" status
[ "$(readlink "$prefix"/lib/cmpi/libOXTFileSystemProvider.so)" = "$library" ] || fail "the library is not linked"
run 0 "Nothing to change." install
rm "$prefix"/lib/cmpi/libOXTFileSystemProvider.so
run 0 "Linked" install

# Another product's schema does not compile: nothing is lost, and all is well when it is mended.
remember
echo broken >"$other" && cp "$other" "$base/before/${other#"$prefix/var/"}"
run 1 "sfcbrepos failed" install --general-information on
unchanged "a failed install"
run 1 "sfcbrepos failed" uninstall
unchanged "a failed uninstall"
: >"$other" && : >"$base/before/${other#"$prefix/var/"}"
touch "$prefix"/var/wait "$base"/before/wait
sh "$register" install --general-information on >/dev/null 2>&1 &
sleep 1
kill -TERM $!
wait $! && fail "an install that is cut off says that it was done"
unchanged "an install that was cut off"
rm "$prefix"/var/wait
sfcbrepos -f
run 0 "is registered" status

# Restarts: one at a time, and over when the new daemon has answered.
"$prefix/sbin/sfcbd" -d
ways slow
restarted="Restarted the object manager ($prefix/sbin/sfcbd -d); it answers."
run 0 "$restarted" install --reload
ways slow
run 0 "$restarted" install --general-information on
run 0 "restart $prefix/sbin/sfcbd -d" uninstall --dry-run
[ "$(starts)" = 3 ] || fail "$(starts) starts instead of 3"
rm "$prefix"/sbin/sfcbd && cp "$daemon" "$prefix"/sbin/sfcbd # as an upgrade does
ways deaf
run 0 "$restarted" install --reload
run 0 "it is killed" install --reload
ways mute-once
run 0 "once more" install --reload
[ "$(starts)" = 7 ] || fail "$(starts) starts instead of 7"
ways ignorant
run 1 "does not know the monitor's classes" install --reload
ways mute
run 1 "does not answer" install --reload
ways
"$prefix"/sbin/sfcbd -d -c other &
run 1 "several object managers run" install --reload
kill -KILL $(pgrep -x sfcbd)
"$prefix"/sbin/sfcbd -d
run 0 "it answers" uninstall
run 0 "Nothing to change." uninstall
rm -rf "$prefix"/var/registration/*.previous "$base"/before/registration/*.previous "$prefix"/lib/cmpi
[ -z "$(find "$prefix"/var "$prefix"/lib -name '*OXT*')" ] || fail "left behind: $(find "$prefix"/var "$prefix"/lib -name '*OXT*')"

[ "$failures" = 0 ] && echo "registered, failed, cut off, restarted and taken out"
exit $((failures > 0))
