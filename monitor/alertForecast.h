// The forecasts that the agent's stand-in puts into its lines of alerts, in this process. Where the agent's own library
// is, nothing happens.
#ifndef OXT_MONITOR_ALERTFORECAST_H
#define OXT_MONITOR_ALERTFORECAST_H

#include <string>
#include <vector>

#include "fileSystem.h"

namespace oxttool {

// From its making to its end. One at a time.
class AlertForecasts {
  public:
    explicit AlertForecasts(const std::string &root);
    ~AlertForecasts();
    AlertForecasts(const AlertForecasts &) = delete;
    AlertForecasts &operator=(const AlertForecasts &) = delete;
    void use(const std::vector<FileSystem> &fileSystems);

  private:
    void *library_;
};

} // namespace oxttool

#endif
