// Every order in which threads can meet.
//
// OXT_EXPLORED_PROVIDER is the provider linked so that its locks, waits, segments, files, sends and threads come to
// exploredCalls.cpp, and from there to the scheduler here. One thread runs at a time; before each such call the
// scheduler decides who goes on. The clock is the test's: it stands while somebody can go on, and moves to the end of
// the next wait when nobody can, or when the scheduler decides so.
//
// A schedule is the list of these decisions. explore() runs a scenario under every schedule with at most so many
// preemptions (a thread that could go on is stopped, or time passes although a thread could go on), and then under
// random ones.
#ifndef OXT_EXPLORER_H
#define OXT_EXPLORER_H

#include <functional>
#include <string>
#include <vector>

#include <pthread.h>

namespace explorer {

// The actors run at once; begin before them and end after them, alone.
struct Scenario {
    std::function<void()> begin;
    std::vector<std::function<void()>> actors;
    std::function<void()> end;
    bool atomics = false; // an access to an atomic variable is a decision, too
};

// Runs the scenario under each schedule, the random ones last; the number of schedules. The first broken promise ends
// it and fails the test with the schedule; OXT_SEED repeats the random schedules of another run.
long explore(const std::string &name, const Scenario &scenario, int preemptions, long random);

void broken(const std::string &promise); // by this schedule
long long waited();                      // nanoseconds that the calling thread has spent in waits
void rest(long long nanoseconds);        // the calling thread hangs
int watchers();                          // threads of the provider that nobody has joined yet
int watchersMade();                      // in this schedule

// What the provider's calls become.
void decide(const char *call); // whether the calling thread goes on, or another one
int lock(const void *mutex, bool tries);
int unlock(const void *mutex);
int await(const void *condition, const void *mutex, long long until); // 0, or ETIMEDOUT
void wakeAll(const void *condition);
void sleepUntil(long long when);
long long now(); // nanoseconds
int create(pthread_t *id, void *(*body)(void *), void *argument);
int cancel(pthread_t id);
bool setCancellable(bool is); // what it was
int tryJoin(pthread_t id);
int ask(pthread_t id); // pthread_kill without a signal

} // namespace explorer

#endif
