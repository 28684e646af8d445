#include "oxtFsMount.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <strings.h>
#include <sys/vfs.h>

#include "oxtMemory.h"
#include "oxtTrace.h"

namespace {

// Accepted file-system types, in the order in which they are tested.
constexpr const char *ACCEPTED[] = {
    "FAT",   "VFAT",     "NTFS", "HPFS", "AFFS", "EXT2", "EXT3",   "EXT4",    "EXT",  "MINIX", "SYSV",  "UFS",
    "XIAFS", "REISERFS", "CODA", "XFS",  "JFS",  "HFS",  "UMSDOS", "ISO9660", "CDFS", "UDF",   "BTRFS", "MSDOS",
};
static_assert(sizeof ACCEPTED / sizeof *ACCEPTED == 24, "the accepted types");

constexpr unsigned MAGIC_EXT = 0xEF53;     // statfs(2): ext2, ext3 and ext4 alike
constexpr unsigned MAGIC_XFS = 0x58465342; // statfs(2)

// Families of the ext magic by the mount table's type, compared exactly.
struct ExtFamily {
    const char *type;
    const char *name;
};
constexpr char OTHER[] = "OTHER";
constexpr ExtFamily EXT_FAMILIES[] = {{"ext4", "EXT4"}, {"ext3", "EXT3"}, {"ext2", "EXT2"}};

const char *extFamily(const char *type) {
    for (const ExtFamily &family : EXT_FAMILIES)
        if (strcmp(type, family.type) == 0)
            return family.name;
    return nullptr;
}

struct FreeFlags {
    void operator()(bool *flags) const { free(flags); }
};

// The list of GetMountPointStrings while it grows.
struct MountList {
    char *buf;
    size_t size;
    size_t used; // the write position; the bytes from there on are zero
    long long count;
    bool *listed; // by the first entry on a directory: it stands in the list
};

char *findInList(const MountList &list, const char *dir) {
    for (char *text = list.buf; text < list.buf + list.used; text += strlen(text) + 1)
        if (strcmp(text, dir) == 0)
            return text;
    return nullptr;
}

void removeFromList(MountList *list, const char *dir) {
    char *text = findInList(*list, dir);
    const size_t length = strlen(text) + 1;
    const char *behind = text + length;
    const size_t rest = static_cast<size_t>(list->buf + list->used - behind);
    memmove(text, behind, rest);
    memset(text + rest, 0, length);
    list->used -= length;
    list->count -= static_cast<long long>(length - 1);
}

// False when there is no room: the count has grown all the same, so that it tells how much was wanted.
bool addToList(MountList *list, const char *dir) {
    const size_t length = strlen(dir);
    list->count += static_cast<long long>(length);
    // The count leaves the zeros out, so it alone would let the list grow beyond its room.
    if (list->count > static_cast<long long>(list->size) - 2 || list->used + length + 2 > list->size)
        return false;
    memcpy(list->buf + list->used, dir, length + 1);
    list->used += length + 1;
    return true;
}

void takeMount(const char *function, const FsSystem *system, MountList *list, const FsMount &mount) {
    bool &listed = list->listed[fsNextMountOn(system, mount.dir, -1)];
    // "And", not "or": only an empty type is a prefix of both. Layered entries are none of the accepted types, so the
    // next branch drops them.
    if (fsTypeMatches(mount.type, "ECRYPTFS") && fsTypeMatches(mount.type, "ROOTFS")) {
        OXT_TRACE_AS(function, "ignore device[%s]", mount.fsname);
    } else if (!fsTypeAccepted(mount.type) || mount.dir[0] == '\0') { // an empty text would end the list
        OXT_TRACE_AS(function, "jump over device[%s]", mount.fsname);
    } else if (listed) { // mounted over, or bound onto itself: neither occurrence can be measured by its name
        removeFromList(list, mount.dir);
        listed = false;
        OXT_TRACE_AS(function, "remove device[%s]", mount.fsname);
    } else if (addToList(list, mount.dir)) {
        listed = true;
        OXT_TRACE_AS(function, "add device[%s]", mount.fsname);
    }
}

// The last entry on the mount point that is not layered, or null.
const FsMount *lastMountOn(const FsSystem *system, const char *RootPNm) {
    const FsMount *last = nullptr;
    for (int i = -1; (i = fsNextMountOn(system, RootPNm, i)) >= 0;)
        if (!fsTypeLayered(system->mounts[i].type))
            last = &system->mounts[i];
    return last;
}

// Writes a family name; false when the buffer is too small for it.
bool writeName(char *buf, int size, const char *name) {
    if (size < 0 || static_cast<size_t>(size) <= strlen(name))
        return false;
    memcpy(buf, name, strlen(name) + 1);
    return true;
}

// The family of the ext magic by the mount table: each entry on the mount point writes its name, so the last decides.
// An ext file system of another type is "OTHER", cut to the buffer.
bool writeExtFamily(const FsSystem *system, char *buf, int size, const char *RootPNm) {
    for (int i = -1; (i = fsNextMountOn(system, RootPNm, i)) >= 0;) {
        if (fsTypeLayered(system->mounts[i].type))
            continue;
        const char *name = extFamily(system->mounts[i].type);
        if (name == nullptr)
            snprintf(buf, size > 0 ? static_cast<size_t>(size) : 0, "%s", OTHER);
        else if (!writeName(buf, size, name))
            return false;
    }
    return true;
}

} // namespace

