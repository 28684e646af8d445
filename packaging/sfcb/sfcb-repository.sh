# shellcheck shell=sh
# The object manager's repository: what of ours is staged for it, and a rebuild that can be taken back. Sourced by
# oxtfs-register, which sets the directories `stage` and `registration`, the `namespace`, and whether the monitor is
# `wanted` there (yes or no), and which has `fail CODE LINE...`, link_library and unlink_library.

# What install stages, below the staging directory.
registration_file=regs/OXT_FileSystem.reg
schema_files="mofs/$namespace/OXT_FileSystem.mof mofs/$namespace/OXT_GeneralInformation.mof"

# The staged files before the change, and as they shall be; both below a directory of their own.
prepare() {
    scratch=$(TMPDIR=/tmp mktemp -d)
    trap 'rm -rf "$scratch"' EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    mkdir "$scratch/before" "$scratch/after"
    for file in $registration_file $schema_files; do
        mkdir -p "$scratch/before/${file%/*}" "$scratch/after/${file%/*}"
        [ ! -e "$stage/$file" ] || cp -p "$stage/$file" "$scratch/before/$file"
    done
}

stage_file() { # stage_file FROM FILE: as it is in FROM, or not at all
    if [ -e "$1/$2" ]; then
        mkdir -p "$stage/${2%/*}"
        cp -p "$1/$2" "$stage/$2"
    else
        rm -f "$stage/$2"
    fi
}

stage_all() { # stage_all FROM
    for file in $registration_file $schema_files; do
        stage_file "$1" "$file"
    done
    (cd "$stage/mofs" 2>/dev/null && rmdir -p "$namespace" 2>/dev/null) || true # unless the agent's are there
}

staged_changes() { # a line for each file that is not as it shall be
    for file in $registration_file $schema_files; do
        if [ ! -e "$scratch/after/$file" ]; then
            [ ! -e "$stage/$file" ] || echo "remove $stage/$file"
        elif [ ! -e "$stage/$file" ]; then
            echo "add $stage/$file"
        elif ! cmp -s "$scratch/after/$file" "$stage/$file"; then
            echo "replace $stage/$file"
        fi
    done
}

inode() {
    stat -c %i "$registration/$1" 2>/dev/null || true
}

# sfcbrepos moves the old parts away, unless it refuses before that; there may have been none. A part that is still the
# one before stays: what lies beside it as ".previous" is older.
put_back() { # put_back PART INODE-BEFORE
    [ "$(inode "$1")" != "$2" ] || return 0
    rm -rf "${registration:?}/$1"
    [ -z "$2" ] || mv "$registration/$1.previous" "$registration/$1"
}

# A rebuild that fails or is cut off would leave the object manager without its repository. The one before comes back,
# and exactly that is staged which was: other products' rebuilds take it from there.
put_everything_back() {
    trap '' INT TERM HUP
    put_back repository "$repository"
    put_back providerRegister "$register"
    stage_all "$scratch/before"
    [ -z "$linked" ] || rm -f "$linked" # by link_library
    rm -rf "$scratch"
}

rebuild() {
    linked=
    repository=$(inode repository)
    register=$(inode providerRegister)
    trap put_everything_back EXIT
    stage_all "$scratch/after"
    [ "$wanted" = no ] || link_library
    if ! sfcbrepos -f >"$scratch/report" 2>&1; then
        cat "$scratch/report" >&2
        fail 1 "sfcbrepos failed, see above; repository and registration are what they were before." \
            "One staged file that does not compile, of whatever product, makes every rebuild fail: see $stage/mofs."
    fi
    trap 'rm -rf "$scratch"' EXIT
    [ "$wanted" = yes ] || unlink_library
}
