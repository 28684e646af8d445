// What the rules of the settings file want of each file system, and which changes bring it about. Pure: the monitor
// makes the changes, through the provider's own methods.
//
// A setting that a rule has set follows the rule: when the rule's outcome changes, with the file system's size or with
// the file, it is set anew. What a client set by hand since then stays until that outcome changes.
#ifndef OXT_MONITOR_RULES_H
#define OXT_MONITOR_RULES_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "fileSystem.h"
#include "fsSetting.h"
#include "settings.h"

namespace oxttool {

struct Outcome {
    std::optional<std::uint64_t> value; // none: no rule names this setting
    int line = 0;                       // of the rule
};
using Outcomes = std::array<Outcome, kSettings>;

// Of the rules that match, the first that names a setting decides it. None for a file system that the provider judges
// never, since it would refuse the change.
Outcomes outcomesOf(const std::vector<Rule> &rules, const FileSystem &fs);

// What is remembered of a setting, over a restart too.
struct SettingMemory {
    std::optional<std::uint64_t> outcome; // of the rules when they were last applied
    bool byHand = false;                  // a client has set another value since
    std::uint64_t before = 0;             // the value that the first rule replaced
    int line = 0;                         // of the rule; not remembered
    bool operator==(const SettingMemory &other) const {
        return outcome == other.outcome && byHand == other.byHand && before == other.before;
    }
};
struct RuleMemory {
    std::uint64_t sizeMiB = 0;
    std::array<SettingMemory, kSettings> settings;
    bool operator==(const RuleMemory &other) const { return sizeMiB == other.sizeMiB && settings == other.settings; }
};
using RuleMemories = std::map<std::string, RuleMemory>; // by device, as the provider finds settings

struct Change {
    std::string device, index, mountPoint;
    std::size_t setting = 0;
    std::uint64_t from = 0, to = 0;
    int line = 0; // of the rule; 0: no rule names the setting any more
};

// Brings the memories up to date with what the file systems are now, and tells the changes to make; forget one that the
// provider refused, and it is planned again. Only the first file system of a device counts: its settings are the
// device's.
std::vector<Change> planChanges(const std::vector<Rule> &rules, const std::vector<FileSystem> &fileSystems,
                                RuleMemories &memories);

void forgetChange(RuleMemories &memories, const Change &change);

// The changes that make everything what the rules say, whoever set it.
std::vector<Change> allChanges(const std::vector<Rule> &rules, const std::vector<FileSystem> &fileSystems);

// What has changed meanwhile, with the rule that names the setting.
std::vector<Change> changesBetween(const std::vector<FileSystem> &before, const std::vector<FileSystem> &after,
                                   const std::vector<Rule> &rules);

// "the rule in line 12", "by hand" or "no rule": what a setting's value comes from.
inline constexpr const char *kNoRule = "no rule";
std::string originOf(const RuleMemories &memories, const FileSystem &fs, std::size_t setting);

} // namespace oxttool

#endif
