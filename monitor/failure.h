// How a command ends, and the one exception that carries it to main.
#ifndef OXT_MONITOR_FAILURE_H
#define OXT_MONITOR_FAILURE_H

#include <stdexcept>
#include <string>

namespace oxttool {

enum class Exit {
    Ok = 0,
    Refused = 1,        // the provider refused the request or failed
    Usage = 2,          // the command line cannot be understood
    Environment = 3,    // the provider cannot be hosted here and now
    NoFileSystem = 4,   // no mounted file system qualifies, so that the provider has nothing to begin with
    NoSharedMemory = 5, // the system has no shared memory for the provider
};

// The text says what went wrong and, on further lines, what to do about it.
struct Failure : std::runtime_error {
    Failure(Exit code, const std::string &text) : std::runtime_error(text), exitCode(code) {}
    Exit exitCode;
    bool unexplained = false; // the provider's answer does not tell the reason
};

} // namespace oxttool

#endif
