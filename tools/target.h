// Which file system somebody means: by its index, its mount point, its device, or any file on it.
#ifndef OXT_TOOL_TARGET_H
#define OXT_TOOL_TARGET_H

#include <string>
#include <vector>

#include "fileSystem.h"

namespace oxttool {

// All that the target can mean: several where one device is mounted in several places. A name may be one that we
// printed, with \xHH for odd bytes. Throws a refusal that says what the target is instead when it means none.
std::vector<FileSystem> findAll(const std::vector<FileSystem> &all, const std::string &target);

// The first of them. Of the mounts of one device it is the one whose settings count.
FileSystem findOne(const std::vector<FileSystem> &all, const std::string &target);

// Throws a usage failure for an index that no file system can have.
void checkTarget(const std::string &target);

} // namespace oxttool

#endif
