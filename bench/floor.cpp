#include "floor.h"

#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mntent.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "fixture.h"
#include "oxtFsMount.h"
#include "oxtFsSave.h"

namespace bench {

namespace {

constexpr size_t kReadSize = 4096; // a page: what the kernel makes of its own tables at a time

bool readThrough(const char *path) {
    char piece[kReadSize];
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t got = fd >= 0 ? 1 : -1;
    while (got > 0)
        got = read(fd, piece, sizeof piece);
    if (fd >= 0)
        close(fd);
    return got == 0;
}

bool isOfScsiDisk(const char *device) {
    return std::strncmp(device, "/dev/sd", 7) == 0 ||
           std::strncmp(device, "device-", 7) == 0; // the latter: a fixture's
}

bool copySegment(int id, std::vector<char> &area, bool out) {
    void *const segment = shmat(id, nullptr, 0);
    if (segment == reinterpret_cast<void *>(-1))
        return false;
#if defined(MADV_POPULATE_READ) && defined(MADV_POPULATE_WRITE)
    constexpr size_t kManyPages = 8 * 1024; // bytes from which one call for all pages is cheaper than a fault each
    if (area.size() >= kManyPages)
        madvise(segment, area.size(), out ? MADV_POPULATE_WRITE : MADV_POPULATE_READ);
#endif
    if (out)
        std::memcpy(segment, area.data(), area.size());
    else
        std::memcpy(area.data(), segment, area.size());
    return shmdt(segment) == 0;
}

} // namespace

Floor::Floor(const DatInfo *areas, const ShmInfo *segments) : path_(OXT_AGENT_DIR "data/floor.dat") {
    image_.assign(OXT_DAT_FS_VERNAME, OXT_DAT_FS_VERNAME + OXT_DAT_FS_VERSIZE);
    for (int cid = 0; cid < OXT_CID_FS_COUNT; ++cid) {
        const char *const begin = static_cast<const char *>(areas[cid].datAdr);
        areas_.emplace_back(begin, begin + oxtAreaSize(&areas[cid]));
        image_.insert(image_.end(), areas_.back().begin(), areas_.back().end());
        segments_.push_back(segments[cid].shmId);
    }
    const std::unique_ptr<FILE, int (*)(FILE *)> table(setmntent("/etc/mtab", "r"), endmntent);
    while (const mntent *entry = getmntent(table.get()))
        if (fsTypeAccepted(entry->mnt_type))
            mounts_.push_back({entry->mnt_fsname, entry->mnt_dir, isOfScsiDisk(entry->mnt_fsname)});
}

Floor::~Floor() {
    (void)unlink(path_.c_str());
}

bool Floor::run(Questions questions, bool readBack) {
    bool good = readFiles();
    good = ask(questions) && good;
    good = copySegments(readBack) && good;
    return save() && good;
}

bool Floor::readFiles() {
    return readThrough(mountTablePath().c_str()) && readThrough(driverListPath().c_str());
}

bool Floor::ask(Questions questions) {
    bool good = true;
    for (const Mount &mount : mounts_) {
        struct stat device = {};
        struct statfs space = {};
        for (int i = 0; i < questions.stats; ++i)
            good = stat(mount.device.c_str(), &device) == 0 && good;
        for (int i = 0; i < questions.statfs + (mount.open && questions.statfs > 1 ? 1 : 0); ++i)
            good = statfs(mount.directory.c_str(), &space) == 0 && good;
    }
    return good;
}

bool Floor::copySegments(bool readBack) {
    bool good = true;
    for (size_t i = 0; readBack && i < areas_.size(); ++i)
        good = copySegment(segments_[i], areas_[i], false) && good;
    for (size_t i = 0; i < areas_.size(); ++i)
        good = copySegment(segments_[i], areas_[i], true) && good;
    return good;
}

bool Floor::save() {
    const int fd = open(path_.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    const auto size = static_cast<ssize_t>(image_.size());
    const bool written = fd >= 0 && write(fd, image_.data(), image_.size()) == size && ftruncate(fd, size) == 0;
    return fd >= 0 && close(fd) == 0 && written;
}

} // namespace bench
