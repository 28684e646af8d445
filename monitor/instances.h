// The provider's classes, and their instances as plain records and back.
#ifndef OXT_MONITOR_INSTANCES_H
#define OXT_MONITOR_INSTANCES_H

#include <optional>
#include <string>
#include <vector>

#include "fileSystem.h"
#include "oxtHost.h"

namespace oxttool {

inline constexpr const char *kFileSystemClass = "OXT_FileSystem";
inline constexpr const char *kConfigClass = "OXT_FileSystemConfig";
inline constexpr const char *kTotalClass = "OXT_FileSystemTotalNumber";
inline constexpr const char *kThreadClass = "OXT_FileSystemThread";

// A property that the instance lacks leaves its field as it is by default.
FileSystem fileSystemOf(const oxthost::Instance &instance);
Cycle cycleOf(const oxthost::Instance &config);
unsigned totalOf(const oxthost::Instance &total);
std::optional<bool> threadRunsOf(const oxthost::Instance &thread); // none where it cannot be told

// What the provider would answer, and behind its properties those that a running monitor adds.
oxthost::Instance instanceOf(const FileSystem &fs);
oxthost::Instance instanceOf(const Cycle &cycle);
oxthost::Instance instanceOfTotal(unsigned count);
oxthost::Instance instanceOfThread(std::optional<bool> runs);

// What a provider with these records would answer: the instances of a class, the instance with that key, or its
// refusal. threadRuns is none where it cannot be told.
struct KnownRecords {
    const std::vector<FileSystem> &fileSystems;
    const Cycle &cycle;
    std::optional<bool> threadRuns;
};
oxthost::Reply instancesFrom(const KnownRecords &records, const std::string &className);
oxthost::Reply instanceFrom(const KnownRecords &records, const std::string &className,
                            const std::vector<oxthost::NamedValue> &keys);

// The property's value as plain text; empty for none.
std::string textOf(const oxthost::Value &value);

bool isText(const oxthost::Value &value);

} // namespace oxttool

#endif
