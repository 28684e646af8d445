#include "discoveryTrace.h"

#include <cstdlib>

namespace oxttool {

namespace {

using oxtmachine::TraceLine;

bool begins(const std::string &text, const char *with) {
    return text.rfind(with, 0) == 0;
}

// The value behind `before`, up to the last closing bracket: a path may hold one.
std::string valueAfter(const std::string &text, const std::string &before) {
    const std::size_t at = text.find(before);
    const std::size_t end = text.rfind(']');
    return at == std::string::npos || end == std::string::npos
               ? ""
               : text.substr(at + before.size(), end - at - before.size());
}

long numberAfter(const std::string &text, const char *before) {
    return std::strtol(valueAfter(text, before).c_str(), nullptr, 0);
}

void takeListLine(const std::string &text, DiscoveryTrace &traced) {
    constexpr struct {
        const char *words;
        ListLine::Verb verb;
    } verbs[] = {{"jump over device[", ListLine::JumpOver},
                 {"add device[", ListLine::Add},
                 {"remove device[", ListLine::Remove},
                 {"ignore device[", ListLine::Ignore}};
    for (const auto &row : verbs)
        if (begins(text, row.words))
            traced.list.push_back({row.verb, valueAfter(text, row.words)});
}

void takeDriverLine(const std::string &text, MountSteps &steps) {
    if (begins(text, "Curr->Major=[")) {
        steps.driverMajor = numberAfter(text, "Major=[");
        steps.driver = valueAfter(text, "Name=[");
    } else if (begins(text, "statfs.type=[")) {
        steps.byFileSystem = true;
    } else if (begins(text, "_OUT_ getDeviceInfo() Failure!!")) {
        steps.driversRead = false;
    }
}

void takeStep(const TraceLine &line, MountSteps &steps) {
    const std::string &text = line.text;
    if (line.function == "getDriveType") {
        steps.named = steps.named && !begins(text, "_OUT_ getDevName Failure!!");
        steps.fixedByName =
            steps.fixedByName || (begins(text, "_OUT_ devName=[") && text.find("is FIXED") < text.size());
    } else if (line.function == "getMajorNumber" && begins(text, "_OUT_ stat() Failure!!")) {
        steps.nodeError = static_cast<int>(numberAfter(text, "errno=["));
    } else if (line.function == "getMajorNumber" && begins(text, "_OUT_ isBlock=[")) {
        steps.block = numberAfter(text, "isBlock=[") == 1;
        steps.major = numberAfter(text, "major=[");
    } else if (line.function == "getDevType") {
        takeDriverLine(text, steps);
    } else if (line.function == "GetMountPointFreeSpace") {
        steps.measured = steps.measured || text == "_OUT_";
    }
}

// A line of the record that was made of a mount point.
void takeRecordLine(const std::string &text, MountSteps &steps) {
    const auto number = [&text] { return numberAfter(text, "=["); };
    if (begins(text, "    FileSystemSize"))
        steps.size = std::strtoull(valueAfter(text, "=[").c_str(), nullptr, 10);
    else if (begins(text, "    AvailableSpace"))
        steps.free = std::strtoull(valueAfter(text, "=[").c_str(), nullptr, 10);
    else if (begins(text, "    DriveType"))
        steps.driveType = number();
    else if (begins(text, "    MonThreshold"))
        steps.monitored = number();
    else if (begins(text, "    FreeSpaceSts"))
        steps.status = number();
}

} // namespace

DiscoveryTrace discoveryIn(const std::vector<TraceLine> &lines) {
    DiscoveryTrace traced;
    std::size_t records = 0; // they stand in the order of the list
    for (const TraceLine &line : lines) {
        const std::string &text = line.text;
        if (line.function == "OXTFileSysGetConfig" && begins(text, "fsname=["))
            traced.examined.push_back(true);
        else if (line.function == "OXTFileSysGetConfig" && begins(text, "jump over device["))
            traced.examined.push_back(false);
        else if (line.function == "GetMountPointStrings")
            takeListLine(text, traced);
        else if (line.function == "fsGetCurrentInfo" && begins(text, "_OUT_"))
            break;
        else if (line.function == "fsGetCurrentInfo") {
            records += begins(text, "  --Index") ? 1U : 0U;
            if (records > 0 && records <= traced.listed.size())
                takeRecordLine(text, traced.listed[records - 1]);
        } else if (line.function == "getDriveType" && begins(text, "_IN_ RootPNm=[")) {
            traced.listed.emplace_back();
            traced.listed.back().dir = valueAfter(text, "RootPNm=[");
        } else if (!traced.listed.empty())
            takeStep(line, traced.listed.back());
    }
    return traced;
}

} // namespace oxttool
