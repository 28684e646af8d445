# Sourced by tests of what registers with an object manager: its commands and daemon below a prefix.
#
# The commands keep to what the real ones do: staged files are copied, and a rebuild moves the old repository away
# before it knows whether it can make the new one. A staged file with the word "broken" does not compile.

fake_sfcb() { # fake_sfcb PREFIX DAEMON_PROGRAM
    local prefix=$1
    mkdir -p "$prefix"/{bin,sbin,etc/sfcb,lib/cmpi} "$prefix"/var/{stage/regs,stage/mofs,registration/repository}
    cp "$2" "$prefix/sbin/sfcbd"
    printf 'httpPort: 5988\nproviderDirs: %s/lib %s/lib/cmpi\n' "$prefix" "$prefix" >"$prefix/etc/sfcb/sfcb.cfg"
    echo "[CIM_Other]" >"$prefix/var/stage/default.reg"
    cp "$prefix/var/stage/default.reg" "$prefix/var/registration/providerRegister"
    cat >"$prefix/bin/sfcbstage" <<STAGE
#!/bin/bash -e
stage=$prefix/var/stage
while getopts hs:n:r: option; do
    case \$option in
    h) echo "specify staging directory [\$stage]"; exit ;;
    s) stage=\$OPTARG ;;
    n) namespace=\$OPTARG ;;
    r) mkdir -p "\$stage/regs"; cp "\$OPTARG" "\$stage/regs" ;;
    esac
done
shift \$((OPTIND - 1))
mkdir -p "\$stage/mofs/\$namespace"
cp "\$@" "\$stage/mofs/\$namespace"
STAGE
    cat >"$prefix/bin/sfcbrepos" <<REPOS
#!/bin/bash
stage=$prefix/var/stage registration=$prefix/var/registration
[ "\$1" != -h ] || { echo "specify repository directory [\$registration]"; exit; }
rm -rf \$registration/repository.previous
mv \$registration/repository \$registration/repository.previous
mv \$registration/providerRegister \$registration/providerRegister.previous
mkdir -p \$registration/repository
cat \$stage/default.reg \$stage/regs/*.reg >\$registration/providerRegister 2>/dev/null
[ ! -e $prefix/var/wait ] || sleep 3
if grep -rqs broken \$stage/mofs; then
    echo "Failed compiling the MOF files." >&2
    exit 1
fi
cp -r \$stage/mofs/. \$registration/repository
REPOS
    printf '#!/bin/sh\n' | tee "$prefix/bin/sfcbunstage" >"$prefix/bin/sfcbmof"
    chmod +x "$prefix"/bin/sfcb*
    PATH=$prefix/bin:$PATH
}

# Puts oxtfs-register and what belongs to it where it looks for them; in memory, over what else is there. Sets
# `register`, `shared`, `library`, and `packaging`, all copies.
install_register() { # install_register OXTFS-REGISTER
    cp "$1" "$base/oxtfs-register"
    cp -r "$here/../packaging" "$base/packaging"
    register=$base/oxtfs-register packaging=$base/packaging
    shared=$(sed -n 's/^shared=//p' "$register")
    library=$(sed -n 's/^library=//p' "$register")
    [ "${shared%/share/oxtfs}" != /usr ] || skip "built for /usr, which this machine needs"
    mount -t tmpfs none "${shared%/share/oxtfs}" || skip "cannot mount over ${shared%/share/oxtfs}"
    mkdir -p "$shared/cim" "${library%/*}"
    cp "$packaging"/*.mof "$packaging"/sfcb/*.reg "$shared/cim"
    cp "$packaging"/sfcb/sfcb-* "$shared"
    : >"$library"
}
