// The agent's directory as this machine has it: whether a provider can work in it, and whether one already does.
//
// One oxtfsctl at a time hosts a provider: each takes a lock on the directory work/ itself, so that commands in a row
// of scripts wait for each other instead of meeting.
#ifndef OXT_MONITOR_AGENTDIR_H
#define OXT_MONITOR_AGENTDIR_H

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>

#include "fd.h"

namespace oxttool {

// The directory that provider and tool were built for, with its closing slash.
std::string agentDirectory();

inline constexpr const char *kSaveFileName = "oxtfssave.dat"; // in data/; every pass ends by writing it
inline constexpr const char *kAlertFileName = "svalert.json"; // in log/
inline constexpr const char *kTraceFileName = "oxtfs.log";    // in log/

// What finds a segment of the provider: the key file of a class, 0 to 2, and what is given to ftok beside it.
std::string keyFileOf(const std::string &root, int digit);
inline constexpr int kKeyProject = 69;

bool isAlive(pid_t pid);
// Printable; empty when it cannot be told.
std::string processName(pid_t pid);

// Throws an environment failure that says what to do unless data/, work/ and log/ of `root` can be written.
void checkAgentDirectory(const std::string &root);

// Locks `root`work/ and waits for it at most `patience`. No descriptor when another process held it all the time.
Fd lockWork(const std::string &root, std::chrono::milliseconds patience);

struct ProviderAtWork {
    pid_t pid = 0;       // of the process that made the segment; 0 when it cannot be told
    std::string process; // its name; empty when it cannot be told
    std::string keyFile;
};

// A provider that keeps its records in shared memory under a key file of `root`work/: one whose maker lives, or that
// somebody has attached, or that we may not look at. Leaves everything as it is.
std::optional<ProviderAtWork> findProviderAtWork(const std::string &root);

// "process 123 (name)", or as much of it as is known.
std::string nameOf(const ProviderAtWork &found);

// The whole message for a user whom that provider stops.
std::string describe(const ProviderAtWork &found);

// Who is at work in `root`, as a command finds it that is about to work there itself.
struct Workplace {
    Fd lock; // of work/; none while another command holds it
    std::optional<ProviderAtWork> provider;
};

// Waits a few seconds for another command to end. Never fails: what cannot be looked at counts as nobody.
Workplace enterWork(const std::string &root);

} // namespace oxttool

#endif
