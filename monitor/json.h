// The monitor's records as JSON: the same names and types wherever we write them. docs/oxtfsctl.schema.json describes
// them, and the tests hold what we write against it.
#ifndef OXT_MONITOR_JSON_H
#define OXT_MONITOR_JSON_H

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "alertFile.h"
#include "fileSystem.h"
#include "values.h"

namespace oxttool {

using Json = nlohmann::ordered_json; // members stay in the order in which they are written

// The unit of amounts: "bytes", or "MiB" also where people see another one.
const char *wordOf(Unit unit);

// Amounts are numbers in MiB, or in bytes where the unit is bytes; null where nothing was measured.
Json jsonOfSpace(std::uint64_t mib, Unit unit);
Json jsonOf(const FileSystem &fs, Unit unit);
Json jsonOf(const Alert &alert, Unit unit);
Json jsonOf(const Cycle &cycle);
Json jsonOfThread(std::optional<bool> runs); // null where it cannot be told

// {"unit": ..., "filesystems": [...]}
Json jsonOf(const std::vector<FileSystem> &all, Unit unit);

// On one line without an indent; a byte that is no UTF-8 becomes U+FFFD.
std::string textOf(const Json &json, int indent = -1);

} // namespace oxttool

#endif
