#include "settings.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "failure.h"
#include "fd.h"
#include "shownText.h"
#include "tomlFile.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr std::size_t kMostBytes = 1024 * 1024;
constexpr std::size_t kMostRules = 1000;
constexpr std::size_t kMostListen = 16;
constexpr std::size_t kMostText = 4096; // of a pattern or an argument

// One file while it is read: every refusal names it and the line.
class Reader {
  public:
    explicit Reader(const std::string &name) : name_(name) {}
    Settings read(const toml::table &file);

  private:
    [[noreturn]] void refuse(const toml::node &node, const std::string &reason) const {
        throw Failure(Exit::Usage, name_ + ":" + std::to_string(node.source().begin.line) + ": " + reason);
    }
    std::string text(const toml::node &node, const std::string &key) const;
    Amount amount(const toml::node &node, const std::string &key) const;
    const toml::array &list(const toml::node &node, const std::string &key, std::size_t most) const;
    ListenAddress address(const toml::node &node, const std::string &key) const;
    unsigned cycle(const toml::node &node) const;
    Rule rule(const toml::node &node) const;

    std::string name_;
};

std::string quoted(const std::string &text) {
    return "'" + printable(text) + "'";
}

std::string Reader::text(const toml::node &node, const std::string &key) const {
    const auto *value = node.as_string();
    if (!value)
        refuse(node, key + " has to be a text in quotes.");
    const std::string text = oxttoml::textOf(value->get());
    if (text.empty() || text.size() > kMostText || text.find('\0') != std::string::npos)
        refuse(node, key + " has to have 1 to " + std::to_string(kMostText) + " characters.");
    return text;
}

Amount Reader::amount(const toml::node &node, const std::string &key) const {
    const auto *value = node.as_string();
    // A bare number could be meant as MiB or as a percentage.
    if (!value || value->get().empty() || (value->get().back() >= '0' && value->get().back() <= '9'))
        refuse(node, key + " has to be an amount with its unit or a percentage, in quotes: \"20G\", \"15%\".");
    try {
        return parseAmount(oxttoml::textOf(value->get()));
    } catch (const Failure &failure) {
        const std::string what = failure.what();
        refuse(node, key + ": " + what.substr(0, what.find('\n')));
    }
}

const toml::array &Reader::list(const toml::node &node, const std::string &key, std::size_t most) const {
    const auto *array = node.as_array();
    if (!array)
        refuse(node, key + " has to be a list in square brackets.");
    if (array->size() > most)
        refuse(node, key + " has more than " + std::to_string(most) + " entries.");
    return *array;
}

ListenAddress Reader::address(const toml::node &node, const std::string &key) const {
    const std::string written = text(node, key);
    try {
        return parseListenAddress(written);
    } catch (const Failure &failure) {
        refuse(node, failure.what());
    }
}

unsigned Reader::cycle(const toml::node &node) const {
    const auto *value = node.as_integer();
    if (!value || value->get() < kLeastCycle || value->get() > kGreatestCycle)
        refuse(node, "cycle has to be a whole number of seconds from " + cycleRange() + ".");
    return static_cast<unsigned>(value->get());
}

Rule Reader::rule(const toml::node &node) const {
    const auto *table = node.as_table();
    if (!table)
        refuse(node, "a rule begins with [[rule]].");
    Rule rule;
    rule.line = static_cast<int>(table->source().begin.line);
    for (const auto &[name, value] : *table) {
        const std::string key = oxttoml::textOf(name);
        if (key == "mount")
            rule.mount = text(value, key);
        else if (key == "device")
            rule.device = text(value, key);
        else if (key == "type")
            rule.type = text(value, key);
        else if (key == "monitor" && value.is_boolean())
            rule.monitored = value.as_boolean()->get();
        else if (key == "monitor")
            refuse(value, "monitor has to be true or false.");
        else if (key == "warning")
            rule.warning = amount(value, key);
        else if (key == "fatal")
            rule.fatal = amount(value, key);
        else
            refuse(value, "a rule has no " + quoted(key) + ": mount, device, type, monitor, warning and fatal it has.");
    }
    if (!rule.monitored && !rule.warning && !rule.fatal)
        refuse(node, "the rule sets nothing: monitor, warning or fatal is missing.");
    return rule;
}

