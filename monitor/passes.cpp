#include "passes.h"

#include <algorithm>

namespace oxttool {

namespace {

constexpr std::chrono::seconds kLeastPatience(10), kMostPatience(30);

void end(Passes &passes, Passes::Clock::time_point now, std::chrono::seconds cycle) {
    passes.lastDuration = std::max<Passes::Seconds>(now - passes.begin, Passes::Seconds(0));
    passBegins(passes, now + cycle);
}

std::string counted(std::size_t count, const std::string &one, const std::string &many) {
    return std::to_string(count) + " " + (count == 1 ? one : many);
}

} // namespace

Passes::Clock::time_point Passes::overdue(std::chrono::seconds cycle) const {
    return next + std::clamp(cycle, kLeastPatience, kMostPatience);
}

bool Passes::areWell(Clock::time_point now, std::chrono::seconds cycle) const {
    // Who watches for missing passes may itself hang; it gets a moment longer.
    return succeeded > 0 && failing.empty() && now < overdue(cycle) + kLeastPatience;
}

void passBegins(Passes &passes, Passes::Clock::time_point when) {
    passes.begin = passes.next = when;
}

void passSucceeded(Passes &passes, Passes::Clock::time_point now, std::time_t wall, std::chrono::seconds cycle) {
    end(passes, now, cycle);
    ++passes.succeeded;
    passes.lastSuccess = wall;
    passes.failing.clear();
}

void passFailed(Passes &passes, Passes::Clock::time_point now, std::chrono::seconds cycle, const std::string &reason) {
    end(passes, now, cycle);
    ++passes.failed;
    passes.failing = reason;
}

void passMissed(Passes &passes, std::chrono::seconds cycle, const std::string &reason) {
    passes.next += cycle;
    ++passes.failed;
    passes.failing = reason;
}

std::string statusLine(const Passes &passes, std::size_t fileSystems, std::size_t warnings, std::size_t fatals,
                       Passes::Clock::time_point now) {
    std::string line = counted(fileSystems, "file system", "file systems");
    if (fatals > 0)
        line += ", " + std::to_string(fatals) + " fatal";
    if (warnings > 0)
        line += ", " + counted(warnings, "warning", "warnings");
    if (!passes.failing.empty())
        return line + ", passes fail: " + passes.failing;
    const auto left = std::chrono::ceil<std::chrono::seconds>(passes.next - now).count();
    return line + (left > 0 ? ", next look in " + std::to_string(left) + " s" : ", looking");
}

} // namespace oxttool
