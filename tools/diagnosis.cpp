#include "diagnosis.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>

#include "sharedMemory.h"
#include "shownText.h"

namespace oxttool {

namespace {

constexpr std::size_t kMostNamed = 6; // mounts of one kind

// The reason that there is nothing, in one sentence.
std::string headline(const Discovery &found) {
    const auto any = [&](auto matches) { return std::any_of(found.verdicts.begin(), found.verdicts.end(), matches); };
    const std::string nothing = "there is no file system to monitor: ";
    if (found.machine.mountsError != 0)
        return nothing +
               "/etc/mtab, which names the mounts, cannot be opened: " + std::strerror(found.machine.mountsError) + ".";
    if (found.verdicts.empty())
        return nothing + "/etc/mtab names no mount.";
    if (any([](const Verdict &verdict) { return verdict.mountPoint == "/" && verdict.type == "overlay"; }))
        return nothing + "the root is an overlay, as in a container, and nothing else qualifies.";
    if (any([](const Verdict &verdict) { return verdict.rule == Rule::NoRoom; }))
        return nothing + "no device node of those that are mounted from disks can be examined.";
    return nothing + "no mount is of a type that lies on a disk.";
}

// "/ (overlay), /proc (proc): its type is not listed".
std::string lineOf(const std::string &reason, const std::vector<std::string> &mounts) {
    std::string line = "  ";
    for (std::size_t i = 0; i < std::min(mounts.size(), kMostNamed); ++i)
        line += (i > 0 ? ", " : "") + mounts[i];
    const std::size_t more = mounts.size() - std::min(mounts.size(), kMostNamed);
    return line + (more > 0 ? " and " + std::to_string(more) + " more" : "") + ": " + reason;
}

} // namespace

std::string nothingListed(const Discovery &found) {
    std::vector<std::string> reasons;
    std::map<std::string, std::vector<std::string>> mounts; // by reason
    for (const Verdict &verdict : found.verdicts) {
        if (mounts[verdict.reason].empty())
            reasons.push_back(verdict.reason);
        mounts[verdict.reason].push_back(verdict.mountPoint + " (" + verdict.type + ")");
    }
    std::string text = headline(found);
    for (const std::string &reason : reasons)
        text += "\n" + printable(lineOf(reason, mounts[reason]));
    return text;
}

Failure explained(const Failure &failure, const Options &options) {
    if (!failure.unexplained)
        return failure;
    try {
        std::optional<HostedMachine> here;
        if (options.machine.empty())
            here.emplace(thisMachine());
        const Discovery found = discover(here ? here->over(options.hosting) : options.hosting);
        const auto listed = [](const Verdict &verdict) { return verdict.degree != Degree::NotListed; };
        const auto count = std::count_if(found.verdicts.begin(), found.verdicts.end(), listed);
        if (count == 0)
            return Failure(Exit::NoFileSystem, nothingListed(found) + "\n'oxtfsctl why' tells it for each mount.");
        const int error = options.machine.empty() ? sharedMemoryRefusal(static_cast<std::size_t>(count)) : 0;
        if (error != 0)
            return noSharedMemory(error);
    } catch (const std::exception &) {
        // without liboxtfsmachine.so the provider's own words have to do
    }
    return failure;
}

} // namespace oxttool
