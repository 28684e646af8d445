// Which of the kernel's shared-memory segments are a provider's. Any user can make one under any key, write into it
// what he likes, and give it away; keys that a provider has left are there to be read. So a segment is believed only
// when the owner of the key file made it, nobody else may use it, and the process that made it lives.
#ifndef OXT_MONITOR_PROVIDERSEGMENT_H
#define OXT_MONITOR_PROVIDERSEGMENT_H

#include <sys/shm.h>
#include <sys/types.h>

#include <optional>
#include <string>

namespace oxttool {

inline constexpr int kKeyFiles = 3;

// What finds a segment of the provider: the key file of a class, 0 to 2, and what is given to ftok beside it.
std::string keyFileOf(const std::string &root, int digit);
inline constexpr int kKeyProject = 69; // tests/testPages.cpp holds it to the provider's

struct ProviderSegment {
    int id = 0;
    shmid_ds about = {};   // sizes and times only where it is readable
    bool readable = false; // by us
};

// The one under that key file, when it is a provider's that is at work. Throws an environment failure when the key file
// may not be looked at.
std::optional<ProviderSegment> providerSegment(const std::string &keyFile);

struct ProviderAtWork {
    pid_t pid = 0;       // of the process that made the segment; 0 when it cannot be told
    std::string process; // its name; empty when it cannot be told
    std::string keyFile;
};

// A provider other than one in this process that keeps a segment under a key file of `root`work/. Leaves everything as
// it is. The one way to find out: a provider has one or more of its segments, whatever state it is in, from its first
// request to its end.
std::optional<ProviderAtWork> findProviderAtWork(const std::string &root);

// "process 12 (sfcbd)", for a message.
std::string nameOf(const ProviderAtWork &found);

} // namespace oxttool

#endif
