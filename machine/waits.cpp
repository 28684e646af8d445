// Time and the system log: sleep(3), usleep(3), pthread_cond_clockwait(3) and syslog(3).
#include "calls.h"

#include <algorithm>
#include <cstdarg>
#include <ctime>

#include <pthread.h>
#include <unistd.h>

using namespace oxtmachine;

namespace {

// These two stay frames of their own: see nap.
__attribute__((noinline)) unsigned long long shortened(unsigned long long nanoseconds) noexcept {
    withMachine([&](const Machine &m) { nanoseconds /= m.speed; });
    return nanoseconds;
}

__attribute__((noinline)) void count(unsigned seconds) noexcept {
    withMachine([&](Machine &m) { m.sleeps.push_back(seconds); });
}

// The provider's thread is cancelled in here. The C library unwinds it with an unwinder that it loads, so neither this
// frame nor its caller's may hold anything that has to be destroyed.
//
// A cancellation point between short naps: ThreadSanitizer overlooks the locks that a thread takes once it was
// cancelled inside a call that it watches.
void nap(unsigned long long nanoseconds) {
    constexpr unsigned long long kNap = 10'000'000;
    for (unsigned long long passed = 0; passed < nanoseconds; passed += kNap) {
        const timespec time = {0, static_cast<long>(std::min(nanoseconds - passed, kNap))};
        int before = 0;
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
        nanosleep(&time, nullptr);
        pthread_setcancelstate(before, nullptr);
        pthread_testcancel();
    }
}

} // namespace

extern "C" int OXT_CALL(usleep)(useconds_t microseconds) {
    struck(Call::Usleep);
    nap(shortened(microseconds * 1000ULL));
    return 0;
}

extern "C" unsigned OXT_CALL(sleep)(unsigned seconds) {
    count(seconds);
    nap(shortened(seconds * 1'000'000'000ULL));
    return 0;
}

#ifndef OXT_MACHINE_WRAPPED
// Ends the wait sooner: the provider takes that for the end of its time. What it waits for still has to have a chance,
// on a busy machine too.
extern "C" int pthread_cond_clockwait(pthread_cond_t *condition, pthread_mutex_t *mutex, clockid_t clock,
                                      const timespec *until) {
    static const auto real =
        realFunction<int(pthread_cond_t *, pthread_mutex_t *, clockid_t, const timespec *)>("pthread_cond_clockwait");
    timespec now = {};
    clock_gettime(clock, &now);
    constexpr long long kSecond = 1'000'000'000;
    long long left = (until->tv_sec - now.tv_sec) * kSecond + until->tv_nsec - now.tv_nsec;
    withMachine([&](const Machine &m) { left /= std::min(m.speed, 100U); });
    const long long end = now.tv_sec * kSecond + now.tv_nsec + left;
    const timespec sooner = {end / kSecond, end % kSecond};
    return real(condition, mutex, clock, &sooner);
}
#endif

// <syslog.h> stays out: it may define these inline.
extern "C" {
__attribute__((format(printf, 2, 3))) void OXT_CALL(syslog)(int priority, const char *format, ...);
__attribute__((format(printf, 3, 4))) void OXT_CALL(__syslog_chk)(int priority, int flag, const char *format, ...);
}

namespace {

__attribute__((format(printf, 2, 0))) void keepLog(int priority, const char *format, va_list arguments) {
    char text[4096];
    vsnprintf(text, sizeof text, format, arguments);
    withMachine([&](Machine &m) { m.systemLog.push_back(std::to_string(priority) + " " + text); });
}

} // namespace

void OXT_CALL(syslog)(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keepLog(priority, format, arguments);
    va_end(arguments);
}

void OXT_CALL(__syslog_chk)(int priority, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    keepLog(priority, format, arguments);
    va_end(arguments);
}
