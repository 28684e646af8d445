// The agent's directory as this machine has it: whether a provider can work in it, and whether one already does.
//
// One oxtfsctl at a time hosts a provider: each locks a file in work/, so that commands in a row of scripts wait for
// each other instead of meeting. The file is the owner's alone: whoever may only look at the directory can lock
// nothing.
#ifndef OXT_MONITOR_AGENTDIR_H
#define OXT_MONITOR_AGENTDIR_H

#include <chrono>
#include <string>

#include "fd.h"
#include "providerSegment.h"

namespace oxttool {

// The directory that provider and tool were built for, with its closing slash.
std::string agentDirectory();

inline constexpr const char *kSaveFileName = "oxtfssave.dat"; // in data/; every pass ends by writing it
inline constexpr const char *kAlertFileName = "svalert.json"; // in log/
inline constexpr const char *kTraceFileName = "oxtfs.log";    // in log/

// Throws an environment failure that says what to do unless data/, work/ and log/ of `root` can be written, and data/
// and work/ and the lock by nobody else: who can may replace the settings, and what programs take for the provider's.
void checkAgentDirectory(const std::string &root);

// Locks the file in `root`work/ and waits for it at most `patience`. No descriptor, with errno, when another process
// held it all the time (EWOULDBLOCK) or it cannot be opened or locked.
Fd lockWork(const std::string &root, std::chrono::milliseconds patience);

// The whole message for a user whom that provider stops.
std::string describe(const ProviderAtWork &found);

// Who is at work in `root`, as a command finds it that is about to work there itself.
struct Workplace {
    Fd lock;           // of the file in work/; none while another command holds it
    int lockError = 0; // errno of why there is none
    std::optional<ProviderAtWork> provider;
};

// Waits a few seconds for another command to end. Never fails: what cannot be looked at counts as nobody.
Workplace enterWork(const std::string &root);

} // namespace oxttool

#endif
