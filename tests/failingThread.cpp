// Part of OXT_FAILING_PROVIDER: libgcc has a __wrap_pthread_create of its own, which must not come before ours.
#include <pthread.h>

extern "C" int failingThreadCreate(pthread_t *id, const pthread_attr_t *attributes, void *(*body)(void *),
                                   void *argument);

extern "C" int __wrap_pthread_create(pthread_t *id, const pthread_attr_t *attributes, void *(*body)(void *),
                                     void *argument) {
    return failingThreadCreate(id, attributes, body, argument);
}
