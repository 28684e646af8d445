// Part of a provider whose calls are replaced: libgcc has a __wrap_pthread_create of its own, which must not come
// before ours.
#include <pthread.h>

extern "C" int wrappedThreadCreate(pthread_t *id, const pthread_attr_t *attributes, void *(*body)(void *),
                                   void *argument);

extern "C" int __wrap_pthread_create(pthread_t *id, const pthread_attr_t *attributes, void *(*body)(void *),
                                     void *argument) {
    return wrappedThreadCreate(id, attributes, body, argument);
}