bool fsTypeMatches(const char *type, const char *name) {
    constexpr int CASE = 'a' ^ 'A'; // the first letters tell most names apart without a call
    return (type[0] == '\0' || ((type[0] ^ name[0]) & ~CASE) == 0) && strncasecmp(type, name, strlen(type)) == 0;
}

bool fsTypeAccepted(const char *type) {
    for (const char *name : ACCEPTED)
        if (fsTypeMatches(type, name))
            return true;
    return false;
}

bool fsTypeLayered(const char *type) {
    return fsTypeMatches(type, "ECRYPTFS") || fsTypeMatches(type, "ROOTFS");
}

long long GetMountPointStrings(int BufLen, char *Buf, const FsSystem *system) {
    OXT_TRACE("_IN_ BufLen=[%d]", BufLen);
    OXT_REQUIRE(Buf != nullptr, 0, "_OUT_ param(Buf) Failure!!");
    OXT_REQUIRE(BufLen > 0, 0, "_OUT_ param(BufLen) Failure!!");
    OXT_READ_SYSTEM(system);
    OXT_REQUIRE(system->mountsRead, 0, "_OUT_ setmntent[/etc/mtab] Failure!!");
    const std::unique_ptr<bool, FreeFlags> listed(static_cast<bool *>(calloc(system->mountCount + 1, sizeof(bool))));
    OXT_REQUIRE(listed != nullptr, 0, "_OUT_ listed alloc Failure!!");
    MountList list = {Buf, static_cast<size_t>(BufLen), 0, 0, listed.get()};
    for (size_t i = 0; i < system->mountCount; ++i)
        takeMount(__func__, system, &list, system->mounts[i]);
    Buf[list.used] = '\0';
    OXT_TRACE("_OUT_ iSize=[%d], Buf=[%s]", static_cast<int>(list.count), Buf);
    return list.count;
}

int GetFsName(unsigned type, char *buf, int size, const char *RootPNm, const FsSystem *system) {
    OXT_TRACE("_IN_ type=[0x%08X] size=[%d] RootPNm=[%s]", type, size, RootPNm != nullptr ? RootPNm : "NULL");
    OXT_REQUIRE(buf != nullptr, -1, "_OUT_ param(buf) Failure!!");
    OXT_REQUIRE(RootPNm != nullptr, -1, "_OUT_ param(RootPNm) Failure!!");
    OXT_READ_SYSTEM(system);
    OXT_REQUIRE(type != MAGIC_EXT || system->mountsRead, -1, "_OUT_ setmntent[/etc/mtab] Failure!!");
    const bool written = type == MAGIC_EXT ? writeExtFamily(system, buf, size, RootPNm)
                                           : writeName(buf, size, type == MAGIC_XFS ? "XFS" : OTHER);
    OXT_REQUIRE(written, -1, "_OUT_ OXT_FALSE");
    OXT_TRACE("_OUT_ buf=[%s]", buf);
    return 0;
}

