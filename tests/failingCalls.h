// The provider's own calls of the C library, counted and made to fail.
//
// OXT_FAILING_PROVIDER is the provider linked so that these calls, and nobody else's, come to this module
// (OXT_FAILING_CALLS in CMakeLists.txt names them); from here they go on to the system, fakeSystem's replacements
// included. The agent's two libraries are this module's: a trace that formats each line, and a keeper of alerts.
#ifndef OXT_FAILING_CALLS_H
#define OXT_FAILING_CALLS_H

#include <map>
#include <set>
#include <string>

namespace failing {

// The nth call from now on fails (1 is the next one, 0 none): it alone; with the two after it; with every later one of
// that function, unless its caller would only try again for a long time.
enum Mode { ONCE, THRICE, FOREVER };
void arm(long nth, Mode mode);

struct Struck {
    std::map<std::string, long> calls; // that failed, by function
    bool discovery = false;            // one of them while the file systems were looked at
};
Struck disarm();

// For a provider that was just loaded: whether it can open the agent's libraries.
void begin(bool agentOffered);

// What the provider took and has not given back, by the function that took it: blocks, streams, descriptors, attached
// segments, locks, threads.
std::multiset<std::string> held();

// The watch thread stands still at its start and in each sleep. Lets it go for one pass; false when it does not.
bool pass();

std::set<std::string> takeAlerts(); // since the last time

} // namespace failing

#endif
