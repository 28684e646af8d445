// The broker's operating-system services: threads, keys, mutexes and conditions, straight on POSIX.
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <pthread.h>

#include "oxtHostSlot.h"

namespace oxthost {
namespace {

static_assert(sizeof(pthread_t) == sizeof(void *), "a thread travels in a pointer");

CMPI_THREAD_TYPE asHandle(pthread_t thread) {
    return reinterpret_cast<CMPI_THREAD_TYPE>(thread);
}
pthread_t asThread(CMPI_THREAD_TYPE handle) {
    return reinterpret_cast<pthread_t>(handle);
}
pthread_mutex_t *asMutex(CMPI_MUTEX_TYPE handle) {
    return static_cast<pthread_mutex_t *>(handle);
}
pthread_cond_t *asCondition(CMPI_COND_TYPE handle) {
    return static_cast<pthread_cond_t *>(handle);
}
pthread_key_t asKey(CMPI_THREAD_KEY_TYPE key) {
    return static_cast<pthread_key_t>(key);
}

int sleepMilliseconds(CMPIUint32 msec) {
    std::timespec rest = {static_cast<std::time_t>(msec / 1000), static_cast<long>(msec % 1000) * 1000000};
    while (nanosleep(&rest, &rest) != 0)
        if (errno != EINTR)
            return errno;
    return 0;
}

void fillThreads(CMPIBrokerExtFT &ft) {
    ft.newThread = [](CMPI_THREAD_RETURN (*start)(void *), void *parm, int detached) -> CMPI_THREAD_TYPE {
        pthread_attr_t attributes;
        pthread_t thread = 0;
        if (pthread_attr_init(&attributes) != 0)
            return nullptr;
        pthread_attr_setdetachstate(&attributes, detached != 0 ? PTHREAD_CREATE_DETACHED : PTHREAD_CREATE_JOINABLE);
        const int failed = pthread_create(&thread, &attributes, start, parm);
        pthread_attr_destroy(&attributes);
        return failed != 0 ? nullptr : asHandle(thread);
    };
    ft.threadOnce = [](int *once, void (*init)(void)) { return pthread_once(once, init); };
    ft.createThreadKey = [](CMPI_THREAD_KEY_TYPE *key, void (*cleanup)(void *)) {
        pthread_key_t made = 0;
        const int failed = pthread_key_create(&made, cleanup);
        if (failed == 0)
            *key = made;
        return failed;
    };
    ft.destroyThreadKey = [](CMPI_THREAD_KEY_TYPE key) { return pthread_key_delete(asKey(key)); };
    ft.getThreadSpecific = [](CMPI_THREAD_KEY_TYPE key) { return pthread_getspecific(asKey(key)); };
    ft.setThreadSpecific = [](CMPI_THREAD_KEY_TYPE key, void *value) { return pthread_setspecific(asKey(key), value); };
}

void fillLocks(CMPIBrokerExtFT &ft) {
    ft.newMutex = [](int) -> CMPI_MUTEX_TYPE {
        auto *mutex = new (std::nothrow) pthread_mutex_t;
        if (mutex != nullptr)
            pthread_mutex_init(mutex, nullptr);
        return mutex;
    };
    ft.destroyMutex = [](CMPI_MUTEX_TYPE mutex) {
        pthread_mutex_destroy(asMutex(mutex));
        delete asMutex(mutex);
    };
    ft.lockMutex = [](CMPI_MUTEX_TYPE mutex) { pthread_mutex_lock(asMutex(mutex)); };
    ft.unlockMutex = [](CMPI_MUTEX_TYPE mutex) { pthread_mutex_unlock(asMutex(mutex)); };
    ft.newCondition = [](int) -> CMPI_COND_TYPE {
        auto *condition = new (std::nothrow) pthread_cond_t;
        if (condition != nullptr)
            pthread_cond_init(condition, nullptr);
        return condition;
    };
    ft.destroyCondition = [](CMPI_COND_TYPE condition) {
        pthread_cond_destroy(asCondition(condition));
        delete asCondition(condition);
    };
    ft.condWait = [](CMPI_COND_TYPE condition, CMPI_MUTEX_TYPE mutex) {
        return pthread_cond_wait(asCondition(condition), asMutex(mutex));
    };
    ft.timedCondWait = [](CMPI_COND_TYPE condition, CMPI_MUTEX_TYPE mutex, struct timespec *until) {
        return pthread_cond_timedwait(asCondition(condition), asMutex(mutex), until);
    };
}

// The slots that some hosts leave NULL.
void fillOptional(CMPIBrokerExtFT &ft) {
    ft.joinThread = [](CMPI_THREAD_TYPE thread, CMPI_THREAD_RETURN *returned) {
        return pthread_join(asThread(thread), returned);
    };
    ft.exitThread = [](CMPI_THREAD_RETURN code) -> int { pthread_exit(code); };
    ft.cancelThread = [](CMPI_THREAD_TYPE thread) { return pthread_cancel(asThread(thread)); };
    ft.threadSleep = sleepMilliseconds;
    ft.signalCondition = [](CMPI_COND_TYPE condition) { return pthread_cond_signal(asCondition(condition)); };
}

} // namespace

void fillSystem(Tables &tables, const Broker &broker) {
    CMPIBrokerExtFT &ft = tables.xft;
    ft.ftVersion = CMPICurrentVersion;
    ft.resolveFileName = [](const char *name) { return strdup(("lib" + std::string(orEmpty(name)) + ".so").c_str()); };
    fillThreads(ft);
    fillLocks(ft);
    if (!broker.sfcb())
        fillOptional(ft);
}

} // namespace oxthost