int GetMountPointFreeSpace(const char *RootPNm, unsigned long *BytesPerBlock, unsigned long *lpNumberOfFreeBlocks,
                           unsigned long *lpTotalNumberOfBlocks, const FsSystem *system) {
    const char *shown = RootPNm != nullptr ? RootPNm : "NULL";
    OXT_TRACE("_IN_ RootPNm=[%s]", shown);
    OXT_REQUIRE(BytesPerBlock != nullptr, -1, "_OUT_ param(BytesPerBlock) Failure!!");
    OXT_REQUIRE(lpNumberOfFreeBlocks != nullptr, -1, "_OUT_ param(lpNumberOfFreeBlocks) Failure!!");
    OXT_REQUIRE(lpTotalNumberOfBlocks != nullptr, -1, "_OUT_ param(lpTotalNumberOfBlocks) Failure!!");
    struct statfs st = {};
    OXT_REQUIRE(RootPNm != nullptr && fsStatfs(system, RootPNm, &st) >= 0, -1, "_OUT_ statfs[%s] Failure!!", shown);
    *BytesPerBlock = static_cast<unsigned long>(st.f_bsize);
    *lpNumberOfFreeBlocks = st.f_bavail; // what unprivileged users can still write, not f_bfree
    *lpTotalNumberOfBlocks = st.f_blocks;
    OXT_TRACE("*BytesPerBlock=[%ld]", static_cast<long>(*BytesPerBlock));
    OXT_TRACE("*lpNumberOfFreeBlocks=[%ld]", static_cast<long>(*lpNumberOfFreeBlocks));
    OXT_TRACE("*lpTotalNumberOfBlocks=[%ld]", static_cast<long>(*lpTotalNumberOfBlocks));
    OXT_TRACE("_OUT_");
    return 0;
}

int OXTFileSysGetMountPointInformation(const char *RootPNm, char *SpecialDevice, int *MaxCompLen, char *FileSysNm,
                                       int FileSysNmSize, const FsSystem *system) {
    OXT_TRACE("_IN_ RootPNm=[%s] FileSysNmSize=[%d]", RootPNm != nullptr ? RootPNm : "NULL", FileSysNmSize);
    OXT_REQUIRE(RootPNm != nullptr, OXT_FALSE, "_OUT_ param(RootPNm) Failure!!");
    OXT_REQUIRE(SpecialDevice != nullptr, OXT_FALSE, "_OUT_ param(SpecialDevice) Failure!!");
    OXT_REQUIRE(MaxCompLen != nullptr, OXT_FALSE, "_OUT_ param(MaxCompLen) Failure!!");
    memset(SpecialDevice, 0, OXT_DEVICE_SIZE);
    OXT_READ_SYSTEM(system);
    OXT_REQUIRE(system->mountsRead, OXT_FALSE, "_OUT_ setmntent[/etc/mtab] Failure!!");
    if (const FsMount *mount = lastMountOn(system, RootPNm))
        oxtCopyText(SpecialDevice, OXT_DEVICE_SIZE, mount->fsname);
    struct statfs st = {};
    OXT_REQUIRE(fsStatfs(system, RootPNm, &st) >= 0, OXT_FALSE, "_OUT_ statfs[%s] Failure!!", RootPNm);
    *MaxCompLen = static_cast<int>(st.f_namelen);
    const bool named = FileSysNm == nullptr ||
                       GetFsName(static_cast<unsigned>(st.f_type), FileSysNm, FileSysNmSize, RootPNm, system) == 0;
    OXT_REQUIRE(named, OXT_FALSE, "_OUT_ GetFsName() Failure!!");
    OXT_TRACE("_OUT_ SpecialDevice=[%s] MaxCompLen=[%d] FileSysNm=[%s]", SpecialDevice, *MaxCompLen,
              FileSysNm != nullptr ? FileSysNm : "NULL");
    return OXT_TRUE;
}
