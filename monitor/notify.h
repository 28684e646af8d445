// What the service manager is told, by datagrams to the socket that it names (sd_notify(3)). Without one nothing
// happens.
#ifndef OXT_MONITOR_NOTIFY_H
#define OXT_MONITOR_NOTIFY_H

#include <chrono>
#include <optional>
#include <string>

namespace oxttool {

// "READY=1", "STATUS=text", "WATCHDOG=1" and so on; several lines in one datagram.
void notifyManager(const std::string &lines);

// How often it wants to hear from this process at least; none when it does not watch.
std::optional<std::chrono::microseconds> watchdogPeriod();

} // namespace oxttool

#endif
