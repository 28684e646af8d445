#include "discovery.h"

#include <cstring>
#include <map>

#include "devices.h"
#include "discoveryTrace.h"
#include "failure.h"

namespace oxttool {

namespace {

using oxtmachine::Facts;
using oxtmachine::Mount;

std::string errorText(int error) {
    return error != 0 ? std::strerror(error) : "unknown error";
}

int volumeError(const Facts &machine, const std::string &dir) {
    const auto volume = machine.volumes.find(dir);
    return volume != machine.volumes.end() ? volume->second.error : 0;
}

struct Judged {
    Degree degree;
    Rule rule;
    std::string reason;
};

// What is listed and has no known kind of drive.
Judged judgeUnknown(const MountSteps &steps, const Verdict &verdict) {
    const std::string device = "its device node " + verdict.device;
    const std::string kind = steps.block ? "block" : "character";
    if (!steps.named)
        return {Degree::Listed, Rule::NoDevice, "every mount on it is layered, so that its device is unknown"};
    if (steps.major < 0)
        return {Degree::Listed, Rule::NoNode, device + " cannot be examined: " + errorText(steps.nodeError)};
    if (steps.major == 0)
        return {Degree::Listed, Rule::NotADevice, verdict.device + " is not a device node"};
    if (!steps.driversRead)
        return {Degree::Listed, Rule::NoDrivers, "/proc/devices, which names the drivers, cannot be read"};
    if (steps.driverMajor != steps.major)
        return {Degree::Listed, Rule::NoDriver,
                "no " + kind + " driver has its major number, " + std::to_string(steps.major)};
    return {Degree::Listed, Rule::OtherDriver, "the provider does not know the driver " + steps.driver};
}

// What is listed.
Judged judge(const MountSteps &steps, const Verdict &verdict, int volumeError) {
    constexpr const char *drives[] = {"a fixed disk", "a removable disk", "an optical disc", "a RAM disk"};
    if (steps.driveType < 0 || steps.driveType > 3)
        return judgeUnknown(steps, verdict);
    const std::string by = steps.fixedByName ? "its name" : "its driver, " + steps.driver;
    const std::string drive =
        drives[steps.driveType] + (" by " + by) + (steps.byFileSystem ? ", and its file system" : "");
    if (!steps.measured && volumeError != 0)
        return {Degree::Listed, Rule::Unmeasured, "its file system cannot be examined: " + errorText(volumeError)};
    if (!steps.measured)
        return {Degree::Listed, Rule::Kind, drive + ": not measured"};
    if (steps.monitored == 1)
        return {Degree::Monitored, Rule::Monitored, drive};
    if (steps.driveType != 0)
        return {Degree::Measured, Rule::RamDisk, drive + ": not monitored"};
    if (steps.status == -1)
        return {Degree::Measured, Rule::Family, "its type is not monitored automatically"};
    return {Degree::Measured, Rule::Small, "it is too small to be monitored"};
}

// What is not listed.
Judged judgeUnlisted(const Facts &machine, const Mount &mount, bool examined, const ListLine *line) {
    if (line == nullptr && examined)
        return {Degree::NotListed, Rule::NoRoom, "the list has no room for it, since other devices cannot be examined"};
    const auto node = machine.nodes.find(mount.device);
    const int nodeError = node != machine.nodes.end() ? node->second.error : 0;
    if (line == nullptr && nodeError != 0)
        return {Degree::NotListed, Rule::NoRoom,
                "its device node " + mount.device + " cannot be examined: " + errorText(nodeError)};
    if (line == nullptr)
        return {Degree::NotListed, Rule::NoRoom,
                "its file system cannot be examined: " + errorText(volumeError(machine, mount.dir))};
    if (line->verb == ListLine::Ignore)
        return {Degree::NotListed, Rule::NoType, "the mount table names no type for it"};
    if (line->verb == ListLine::JumpOver)
        return {Degree::NotListed, Rule::Type, "its type is not listed"};
    return {Degree::NotListed, Rule::Twice, "its directory is mounted twice, so that neither mount is listed"};
}

// The line of each entry; null where it has none. Lines and entries stand in one order, and a line names the device: an
// entry without one could only be mistaken for the next if both named the same device and differed in type.
std::vector<const ListLine *> linesOf(const std::vector<Mount> &mounts, const std::vector<ListLine> &list) {
    std::vector<const ListLine *> lines;
    auto next = list.cbegin();
    for (const Mount &mount : mounts) {
        const bool its = next != list.cend() && next->device == mount.device;
        lines.push_back(its ? &*next++ : nullptr);
    }
    return lines;
}

// The entry that stands in the list in the end, by its directory.
std::map<std::string, std::size_t> listedEntries(const std::vector<Mount> &mounts,
                                                 const std::vector<const ListLine *> &lines) {
    std::map<std::string, std::size_t> listed;
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        if (lines[i] != nullptr && lines[i]->verb == ListLine::Add)
            listed[mounts[i].dir] = i;
        else if (lines[i] != nullptr && lines[i]->verb == ListLine::Remove)
            listed.erase(mounts[i].dir);
    }
    return listed;
}

void takeFacts(const MountSteps &steps, Verdict &verdict) {
    verdict.driver = steps.driverMajor == steps.major ? steps.driver : "";
    verdict.driveType = steps.driveType;
    verdict.sizeMiB = steps.size;
    verdict.freeMiB = steps.free;
}

} // namespace

