// A view for programs: metrics and JSON.
#ifndef OXT_MONITOR_VIEWTEXT_H
#define OXT_MONITOR_VIEWTEXT_H

#include <string>

#include "view.h"

namespace oxttool {

// What `oxtfsctl list --format prometheus` prints, and of the monitor itself; `well`: its passes succeed.
std::string metricsText(const View &view, bool well);

std::string fileSystemsText(const View &view);

// {"alerts": [...]}, the newest first, each as in the alert file.
std::string alertsText(const View &view);

} // namespace oxttool

#endif
