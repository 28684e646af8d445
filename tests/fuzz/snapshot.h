// The snapshot over a mount table and a driver list given as texts, with every device and volume invented from its
// name.
#ifndef OXT_FUZZ_SNAPSHOT_H
#define OXT_FUZZ_SNAPSHOT_H

#include <string>

// Ends the process when a snapshot breaks a promise: what its records are, and that they are the same while a trace
// listens as when nobody does.
void checkSnapshot(const std::string &mounts, const std::string &drivers);

#endif