const char *degreeName(Degree degree) {
    constexpr const char *names[] = {"not listed", "listed", "measured", "monitored"};
    return names[static_cast<int>(degree)];
}

const char *ruleName(Rule rule) {
    constexpr const char *names[] = {"type",      "no-type",      "twice",          "no-room",
                                     "no-device", "no-node",      "no-device-node", "no-drivers",
                                     "no-driver", "other-driver", "kind-of-drive",  "unmeasured",
                                     "ram-disk",  "family",       "small",          "monitored"};
    return names[static_cast<int>(rule)];
}

std::vector<Verdict> verdictsOf(const Facts &machine, const std::vector<oxtmachine::TraceLine> &trace) {
    const std::vector<Mount> mounts = machine.mountTable();
    DiscoveryTrace traced = discoveryIn(trace);
    traced.examined.resize(mounts.size());
    const std::vector<const ListLine *> lines = linesOf(mounts, traced.list);
    const std::map<std::string, std::size_t> inList = listedEntries(mounts, lines);
    std::map<std::string, const MountSteps *> listed;
    for (const MountSteps &steps : traced.listed)
        listed[steps.dir] = &steps;
    std::vector<Verdict> verdicts;
    for (std::size_t i = 0; i < mounts.size(); ++i) {
        Verdict verdict;
        verdict.mountPoint = mounts[i].dir;
        verdict.device = mounts[i].device;
        verdict.type = mounts[i].type;
        const auto node = machine.nodes.find(verdict.device);
        verdict.node = node != machine.nodes.end() ? oxtmachine::nodeText(node->second) : "";
        const auto place = inList.find(verdict.mountPoint);
        const auto steps = listed.find(verdict.mountPoint);
        const bool isListed = place != inList.end() && place->second == i && steps != listed.end();
        const Judged judged = isListed ? judge(*steps->second, verdict, volumeError(machine, verdict.mountPoint))
                                       : judgeUnlisted(machine, mounts[i], traced.examined[i], lines[i]);
        verdict.degree = judged.degree;
        verdict.rule = judged.rule;
        verdict.reason = judged.reason;
        if (isListed)
            takeFacts(*steps->second, verdict);
        verdicts.push_back(verdict);
    }
    return verdicts;
}

Discovery discover(const Hosting &hosting) {
    int memoryError = 0; // discovery comes before it, and the provider would only try again for long
    oxtmachine::withMachine([&](oxtmachine::Machine &m) {
        m.traced = true;
        std::swap(m.memoryError, memoryError);
    });
    {
        oxthost::Options options;
        options.library = hosting.library;
        oxthost::Host host(std::move(options));
        host.enumInstances("OXT_FileSystem"); // whatever it answers: what it looked at is told by the trace
        host.cleanupInstance(true);
        host.cleanupMethod(true);
    }
    Discovery found;
    oxtmachine::withMachine([&](oxtmachine::Machine &m) {
        m.traced = false;
        std::swap(m.memoryError, memoryError);
        found.verdicts = verdictsOf(m, m.trace);
        m.trace.clear();
        found.machine = m;
    });
    if (found.machine.mountsError == Facts::kUnasked)
        throw Failure(Exit::Environment, "the provider did not look at the mounts.");
    return found;
}

} // namespace oxttool
