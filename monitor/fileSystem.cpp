#include "fileSystem.h"

#include "values.h"

namespace oxttool {

namespace {

bool isUnsigned(CMPIType type) {
    return type == CMPI_uint8 || type == CMPI_uint16 || type == CMPI_uint32 || type == CMPI_uint64;
}

} // namespace

bool isText(const oxthost::Value &value) {
    return value.type == CMPI_string || value.type == CMPI_chars;
}

std::string textOf(const oxthost::Value &value) {
    if (value.null || isText(value))
        return value.text;
    return isUnsigned(value.type) ? std::to_string(static_cast<std::uint64_t>(value.number))
                                  : std::to_string(value.number);
}

FileSystem fileSystemOf(const oxthost::Instance &instance) {
    FileSystem fs;
    const struct {
        const char *property;
        std::string *field;
    } texts[] = {{"Index", &fs.index}, {"Name", &fs.device}, {"Root", &fs.mountPoint}, {"FileSystemType", &fs.type}};
    for (const auto &row : texts)
        if (const oxthost::Value *value = instance.find(row.property))
            *row.field = textOf(*value);
    const struct {
        const char *property;
        std::int64_t *field;
    } codes[] = {{"DriveType", &fs.driveType}, {"MonitorThreshold", &fs.monitored}, {"FreeSpaceStatus", &fs.status}};
    for (const auto &row : codes)
        if (const oxthost::Value *value = instance.find(row.property))
            *row.field = value->number;
    const struct {
        const char *property;
        std::uint64_t *field;
    } amounts[] = {{"FileSystemSize", &fs.sizeMiB},
                   {"AvailableSpace", &fs.freeMiB},
                   {"WarningThreshold", &fs.warningMiB},
                   {"FatalThreshold", &fs.fatalMiB}};
    for (const auto &row : amounts)
        if (const oxthost::Value *value = instance.find(row.property))
            *row.field = static_cast<std::uint64_t>(value->number);
    return fs;
}

} // namespace oxttool
