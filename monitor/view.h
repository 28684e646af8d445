// What a monitor knows at one moment. Nobody changes a view: a newer one takes its place.
#ifndef OXT_MONITOR_VIEW_H
#define OXT_MONITOR_VIEW_H

#include <memory>
#include <string>
#include <vector>

#include "fileSystem.h"
#include "outlook.h"
#include "passes.h"

namespace oxttool {

struct View {
    std::vector<FileSystem> fileSystems;
    std::vector<std::vector<Measurement>> curves; // of free space over the last day, one for each file system
    Cycle cycle;
    double updated = 0; // seconds since the epoch
    Passes passes;
    std::vector<std::string> alerts; // lines of the alert file, the newest last
};
using ViewPointer = std::shared_ptr<const View>;

} // namespace oxttool

#endif
