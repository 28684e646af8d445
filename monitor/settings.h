// The monitor's settings file, in TOML: cycle, listen addresses, the program that is told of alerts, and rules for the
// file systems. Nothing in it is believed: an unknown name, a wrong type or an impossible value is a failure with its
// line, so that a typing error is not ignored in silence.
#ifndef OXT_MONITOR_SETTINGS_H
#define OXT_MONITOR_SETTINGS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "values.h"

namespace oxttool {

struct ListenAddress {
    std::string address; // of IPv4 or IPv6, numeric; "::" for all
    std::uint16_t port = 0;
    bool operator==(const ListenAddress &other) const { return address == other.address && port == other.port; }
};

// Says of the file systems that match all its patterns what it names. Patterns are those of the shell; "*" matches
// slashes, too. An empty pattern matches everything.
struct Rule {
    int line = 0;
    std::string mount, device, type;
    std::optional<bool> monitored;
    std::optional<Amount> warning, fatal;
};

struct Settings {
    std::optional<unsigned> cycleSeconds;
    std::vector<ListenAddress> listen;
    std::vector<std::string> exec; // the program and its arguments; empty: none
    std::vector<Rule> rules;
};

// The settings file of this build.
std::string settingsPath();

// "127.0.0.1:9633", "[::1]:9633", "localhost:9633", or ":9633" for all addresses; throws a usage failure.
ListenAddress parseListenAddress(const std::string &text);

// Throws a usage failure "NAME:LINE: reason".
Settings parseSettings(const std::string &text, const std::string &name);

// A missing file has no settings, unless `mustExist`. Throws as above, and an environment failure for a file that
// cannot be read or that others than root or this user can write: it names a program that runs as this user.
Settings readSettings(const std::string &path, bool mustExist);

} // namespace oxttool

#endif
