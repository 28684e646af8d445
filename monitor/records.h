// The provider's records as their bytes lie in shared memory and in its save file; docs/formats.md shows them. Both
// come from another process and from the disk: nothing about the values is believed. All pure.
#ifndef OXT_MONITOR_RECORDS_H
#define OXT_MONITOR_RECORDS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "fileSystem.h"

namespace oxttool {

using ByteView = std::string_view;

// Sizes of one record of each class.
inline constexpr std::size_t kVersionBytes = 18; // of the save file: its first line, in front of the records
inline constexpr std::size_t kConfigBytes = 8;
inline constexpr std::size_t kTotalBytes = 4;
inline constexpr std::size_t kFileSystemBytes = 1840;
inline constexpr std::size_t kMostFileSystems = 65535; // what the total number can say

// Each takes the bytes of one whole record. Texts end inside their arrays; an amount of space that no file system can
// have counts as not measured.
Cycle cycleOf(ByteView config);
unsigned totalOf(ByteView total);
FileSystem fileSystemOf(ByteView record);

// Position 0 and up of a record in what holds all of them: the records' own bytes.
ByteView fileSystemRecord(ByteView all, std::size_t position);

// What the provider would not have written there, a sentence each; empty for records that make sense.
std::vector<std::string> doubtsOfConfig(ByteView config);
std::vector<std::string> doubtsOfTotal(ByteView total);
std::vector<std::string> doubtsOfFileSystem(ByteView record, std::size_t position);

} // namespace oxttool

#endif
