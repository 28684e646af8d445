// The bound of the provider's waits, but for the 30 seconds of a stop: 3 seconds, in steps of 100 ms where nobody wakes
// the waiting thread.
#ifndef OXT_WAIT_H
#define OXT_WAIT_H

#include <ctime>

constexpr int OXT_WAIT_TRIES = 30;
constexpr unsigned OXT_WAIT_MICROS = 100'000; // between two tries
constexpr int OXT_WAIT_MILLIS = OXT_WAIT_TRIES * (OXT_WAIT_MICROS / 1000);

inline long long oxtMillis() { // of the clock that nobody sets
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1'000'000;
}

#endif
