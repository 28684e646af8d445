#include "svtraceWatch.h"

namespace agent {

namespace {

constexpr timespec kStep = {0, 100000};
constexpr int kSteps = 200;

std::uint64_t stampOf(const TraceMoment &now) {
    return static_cast<std::uint64_t>(static_cast<std::uint32_t>(now.process)) << 32 |
           static_cast<std::uint32_t>(now.time.tv_sec);
}

} // namespace

bool hasLooked(const Watch &watch, int process) {
    return static_cast<int>(watch.looked.load(std::memory_order_acquire) >> 32) == process;
}

bool isLookDue(const Watch &watch, const TraceMoment &now) {
    // A thread that took its time before the second ended finds the look of the next one. Any other second is due, for
    // clocks are set back as well.
    return watch.looked.load(std::memory_order_acquire) - stampOf(now) > 1;
}

bool beginLook(Watch &watch, const TraceMoment &now, bool needed) {
    // A keeper of another process is the parent's thread, which a forked child does not have: its place is free.
    int keeper = watch.keeper.load(std::memory_order_relaxed);
    if (keeper != now.process && watch.keeper.compare_exchange_strong(keeper, now.process))
        return true;
    const auto isLooking = [&watch, &now] { return watch.keeper.load(std::memory_order_acquire) == now.process; };
    const bool waits = needed || !hasLooked(watch, now.process);
    for (int step = 0; waits && step < kSteps && isLooking(); ++step)
        (void)nanosleep(&kStep, nullptr);
    return false;
}

void endLook(Watch &watch, const TraceMoment &now) {
    watch.looked.store(stampOf(now), std::memory_order_release);
    watch.keeper.store(0, std::memory_order_release);
}

} // namespace agent
