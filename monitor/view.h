// What a monitor knows at one moment. Nobody changes a view: a newer one takes its place.
#ifndef OXT_MONITOR_VIEW_H
#define OXT_MONITOR_VIEW_H

#include <array>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "alertFile.h"
#include "fileSystem.h"
#include "forecast.h"
#include "passes.h"
#include "rules.h"

namespace oxttool {

// What the monitor adds to what the provider publishes of a file system.
struct Outlook {
    std::vector<Measurement> curve; // of the last day
    std::optional<Forecast> forecast;
    std::array<std::string, kSettings> origins; // what each setting's value comes from
};

struct View {
    std::map<std::string, std::vector<oxthost::Instance>> instances; // of all classes, by their names
    std::vector<FileSystem> fileSystems;
    std::vector<Outlook> outlooks; // one for each file system
    unsigned cycleSeconds = 0;
    double updated = 0; // seconds since the epoch
    Passes passes;
    std::vector<std::string> alerts; // lines of the alert file, the newest last
};
using ViewPointer = std::shared_ptr<const View>;

} // namespace oxttool

#endif
