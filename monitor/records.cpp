#include "records.h"

#include <algorithm>
#include <cstring>

#include "shownText.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr std::size_t kTextBytes = 256;
constexpr std::int64_t kMostMiB = std::int64_t(1) << 43; // 8 EiB, beyond what the kernel counts in bytes

// The fields that are read or judged, each once.
struct TextField {
    const char *name;
    std::size_t offset;
    enum Content { Empty, Filled, Type } content;
};
constexpr TextField kDevice = {"Name", 772, TextField::Filled};
constexpr TextField kMountPoint = {"_root", 1312, TextField::Filled};
constexpr TextField kType = {"_FileSystemType", 1584, TextField::Type};
constexpr TextField kTexts[] = {{"CSCreationClassName", 4, TextField::Empty},
                                {"CSName", 260, TextField::Empty},
                                {"CreationClassName", 516, TextField::Empty},
                                kDevice,
                                {"DeviceID", 1032, TextField::Empty},
                                kMountPoint,
                                kType};
constexpr const char *kTypes[] = {"ext4", "xfs", "ext3", "ext2", "others"};

struct NumberField {
    const char *name;
    std::size_t offset, width;
    bool isSigned;
    std::int64_t least, greatest; // that the provider writes
};
constexpr NumberField kIndex = {"Index", 0, 2, false, 1, 65535};
constexpr NumberField kDriveType = {"DriveType", 1028, 2, true, -1, 3};
constexpr NumberField kMonitored = {"MonitorThreshold", 1288, 2, false, 0, 1};
constexpr NumberField kWarning = {"WarningThreshold", 1292, 4, false, 1, 4294967295};
constexpr NumberField kWarningDefault = {"WarningThresholdDefault", 1296, 4, false, 1, 4294967295};
constexpr NumberField kFatal = {"FatalThreshold", 1300, 4, false, 1, 4294967295};
constexpr NumberField kFatalDefault = {"FatalThresholdDefault", 1304, 4, false, 1, 4294967295};
constexpr NumberField kStatus = {"FreeSpaceStatus", 1308, 2, true, -1, 3};
constexpr NumberField kSize = {"_FileSystemSize", 1568, 8, true, 0, kMostMiB};
constexpr NumberField kFree = {"_AvailableSpace", 1576, 8, true, 0, kMostMiB};
constexpr NumberField kNumbers[] = {kIndex, kDriveType,    kMonitored, kWarning, kWarningDefault,
                                    kFatal, kFatalDefault, kStatus,    kSize,    kFree};
constexpr NumberField kThresholds[] = {kWarning, kWarningDefault, kFatal, kFatalDefault};

constexpr NumberField kCycle = {"MonitorCycle", 0, 2, false, kLeastCycle, kGreatestCycle};
constexpr NumberField kCycleLeast = {"MonitorCycleMin", 2, 2, false, kLeastCycle, kLeastCycle};
constexpr NumberField kCycleGreatest = {"MonitorCycleMax", 4, 2, false, kGreatestCycle, kGreatestCycle};
constexpr NumberField kCycleStandard = {"MonitorCycleDefault", 6, 2, false, kDefaultCycle, kDefaultCycle};
constexpr NumberField kTotal = {"FileSystemTotalNumber", 0, 2, false, 0, 65535};
constexpr NumberField kReserved = {"reserved", 2, 2, false, 0, 0};

// Little-endian, as the machine that wrote them.
std::int64_t numberOf(ByteView record, const NumberField &field) {
    std::uint64_t value = 0;
    std::memcpy(&value, record.data() + field.offset, field.width);
    if (field.isSigned && field.width == 2)
        return static_cast<std::int16_t>(value);
    return static_cast<std::int64_t>(value);
}

unsigned smallOf(ByteView record, const NumberField &field) {
    return static_cast<unsigned>(numberOf(record, field));
}

bool isSound(std::int64_t value, const NumberField &field) {
    return value >= field.least && value <= field.greatest;
}

std::uint64_t spaceOf(ByteView record, const NumberField &field) {
    const std::int64_t value = numberOf(record, field);
    return isSound(value, field) ? static_cast<std::uint64_t>(value) : 0;
}

bool isEnded(ByteView record, const TextField &field) {
    return record.substr(field.offset, kTextBytes).find('\0') != ByteView::npos;
}