Settings Reader::read(const toml::table &file) {
    Settings settings;
    for (const auto &[name, value] : file) {
        const std::string key = oxttoml::textOf(name);
        if (key == "cycle") {
            settings.cycleSeconds = cycle(value);
        } else if (key == "listen") {
            for (const toml::node &entry : list(value, key, kMostListen))
                settings.listen.push_back(address(entry, key));
        } else if (key == "exec") {
            for (const toml::node &entry : list(value, key, 100))
                settings.exec.push_back(text(entry, key));
            if (!settings.exec.empty() && settings.exec.front().front() != '/')
                refuse(value, "exec has to begin with the absolute path of a program.");
        } else if (key == "rule") {
            for (const toml::node &entry : list(value, key, kMostRules))
                settings.rules.push_back(rule(entry));
        } else {
            refuse(value, "there is no setting " + quoted(key) + ": cycle, listen, exec and [[rule]] are settings.");
        }
    }
    return settings;
}

Fd openSettings(const std::string &path, bool mustExist) {
    Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat state = {};
    if (!file && errno == ENOENT && !mustExist)
        return file;
    if (!file || fstat(file.get(), &state) != 0)
        throw Failure(Exit::Environment, "cannot read " + path + ": " + std::strerror(errno));
    if (!S_ISREG(state.st_mode))
        throw Failure(Exit::Environment, path + " is not a regular file.");
    const bool othersWrite = (state.st_mode & S_IWOTH) || ((state.st_mode & S_IWGRP) && state.st_gid != 0);
    if ((state.st_uid != 0 && state.st_uid != geteuid()) || othersWrite)
        throw Failure(Exit::Environment, "others can write " + path +
                                             ", which names a program to run.\nMake it yours "
                                             "alone: chown root " +
                                             path + "; chmod 644 " + path);
    return file;
}

} // namespace

std::string settingsPath() {
    return OXT_SETTINGS_FILE;
}

ListenAddress parseListenAddress(const std::string &text) {
    const std::size_t colon = text.rfind(':');
    ListenAddress parsed;
    std::string address = text.substr(0, colon == std::string::npos ? 0 : colon);
    try {
        parsed.port = static_cast<std::uint16_t>(
            parseNumber(colon == std::string::npos ? "" : text.substr(colon + 1), 1, 65535, "a port"));
    } catch (const Failure &) {
        throw Failure(Exit::Usage,
                      quoted(text) + " is not an address with a port: 127.0.0.1:9633, [::1]:9633 or :9633.");
    }
    if (address.size() > 2 && address.front() == '[' && address.back() == ']')
        address = address.substr(1, address.size() - 2);
    else if (address.find(':') != std::string::npos)
        throw Failure(Exit::Usage, "write the IPv6 address of " + quoted(text) + " in brackets: [::1]:9633.");
    if (address == "localhost")
        address = "127.0.0.1";
    parsed.address = address.empty() ? "::" : address;
    unsigned char bytes[sizeof(in6_addr)];
    if (inet_pton(AF_INET, parsed.address.c_str(), bytes) != 1 &&
        inet_pton(AF_INET6, parsed.address.c_str(), bytes) != 1)
        throw Failure(Exit::Usage, quoted(text) + " is not a numeric address with a port: 127.0.0.1:9633, [::1]:9633.");
    return parsed;
}

Settings parseSettings(const std::string &text, const std::string &name) {
    try {
        return Reader(name).read(oxttoml::parse(text));
    } catch (const oxttoml::NotToml &problem) {
        throw Failure(Exit::Usage, name + ":" + std::to_string(problem.line) +
                                       ": this is no TOML: " + printable(problem.what()) + ".");
    }
}

Settings readSettings(const std::string &path, bool mustExist) {
    const Fd file = openSettings(path, mustExist);
    if (!file)
        return {};
    std::string text;
    char buffer[16384];
    ssize_t got = 0;
    while (text.size() <= kMostBytes && (got = read(file.get(), buffer, sizeof buffer)) > 0)
        text.append(buffer, static_cast<std::size_t>(got));
    if (got < 0)
        throw Failure(Exit::Environment, "cannot read " + path + ": " + std::strerror(errno));
    if (text.size() > kMostBytes)
        throw Failure(Exit::Usage, path + " is longer than 1 MiB.");
    return parseSettings(text, path);
}

} // namespace oxttool
