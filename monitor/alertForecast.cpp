#include "alertForecast.h"

#include <dlfcn.h>

#include <cstring>
#include <map>
#include <mutex>
#include <utility>

namespace oxttool {

namespace {

using Forecasts = std::map<std::pair<std::string, std::string>, Forecast>;

std::mutex g_mutex; // held for moments: the provider's pass waits for it
Forecasts g_forecasts;

int forecastFor(const char *device, const char *mountPoint, double *shrinkMiBPerHour, double *fullInSeconds) {
    const std::lock_guard<std::mutex> lock(g_mutex);
    const auto found = g_forecasts.find({device, mountPoint});
    if (found == g_forecasts.end())
        return 0;
    *shrinkMiBPerHour = found->second.mibPerHour;
    *fullInSeconds = found->second.secondsToFull;
    return 1;
}

// The library's own function, if it has it; agent/svalert.h describes it.
void setForecast(void *library, decltype(&forecastFor) forecast) {
    void (*set)(decltype(&forecastFor)) = nullptr;
    void *const found = library ? dlsym(library, "SetAlertForecast") : nullptr;
    if (found == nullptr)
        return;
    std::memcpy(&set, &found, sizeof set);
    set(forecast);
}

} // namespace

// Only what the provider has loaded: where it could not, there are no alerts.
AlertForecasts::AlertForecasts(const std::string &root)
    : library_(dlopen((root + "lib/libsvalert.so").c_str(), RTLD_LAZY | RTLD_NOLOAD)) {
    setForecast(library_, forecastFor);
}

AlertForecasts::~AlertForecasts() {
    setForecast(library_, nullptr);
    if (library_)
        dlclose(library_);
}

void AlertForecasts::use(const std::vector<FileSystem> &fileSystems) {
    Forecasts fresh;
    for (const FileSystem &fs : fileSystems)
        if (fs.outlook && fs.outlook->forecast)
            fresh[{fs.device, fs.mountPoint}] = *fs.outlook->forecast;
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_forecasts.swap(fresh);
}

} // namespace oxttool
