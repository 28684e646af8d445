#include "segmentTable.h"

#include <cerrno>
#include <new>

#include <sys/ipc.h>
#include <unistd.h>

namespace oxtmachine {

int SegmentTable::get(key_t key, std::size_t size, int flags) {
    for (const auto &[id, segment] : segments_) {
        if (key == IPC_PRIVATE || segment.removed || segment.state.shm_perm.__key != key)
            continue;
        const bool exclusive = (flags & IPC_CREAT) != 0 && (flags & IPC_EXCL) != 0;
        errno = exclusive ? EEXIST : EINVAL;
        return exclusive || size > segment.state.shm_segsz ? -1 : id;
    }
    if (key != IPC_PRIVATE && (flags & IPC_CREAT) == 0) {
        errno = ENOENT;
        return -1;
    }
    Segment made;
    made.bytes.reset(new (std::nothrow) char[size]());
    if (size == 0 || made.bytes == nullptr) {
        errno = size == 0 ? EINVAL : ENOMEM;
        return -1;
    }
    made.state.shm_perm.__key = key;
    made.state.shm_perm.uid = geteuid();
    made.state.shm_perm.mode = static_cast<decltype(made.state.shm_perm.mode)>(flags & 0777);
    made.state.shm_segsz = size;
    made.state.shm_cpid = getpid();
    segments_.emplace(next_, std::move(made));
    return next_++;
}

void *SegmentTable::attach(int id) {
    const auto found = segments_.find(id);
    if (found == segments_.end() || found->second.removed) {
        errno = EINVAL;
        return reinterpret_cast<void *>(-1);
    }
    ++found->second.state.shm_nattch;
    return found->second.bytes.get();
}

int SegmentTable::detach(const void *address) {
    for (auto segment = segments_.begin(); segment != segments_.end(); ++segment) {
        if (segment->second.bytes.get() != address || segment->second.state.shm_nattch == 0)
            continue;
        --segment->second.state.shm_nattch;
        drop(segment);
        return 0;
    }
    errno = EINVAL;
    return -1;
}

int SegmentTable::control(int id, int command, shmid_ds *data) {
    const auto found = segments_.find(id);
    if (found == segments_.end() || (command != IPC_RMID && command != IPC_STAT)) {
        errno = EINVAL;
        return -1;
    }
    if (command == IPC_STAT) {
        *data = found->second.state;
        return 0;
    }
    found->second.removed = true;
    drop(found);
    return 0;
}

void SegmentTable::drop(std::map<int, Segment>::iterator segment) {
    if (segment->second.removed && segment->second.state.shm_nattch == 0)
        segments_.erase(segment);
}

} // namespace oxtmachine
