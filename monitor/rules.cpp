#include "rules.h"

#include <fnmatch.h>

#include <algorithm>
#include <set>

namespace oxttool {

namespace {

constexpr std::int64_t kFixedDisk = 0;
constexpr std::uint64_t kLeastJudgedMiB = 100; // the provider refuses changes below

bool matches(const std::string &pattern, const std::string &name) {
    return pattern.empty() || fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

bool matches(const Rule &rule, const FileSystem &fs) {
    return matches(rule.mount, fs.mountPoint) && matches(rule.device, fs.device) && matches(rule.type, fs.type);
}

bool isJudged(const FileSystem &fs) {
    return fs.driveType == kFixedDisk && fs.sizeMiB >= kLeastJudgedMiB;
}

std::optional<std::uint64_t> wantedBy(const Rule &rule, std::size_t setting, std::uint64_t sizeMiB) {
    if (setting == kMonitoring)
        return rule.monitored ? std::optional<std::uint64_t>(*rule.monitored ? 1 : 0) : std::nullopt;
    const std::optional<Amount> &amount = setting == kWarning ? rule.warning : rule.fatal;
    // The provider takes 1 MiB to the size. A threshold above the size is always reached, as one of the size is.
    return amount ? std::optional(std::clamp<std::uint64_t>(amount->of(sizeMiB), 1, sizeMiB)) : std::nullopt;
}

Change change(const FileSystem &fs, std::size_t setting, std::uint64_t to, int line) {
    return {fs.device, fs.index, fs.mountPoint, setting, kSettingOf[setting].now(fs), to, line};
}

// The value to which a setting goes that no rule names any more. A threshold from before another size has no meaning.
std::uint64_t valueWithoutRule(const FileSystem &fs, const SettingMemory &memory, std::size_t setting, bool sameSize) {
    return setting == kMonitoring || sameSize ? memory.before : kSettingOf[setting].now(fs);
}

void planSetting(const FileSystem &fs, std::size_t setting, const Outcome &outcome, bool sameSize,
                 SettingMemory &memory, std::vector<Change> &changes) {
    const std::uint64_t now = kSettingOf[setting].now(fs);
    memory.line = outcome.line;
    if (!outcome.value) {
        if (memory.outcome && !memory.byHand) {
            const std::uint64_t to = valueWithoutRule(fs, memory, setting, sameSize);
            if (to != now)
                changes.push_back(change(fs, setting, to, 0));
        }
        memory = {};
        return;
    }
    const bool newOutcome = memory.outcome != outcome.value;
    // The provider itself sets thresholds back when the size has changed: what was set by hand is gone with them.
    const bool lost = !sameSize && setting != kMonitoring;
    if (newOutcome || lost) {
        if (!memory.outcome || lost)
            memory.before = now;
        memory.outcome = outcome.value;
        memory.byHand = false;
        if (now != *outcome.value)
            changes.push_back(change(fs, setting, *outcome.value, outcome.line));
    } else {
        memory.byHand = now != *outcome.value;
    }
}

} // namespace

Outcomes outcomesOf(const std::vector<Rule> &rules, const FileSystem &fs) {
    Outcomes outcomes;
    if (!isJudged(fs))
        return outcomes;
    for (const Rule &rule : rules) {
        if (!matches(rule, fs))
            continue;
        for (std::size_t setting = 0; setting < kSettings; ++setting)
            if (const auto value = wantedBy(rule, setting, fs.sizeMiB); value && !outcomes[setting].value)
                outcomes[setting] = {value, rule.line};
    }
    return outcomes;
}

std::vector<Change> planChanges(const std::vector<Rule> &rules, const std::vector<FileSystem> &fileSystems,
                                RuleMemories &memories) {
    std::vector<Change> changes;
    RuleMemories kept;
    for (const FileSystem &fs : fileSystems) {
        if (kept.count(fs.device) != 0)
            continue;
        // Settings of a device that is gone are gone in the provider, too: its next coming is a new one.
        const auto known = memories.find(fs.device);
        RuleMemory memory = known != memories.end() ? known->second : RuleMemory();
        // A size that could not be measured this time is no new size.
        if (fs.sizeMiB == 0) {
            kept[fs.device] = memory;
            continue;
        }
        const bool sameSize = memory.sizeMiB == 0 || memory.sizeMiB == fs.sizeMiB;
        const Outcomes outcomes = outcomesOf(rules, fs);
        for (std::size_t setting = 0; setting < kSettings; ++setting)
            planSetting(fs, setting, outcomes[setting], sameSize, memory.settings[setting], changes);
        memory.sizeMiB = fs.sizeMiB;
        kept[fs.device] = memory;
    }
    memories = std::move(kept);
    return changes;
}

void forgetChange(RuleMemories &memories, const Change &change) {
    if (const auto known = memories.find(change.device); known != memories.end())
        known->second.settings[change.setting].outcome.reset();
}

std::vector<Change> allChanges(const std::vector<Rule> &rules, const std::vector<FileSystem> &fileSystems) {
    std::vector<Change> changes;
    std::set<std::string> seen;
    for (const FileSystem &fs : fileSystems) {
        if (!seen.insert(fs.device).second)
            continue;
        const Outcomes outcomes = outcomesOf(rules, fs);
        for (std::size_t setting = 0; setting < kSettings; ++setting)
            if (outcomes[setting].value && *outcomes[setting].value != kSettingOf[setting].now(fs))
                changes.push_back(change(fs, setting, *outcomes[setting].value, outcomes[setting].line));
    }
    return changes;
}

std::vector<Change> changesBetween(const std::vector<FileSystem> &before, const std::vector<FileSystem> &after,
                                   const std::vector<Rule> &rules) {
    std::map<std::string, const FileSystem *> old; // by device; the first of each
    for (const FileSystem &fs : before)
        old.emplace(fs.device, &fs);
    std::vector<Change> changes;
    std::set<std::string> seen;
    for (const FileSystem &fs : after) {
        const auto known = old.find(fs.device);
        if (known == old.end() || !seen.insert(fs.device).second)
            continue;
        const Outcomes outcomes = outcomesOf(rules, fs);
        for (std::size_t setting = 0; setting < kSettings; ++setting)
            if (kSettingOf[setting].now(*known->second) != kSettingOf[setting].now(fs))
                changes.push_back(change(*known->second, setting, kSettingOf[setting].now(fs), outcomes[setting].line));
    }
    return changes;
}

std::string originOf(const RuleMemories &memories, const FileSystem &fs, std::size_t setting) {
    const auto known = memories.find(fs.device);
    if (known == memories.end() || !known->second.settings[setting].outcome)
        return kNoRule;
    const SettingMemory &memory = known->second.settings[setting];
    return memory.byHand ? "by hand" : "the rule in line " + std::to_string(memory.line);
}

} // namespace oxttool