// What the provider makes of a text without an end as well.
std::string textOf(ByteView record, const TextField &field) {
    const ByteView array = record.substr(field.offset, kTextBytes - 1);
    return std::string(array.substr(0, array.find('\0')));
}

void doubtNumber(ByteView record, const NumberField &field, std::vector<std::string> &doubts) {
    const std::int64_t value = numberOf(record, field);
    if (isSound(value, field))
        return;
    const std::string least = std::to_string(field.least), greatest = std::to_string(field.greatest);
    doubts.push_back(field.name + (" is " + std::to_string(value)) +
                     (least == greatest ? ", not " + least : ", which is none of " + least + " to " + greatest) + ".");
}

void doubtText(ByteView record, const TextField &field, std::vector<std::string> &doubts) {
    if (!isEnded(record, field))
        doubts.push_back(std::string(field.name) + " has no end; the provider cuts its last byte.");
    const std::string text = textOf(record, field);
    const bool known = std::find(std::begin(kTypes), std::end(kTypes), text) != std::end(kTypes);
    if (field.content == TextField::Empty && !text.empty())
        doubts.push_back(std::string(field.name) + " is \"" + printable(text) + "\", not empty.");
    if (field.content == TextField::Filled && text.empty())
        doubts.push_back(std::string(field.name) + " is empty.");
    if (field.content == TextField::Type && !known)
        doubts.push_back(std::string(field.name) + " is \"" + printable(text) +
                         "\", which is no type of the provider.");
}

} // namespace

Cycle cycleOf(ByteView config) {
    return {smallOf(config, kCycle), smallOf(config, kCycleLeast), smallOf(config, kCycleGreatest),
            smallOf(config, kCycleStandard)};
}

unsigned totalOf(ByteView total) {
    return smallOf(total, kTotal);
}

FileSystem fileSystemOf(ByteView record) {
    FileSystem fs;
    fs.index = std::to_string(numberOf(record, kIndex));
    fs.device = textOf(record, kDevice);
    fs.mountPoint = textOf(record, kMountPoint);
    fs.type = textOf(record, kType);
    fs.driveType = numberOf(record, kDriveType);
    fs.monitored = numberOf(record, kMonitored);
    fs.status = numberOf(record, kStatus);
    fs.sizeMiB = spaceOf(record, kSize);
    fs.freeMiB = spaceOf(record, kFree);
    fs.warningMiB = static_cast<std::uint64_t>(numberOf(record, kWarning));
    fs.warningDefaultMiB = static_cast<std::uint64_t>(numberOf(record, kWarningDefault));
    fs.fatalMiB = static_cast<std::uint64_t>(numberOf(record, kFatal));
    fs.fatalDefaultMiB = static_cast<std::uint64_t>(numberOf(record, kFatalDefault));
    return fs;
}

ByteView fileSystemRecord(ByteView all, std::size_t position) {
    return all.substr(position * kFileSystemBytes, kFileSystemBytes);
}

std::vector<std::string> doubtsOfConfig(ByteView config) {
    std::vector<std::string> doubts;
    for (const NumberField &field : {kCycle, kCycleLeast, kCycleGreatest, kCycleStandard})
        doubtNumber(config, field, doubts);
    return doubts;
}

std::vector<std::string> doubtsOfTotal(ByteView total) {
    std::vector<std::string> doubts;
    doubtNumber(total, kReserved, doubts);
    return doubts;
}

std::vector<std::string> doubtsOfFileSystem(ByteView record, std::size_t position) {
    std::vector<std::string> doubts;
    for (const NumberField &field : kNumbers)
        doubtNumber(record, field, doubts);
    for (const TextField &field : kTexts)
        doubtText(record, field, doubts);
    const std::int64_t index = numberOf(record, kIndex);
    if (index != 0 && index != static_cast<std::int64_t>(position + 1))
        doubts.push_back("Index is " + std::to_string(index) + ", not the position.");
    const std::int64_t size = numberOf(record, kSize), free = numberOf(record, kFree);
    if (size > 0 && free > size)
        doubts.push_back("_AvailableSpace is " + std::to_string(free) + " MiB of " + std::to_string(size) + ".");
    for (const NumberField &field : kThresholds)
        if (const std::int64_t value = numberOf(record, field); size > 0 && value > size)
            doubts.push_back(std::string(field.name) + " is " + std::to_string(value) + " MiB, above the size of " +
                             std::to_string(size) + " MiB.");
    return doubts;
}

} // namespace oxttool
