// Device nodes and free space: stat(2) and statfs(2).
#include "calls.h"

#include <sys/stat.h>
#include <sys/vfs.h>

using namespace oxtmachine;

namespace {

// What `table` holds under a path, or what stands for the paths that it does not hold. False when there is neither.
template <class Answer>
bool find(std::map<std::string, Answer> Facts::*table, std::function<Answer(const char *)> Machine::*other,
          const char *path, Answer *answer) {
    bool found = false;
    withMachine([&](const Machine &m) {
        const auto known = (m.*table).find(path);
        found = known != (m.*table).end() || m.*other;
        if (found)
            *answer = known != (m.*table).end() ? known->second : (m.*other)(path);
    });
    return found;
}

int failed(int error) {
    errno = error;
    return -1;
}

} // namespace

extern "C" int OXT_CALL(stat)(const char *path, struct stat *st) noexcept {
    static const auto real = realFunction<int(const char *, struct stat *)>("stat");
    Node node;
    if (find(&Facts::nodes, &Machine::otherNode, path, &node)) {
        *st = {};
        st->st_mode = node.format | 0600;
        st->st_rdev = node.number;
        return node.error == 0 ? 0 : failed(node.error);
    }
    bool inside = false;
    const std::string there = placed(path, &inside);
    const Rest rest = restOfCalls();
    if (rest == Rest::Nothing && !inside)
        return failed(ENOENT);
    const int result = real(there.c_str(), st);
    if (rest == Rest::Noted && !inside) {
        const int error = result == 0 ? 0 : errno;
        node = result == 0 ? Node{st->st_mode & S_IFMT, st->st_rdev} : Node{0, 0, error};
        withMachine([&](Machine &m) { m.nodes[path] = node; });
        errno = error;
    }
    return result;
}

extern "C" int OXT_CALL(statfs)(const char *path, struct statfs *st) noexcept {
    static const auto real = realFunction<int(const char *, struct statfs *)>("statfs");
    Volume volume;
    bool found = find(&Facts::volumes, &Machine::otherVolume, path, &volume);
    if (volume.during) {
        volume.during();
        found = find(&Facts::volumes, &Machine::otherVolume, path, &volume); // it may have changed the volume
    }
    const Rest rest = restOfCalls();
    if (!found && rest == Rest::Nothing)
        return failed(ENOENT);
    if (!found) {
        const int result = real(path, st);
        const int error = result == 0 ? 0 : errno;
        if (rest != Rest::Noted)
            return result;
        volume.error = error;
        if (result == 0) {
            volume.type = static_cast<long>(st->f_type);
            volume.blockSize = static_cast<long>(st->f_bsize);
            volume.blocks = st->f_blocks;
            volume.available = st->f_bavail;
            volume.nameLength = static_cast<long>(st->f_namelen);
        }
        withMachine([&](Machine &m) { m.volumes[path] = volume; });
        errno = error;
        return result;
    }
    if (volume.error != 0)
        return failed(volume.error);
    if (volume.freeMiB)
        volume.available = volume.freeMiB() * 1024 * 1024 / static_cast<unsigned long>(volume.blockSize);
    *st = {};
    st->f_type = volume.type;
    st->f_bsize = volume.blockSize;
    st->f_blocks = volume.blocks;
    st->f_bavail = volume.available;
    st->f_bfree = volume.available + 100'000;
    st->f_namelen = volume.nameLength;
    return 0;
}
