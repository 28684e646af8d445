// System V shared memory: shmget(2), shmat(2), shmdt(2) and shmctl(2). The real one, counted, or the machine's own
// where nothing but the machine is.
#include "calls.h"

#include <algorithm>
#include <thread>

#include <sys/ipc.h>
#include <sys/shm.h>

using namespace oxtmachine;

namespace {

bool hasOwnMemory() {
    return restOfCalls() != Rest::System;
}

// The answer of the machine's own memory; `otherwise` without a machine.
template <class Result> Result ofMachine(Result otherwise, const std::function<Result(SegmentTable &)> &call) {
    Result result = otherwise;
    errno = ENOSYS;
    withMachine([&](Machine &m) { result = call(m.memory); });
    return result;
}

} // namespace

extern "C" int OXT_CALL(shmget)(key_t key, size_t size, int flags) noexcept {
    static const auto real = realFunction<int(key_t, size_t, int)>("shmget");
    int result = -1;
    unsigned milliseconds = 0;
    withMachine([&](const Machine &m) { milliseconds = m.shmgetMs; });
    if (milliseconds > 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    if (struck(Call::Shmget, &result)) {
        const int error = errno;
        withMachine([&](Machine &m) { m.invented.push_back(result); });
        errno = error;
        return result;
    }
    int refused = 0;
    withMachine([&](const Machine &m) { refused = m.memoryError; });
    errno = refused;
    if (refused != 0)
        return -1;
    if (hasOwnMemory())
        return ofMachine<int>(-1, [=](SegmentTable &memory) { return memory.get(key, size, flags); });
    result = real(key, size, flags);
    if (result >= 0 && (flags & IPC_CREAT) != 0)
        withMachine([&](Machine &m) { m.segments.push_back(result); });
    return result;
}

extern "C" void *OXT_CALL(shmat)(int id, const void *address, int flags) noexcept {
    static const auto real = realFunction<void *(int, const void *, int)>("shmat");
    void *const none = reinterpret_cast<void *>(-1);
    if (struck(Call::Shmat))
        return none;
    if (hasOwnMemory())
        return ofMachine<void *>(none, [=](SegmentTable &memory) { return memory.attach(id); });
    return real(id, address, flags);
}

extern "C" int OXT_CALL(shmdt)(const void *address) noexcept {
    static const auto real = realFunction<int(const void *)>("shmdt");
    // Also before a failure: it must not stay attached.
    const int result = hasOwnMemory() ? ofMachine<int>(-1, [=](SegmentTable &memory) { return memory.detach(address); })
                                      : real(address);
    return struck(Call::Shmdt) ? -1 : result;
}

extern "C" int OXT_CALL(shmctl)(int id, int command, struct shmid_ds *data) noexcept {
    static const auto real = realFunction<int(int, int, struct shmid_ds *)>("shmctl");
    bool invented = false;
    if (struck(Call::Shmctl))
        return -1;
    if (hasOwnMemory())
        return ofMachine<int>(-1, [=](SegmentTable &memory) { return memory.control(id, command, data); });
    withMachine([&](Machine &m) {
        invented = std::find(m.invented.begin(), m.invented.end(), id) != m.invented.end();
        if (command == IPC_RMID && !invented)
            m.segments.erase(std::remove(m.segments.begin(), m.segments.end(), id), m.segments.end());
    });
    return invented ? 0 : real(id, command, data);
}
