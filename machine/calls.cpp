#include "calls.h"

#include <cstring>

namespace oxtmachine {

namespace {

constexpr char kAgent[] = OXT_AGENT_DIR;
constexpr std::size_t kAgentLength = sizeof kAgent - 1;

} // namespace

bool struck(Call call, int *result) {
    bool found = false;
    withMachine([&](Machine &m) {
        ++m.calls[static_cast<std::size_t>(call)];
        for (Injection &injection : m.injections) {
            if (injection.call != call || injection.nth < 0)
                continue;
            const bool counted = injection.nth > 0;
            if (counted && --injection.nth > 0)
                continue;
            if (counted)
                injection.nth = -1; // spent
            found = true;
            errno = injection.error;
            if (result != nullptr)
                *result = injection.result;
        }
    });
    return found;
}

std::string placed(const char *path, bool *inside) {
    std::string to = path;
    const bool agents = std::strncmp(path, kAgent, kAgentLength) == 0;
    withMachine([&](const Machine &m) {
        if (agents && !m.agent.empty())
            to.replace(0, kAgentLength, m.agent);
        if (const auto other = m.redirections.find(path); other != m.redirections.end())
            to = other->second;
    });
    if (inside != nullptr)
        *inside = agents;
    return to;
}

} // namespace oxtmachine
