// Whether a thread runs, and its end.
//
// A thread identifier is 0 when there is no thread. Asking, cancelling and joining go through here, under one lock, so
// that two requests never join the same thread.
#ifndef OXT_THREAD_H
#define OXT_THREAD_H

#include <atomic>
#include <pthread.h>

typedef std::atomic<pthread_t> OxtThreadId;
static_assert(sizeof(OxtThreadId) == sizeof(pthread_t), "a plain identifier, read and written whole");

// 1 while the thread runs, else 0. A thread that has ended is joined and its identifier cleared.
int getThreadSts(OxtThreadId *thid);
// Asks the thread to end at its next cancellation point. 0, or ESRCH when there is none.
int oxtThreadCancel(OxtThreadId *thid);
// Waits for the end, at most so many seconds, joins and clears the identifier. 0, also when there is no thread (any
// more); ETIMEDOUT leaves the identifier as it was; else pthread_tryjoin_np(3)'s code.
int oxtThreadJoin(OxtThreadId *thid, int seconds);

#endif
