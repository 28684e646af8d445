// How the provider's passes go, seen from outside: each one that succeeds ends with a written save file, one that fails
// says why in the trace log, and one that hangs says nothing. Pure.
#ifndef OXT_MONITOR_PASSES_H
#define OXT_MONITOR_PASSES_H

#include <chrono>
#include <ctime>
#include <string>

namespace oxttool {

struct Passes {
    using Clock = std::chrono::steady_clock;
    using Seconds = std::chrono::duration<double>;

    unsigned long succeeded = 0, failed = 0;
    std::string failing;         // why the last one failed; empty after a success
    std::time_t lastSuccess = 0; // 0: none yet
    Seconds lastDuration{0};     // of the last that ended
    Clock::time_point begin{};   // of the one at hand or to come: when the provider's sleep is over
    Clock::time_point next{};    // the same, or later where that one hangs: when the one behind it would begin

    // The last pass succeeded and no later one is missing.
    bool areWell(Clock::time_point now, std::chrono::seconds cycle) const;
    bool any() const { return succeeded + failed > 0; }
    // From then on, the next pass is taken for hung.
    Clock::time_point overdue(std::chrono::seconds cycle) const;
};

// The first one, or the next, begins then.
void passBegins(Passes &passes, Passes::Clock::time_point when);
// At the moment when the provider goes to sleep, for `cycle`.
void passSucceeded(Passes &passes, Passes::Clock::time_point now, std::time_t wall, std::chrono::seconds cycle);
void passFailed(Passes &passes, Passes::Clock::time_point now, std::chrono::seconds cycle, const std::string &reason);
// Nothing has been seen of the pass that was due.
void passMissed(Passes &passes, std::chrono::seconds cycle, const std::string &reason);

// "12 file systems, 1 warning, next look in 40 s"
std::string statusLine(const Passes &passes, std::size_t fileSystems, std::size_t warnings, std::size_t fatals,
                       Passes::Clock::time_point now);

} // namespace oxttool

#endif
