#include "explorer.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <utility>

#include <gtest/gtest.h>
#include <unistd.h>

#include "schedule.h"

namespace explorer {
namespace {

constexpr long long kNever = -1, kStart = 1'000'000'000'000; // nanoseconds
constexpr long kMostSteps = 1'000'000;                       // of a schedule; beyond it somebody waits without end

struct Thread {
    enum State { READY, WAITS, ENDED } state = READY;
    std::string name;
    const void *on = nullptr; // what it waits for
    long long since = 0, until = kNever, waited = 0;
    bool timedOut = false, cancelled = false, cancellable = true, isWatcher = false, isJoined = false;
    pthread_t id = 0;
    std::function<void()> body;
    std::condition_variable turn;
};

std::mutex baton; // guards all of the following
std::vector<std::unique_ptr<Thread>> threads;
Thread *running;
std::map<const void *, Thread *> owners; // of the mutexes
long long clockNow = kStart;
long steps;

Schedule schedule;
bool deciding, withAtomics;
std::string problem;

thread_local Thread *self; // null: a thread that is not scheduled

typedef std::unique_lock<std::mutex> Hold;

void note(const std::string &promise) {
    if (problem.empty())
        problem = promise + "\n  by" + schedule.text();
}

// The threads that hang cannot be ended.
[[noreturn]] void giveUp(const std::string &promise) {
    note(promise);
    for (const auto &thread : threads)
        problem += "\n  " + thread->name +
                   (thread->state == Thread::WAITS   ? " waits"
                    : thread->state == Thread::READY ? " could go on"
                                                     : " has ended");
    fprintf(stderr, "%s\n", problem.c_str());
    _exit(1);
}

void endWait(Thread &thread, bool timedOut) {
    thread.waited += std::max(0LL, (timedOut ? std::min(clockNow, thread.until) : clockNow) - thread.since);
    thread.state = Thread::READY;
    thread.timedOut = timedOut;
}

void wake(const void *what) {
    for (const auto &thread : threads)
        if (thread->state == Thread::WAITS && thread->on == what)
            endWait(*thread, false);
}

// To a moment. A thread that waits for another one which could go on has not waited meanwhile.
void passTime(long long until) {
    const long long passed = std::max(until - clockNow, 0LL);
    const bool idle =
        std::none_of(threads.begin(), threads.end(), [](const auto &t) { return t->state == Thread::READY; });
    clockNow += passed;
    for (const auto &thread : threads) {
        if (thread->state == Thread::WAITS && thread->until == kNever && !idle)
            thread->since += passed;
        if (thread->state == Thread::WAITS && thread->until != kNever && thread->until <= clockNow)
            endWait(*thread, true);
    }
}

// Who may go on: the calling thread, another one, or the one whose wait is the next that the clock ends.
std::vector<Thread *> findOptions(std::vector<int> *costs) {
    std::vector<Thread *> all;
    Thread *next = nullptr;
    if (self->state == Thread::READY)
        all.push_back(self);
    for (const auto &thread : threads) {
        if (thread->state == Thread::READY && thread.get() != self)
            all.push_back(thread.get());
        if (thread->state == Thread::WAITS && thread->until != kNever &&
            (next == nullptr || thread->until < next->until))
            next = thread.get();
    }
    costs->assign(all.size(), self->state == Thread::READY ? 1 : 0);
    if (!all.empty())
        costs->front() = 0;
    if (next != nullptr) {
        costs->push_back(all.empty() ? 0 : 1);
        all.push_back(next);
    }
    return all;
}

Thread *pick(const char *call) {
    std::vector<int> costs;
    const std::vector<Thread *> options = findOptions(&costs);
    if (++steps > kMostSteps || options.empty())
        giveUp(options.empty() ? "nobody can go on" : "somebody waits without end");
    if (!deciding || options.size() == 1)
        return options[0];
    const auto taken = schedule.choose(costs);
    if (!taken)
        giveUp("a schedule can be repeated");
    if (*taken != 0)
        schedule.explain(std::string(call) + " of " + self->name + ": " + options[*taken]->name + " goes on");
    return options[*taken];
}

// Another thread may have its turn. An ended thread does not come back.
void yield(Hold &hold, const char *call) {
    Thread *next = pick(call);
    if (next->state == Thread::WAITS)
        passTime(next->until);
    if (next == self)
        return;
    Thread *me = self;
    running = next;
    next->turn.notify_one();
    if (me->state != Thread::ENDED)
        me->turn.wait(hold, [me] { return running == me; });
}

void waitFor(Hold &hold, const void *what, long long until, const char *call) {
    self->on = what;
    self->since = clockNow;
    self->until = until;
    self->state = Thread::WAITS;
    yield(hold, call);
}

void take(Hold &hold, const void *mutex) {
    while (owners[mutex] != nullptr)
        waitFor(hold, mutex, kNever, "lock");
    owners[mutex] = self;
}

// Of a scheduled thread, however that comes: it may be cancelled.
struct Ending {
    ~Ending() {
        Hold hold(baton);
        self->state = Thread::ENDED;
        for (const auto &[mutex, owner] : owners)
            if (owner == self)
                note("nothing is left locked");
        wake(self);
        if (self != threads.front().get())
            yield(hold, "end");
    }
};

void *runBody(void *thread) {
    self = static_cast<Thread *>(thread);
    {
        Hold hold(baton);
        self->turn.wait(hold, [] { return running == self; });
    }
    const Ending ending;
    self->body();
    return nullptr;
}

Thread *make(const std::string &name, std::function<void()> body) {
    threads.push_back(std::make_unique<Thread>());
    Thread *thread = threads.back().get();
    thread->name = name;
    thread->body = std::move(body);
    if (pthread_create(&thread->id, nullptr, runBody, thread) != 0)
        giveUp("there is a thread to be had");
    return thread;
}

Thread *findWatcher(pthread_t id) {
    for (const auto &thread : threads)
        if (thread->isWatcher && !thread->isJoined && thread->id == id)
            return thread.get();
    note("nobody asks for a thread that is no more");
    return nullptr;
}

void runAll(const Scenario &scenario) {
    scenario.begin();
    std::vector<Thread *> actors;
    Hold hold(baton);
    for (const auto &actor : scenario.actors)
        actors.push_back(make("actor " + std::to_string(actors.size() + 1), actor));
    deciding = true;
    for (Thread *actor : actors)
        while (actor->state != Thread::ENDED)
            waitFor(hold, actor, kNever, "begin");
    deciding = false;
    hold.unlock();
    scenario.end();
}

void runOnce(const Scenario &scenario) {
    owners.clear();
    clockNow = kStart;
    steps = 0;
    schedule.begin();
    withAtomics = scenario.atomics;
    Hold hold(baton);
    running = make("the beginning", [&] { runAll(scenario); });
    const pthread_t first = running->id; // others are added meanwhile
    running->turn.notify_one();
    hold.unlock();
    pthread_join(first, nullptr);
    for (std::size_t i = 1; i < threads.size(); ++i) {
        if (threads[i]->isWatcher && !threads[i]->isJoined)
            giveUp("every thread is joined");
        if (!threads[i]->isWatcher)
            pthread_join(threads[i]->id, nullptr);
    }
    threads.clear();
}

} // namespace

long explore(const std::string &name, const Scenario &scenario, int preemptions, long random) {
    long count = 0;
    problem.clear();
    schedule.search(preemptions);
    do {
        runOnce(scenario);
        ++count;
    } while (problem.empty() && schedule.advance());
    const long searched = count;
    const char *given = getenv("OXT_SEED");
    const unsigned seed = given != nullptr ? static_cast<unsigned>(atoll(given)) : std::random_device()();
    schedule.drawLots(seed);
    for (long i = 0; i < random && problem.empty(); ++i, ++count)
        runOnce(scenario);
    printf("%s: %ld schedules with at most %d preemptions, %ld random ones (OXT_SEED=%u)\n", name.c_str(), searched,
           preemptions, count - searched, seed);
    EXPECT_EQ(problem, "") << name << ", schedule " << count;
    return count;
}

void broken(const std::string &promise) {
    const Hold hold(baton);
    note(promise);
}

long long waited() {
    return self->waited;
}

void rest(long long nanoseconds) {
    Hold hold(baton);
    if (self == nullptr)
        return;
    const long long before = self->waited;
    waitFor(hold, nullptr, clockNow + nanoseconds, "rest");
    self->waited = before;
}

int watchers() {
    const Hold hold(baton);
    return static_cast<int>(
        std::count_if(threads.begin(), threads.end(), [](const auto &t) { return t->isWatcher && !t->isJoined; }));
}

int watchersMade() {
    const Hold hold(baton);
    return static_cast<int>(std::count_if(threads.begin(), threads.end(), [](const auto &t) { return t->isWatcher; }));
}

void decide(const char *call) {
    Hold hold(baton);
    if (self != nullptr && deciding && (withAtomics || call != nullptr))
        yield(hold, call != nullptr ? call : "atomic");
}

int lock(const void *mutex, bool tries) {
    decide(tries ? "trylock" : "lock");
    Hold hold(baton);
    if (self == nullptr)
        return 0;
    if (tries && owners[mutex] != nullptr)
        return EBUSY;
    take(hold, mutex);
    return 0;
}

int unlock(const void *mutex) {
    const Hold hold(baton);
    if (self == nullptr)
        return 0;
    if (owners[mutex] != self)
        note("whoever unlocks has locked");
    owners[mutex] = nullptr;
    wake(mutex);
    return 0;
}

int await(const void *condition, const void *mutex, long long until) {
    unlock(mutex);
    Hold hold(baton);
    waitFor(hold, condition, until, "wait");
    const bool timedOut = self->timedOut;
    take(hold, mutex);
    return timedOut ? ETIMEDOUT : 0;
}

void wakeAll(const void *condition) {
    const Hold hold(baton);
    wake(condition);
}

void sleepUntil(long long when) {
    Hold hold(baton);
    if (self == nullptr)
        return;
    if (!(self->cancelled && self->cancellable))
        waitFor(hold, self, when, "sleep");
    const bool ends = self->cancelled && self->cancellable;
    self->cancelled = self->cancelled && !ends;
    hold.unlock();
    if (ends)
        pthread_exit(nullptr);
}

long long now() {
    const Hold hold(baton);
    return clockNow;
}

int create(pthread_t *id, void *(*body)(void *), void *argument) {
    {
        const Hold hold(baton);
        Thread *made = make("the watch thread", [=] { body(argument); });
        made->isWatcher = true;
        *id = made->id;
    }
    decide("pthread_create");
    return 0;
}

int cancel(pthread_t id) {
    decide("pthread_cancel");
    const Hold hold(baton);
    Thread *thread = findWatcher(id);
    if (thread == nullptr)
        return ESRCH;
    thread->cancelled = true;
    if (thread->cancellable && thread->state == Thread::WAITS && thread->on == thread)
        endWait(*thread, false);
    return 0;
}

bool setCancellable(bool is) {
    const Hold hold(baton);
    return self == nullptr || std::exchange(self->cancellable, is);
}

int ask(pthread_t id) {
    const Hold hold(baton);
    return findWatcher(id) != nullptr ? 0 : ESRCH;
}

int tryJoin(pthread_t id) {
    decide("pthread_tryjoin_np");
    Hold hold(baton);
    Thread *thread = findWatcher(id);
    if (thread == nullptr)
        return ESRCH;
    if (thread->state != Thread::ENDED)
        return EBUSY;
    thread->isJoined = true;
    hold.unlock();
    return pthread_join(id, nullptr);
}

} // namespace explorer
