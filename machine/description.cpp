#include "description.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <set>
#include <sstream>

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "devices.h"
#include "tomlFile.h"

namespace oxtmachine {

namespace {

constexpr std::int64_t kBlockSize = 4096;
constexpr std::int64_t kMostSpeed = 1000, kLongestStory = 30 * 24 * 3600, kLargestBlock = 1 << 30;
constexpr long double kMostBytes = 0x7fffffffffffffffLL;

[[noreturn]] void refuse(const toml::source_region &at, const std::string &message) {
    throw Malformed(std::to_string(at.begin.line) + ": " + message);
}

std::string quoted(const std::string &text) {
    return "'" + text + "'";
}

// "ENOSPC" to 28; 0 for a word that names no error.
int errorNamed(const std::string &word) {
    for (int error = 1; error < 200; ++error)
        if (const char *name = strerrorname_np(error); name != nullptr && word == name)
            return error;
    return 0;
}

// A table of the file. Each key is asked for once; what nobody asked for is no key of such a table.
class Table {
  public:
    Table(const toml::table &table, const char *what) : table_(table), what_(what) {}

    const toml::node *find(const char *key) {
        known_.insert(key);
        return table_.get(key);
    }
    const toml::node &need(const char *key) {
        const toml::node *const node = find(key);
        if (node == nullptr)
            refuse(table_.source(), std::string(what_) + " needs the key '" + key + "'.");
        return *node;
    }
    std::string text(const toml::node &node, const char *key) const {
        const auto value = node.value_exact<std::string>();
        if (!value || value->find('\0') != std::string::npos)
            refuse(node.source(), std::string("'") + key + "' must be a text in quotes.");
        return oxttoml::textOf(*value);
    }
    std::int64_t number(const char *key, std::int64_t least, std::int64_t most, std::int64_t otherwise) {
        const toml::node *const node = find(key);
        if (node == nullptr)
            return otherwise;
        const auto value = node->value_exact<std::int64_t>();
        if (!value || *value < least || *value > most)
            refuse(node->source(), std::string("'") + key + "' must be a whole number from " + std::to_string(least) +
                                       " to " + std::to_string(most) + ".");
        return *value;
    }
    std::optional<bool> flag(const char *key) {
        const toml::node *const node = find(key);
        const auto value = node != nullptr ? node->value_exact<bool>() : std::nullopt;
        if (node != nullptr && !value)
            refuse(node->source(), std::string("'") + key + "' must be true or false.");
        return value;
    }
    int error(const char *key) {
        const toml::node *const node = find(key);
        if (node == nullptr)
            return 0;
        const std::string word = text(*node, key);
        const int error = errorNamed(word);
        if (error == 0)
            refuse(node->source(), quoted(word) + " is not the name of an error, such as \"ENOENT\" or \"EIO\".");
        return error;
    }
    const toml::table &asTable(const toml::node &node, const char *key) const {
        if (!node.is_table())
            refuse(node.source(), std::string("'") + key + "' must be a table, [" + key + "].");
        return *node.as_table();
    }
    // Each table of an array of tables.
    template <class Each> void forEach(const char *key, Each each) {
        const toml::node *const node = find(key);
        if (node == nullptr)
            return;
        if (!node->is_array_of_tables())
            refuse(node->source(), std::string("'") + key + "' must be an array of tables, [[" + key + "]].");
        for (const toml::node &one : *node->as_array())
            each(*one.as_table());
    }
    void finish() const {
        for (const auto &[key, node] : table_)
            if (known_.count(std::string(key.str())) == 0)
                refuse(key.source(), quoted(oxttoml::textOf(key.str())) + " is not a key of " + what_ + ".");
    }
    const toml::source_region &source() const { return table_.source(); }

  private:
    const toml::table &table_;
    const char *const what_;
    std::set<std::string> known_;
};

struct Amount {
    char sign; // '+', '-' or '\0'
    std::uint64_t bytes;
};

// 512 and "512M" are MiB, "1.5G" has a unit, "10%" is a share of `whole`, where there is one.
Amount amount(const toml::node &node, const char *key, std::optional<std::uint64_t> whole, bool signAllowed = false) {
    constexpr char kUnits[] = "BKMGTP";
    const std::string text = node.is_integer() ? std::to_string(node.as_integer()->get()) : node.value_or("");
    const bool isSigned = signAllowed && (text[0] == '+' || text[0] == '-');
    const std::string rest = text.substr(isSigned ? 1 : 0);
    const std::string digits = rest.substr(0, rest.find_first_not_of(".0123456789"));
    const std::string unit = rest.substr(digits.size());
    const bool isShare = whole && unit == "%";
    const char *const known = unit.size() == 1 ? std::strchr(kUnits, unit[0]) : nullptr;
    const bool isNumber = !digits.empty() && digits[0] != '.' && digits.back() != '.' &&
                          std::count(digits.begin(), digits.end(), '.') <= 1;
    if (!isNumber || (!unit.empty() && !isShare && known == nullptr))
        refuse(node.source(), std::string("'") + key +
                                  "' must be an amount of space: MiB (512) or with a unit (\"1.5G\")" +
                                  (whole ? ", or a share of the size (\"10%\")." : "."));
    const long double value = std::strtold(digits.c_str(), nullptr);
    const long double bytes = isShare            ? static_cast<long double>(*whole) * value / 100
                              : known != nullptr ? std::ldexp(value, static_cast<int>(10 * (known - kUnits)))
                                                 : value * 1048576;
    if (bytes > kMostBytes)
        refuse(node.source(), std::string("'") + key + "' is more than a file system can have.");
    return {isSigned ? text[0] : '\0', static_cast<std::uint64_t>(bytes)};
}

Node nodeOf(const toml::node &node, const std::string &text) {
    std::istringstream words(text);
    std::string kind;
    unsigned major = 0, minor = 0;
    char colon = '\0';
    if (words >> kind >> major >> colon >> minor && colon == ':' && words.eof())
        for (const auto &[word, format] : {std::pair<const char *, mode_t>("block", S_IFBLK), {"character", S_IFCHR}})
            if (kind == word)
                return {format, makedev(major, minor)};
    if (text == "file")
        return {S_IFREG, 0};
    const int error = text == "missing" ? ENOENT : errorNamed(text);
    if (error == 0)
        refuse(node.source(), quoted(text) +
                                  " is not a device node; write \"block 8:1\", \"character 11:0\", \"file\", "
                                  "\"missing\" or the name of an error.");
    return {0, 0, error};
}

void readMount(const toml::table &from, Machine &machine) {
    Table table(from, "a mount");
    Mount mount;
    for (const auto &[key, field] : {std::pair("dir", &mount.dir), {"device", &mount.device}, {"type", &mount.type}})
        *field = unescaped(table.text(table.need(key), key));
    if (mount.dir[0] != '/' || (mount.dir.size() > 1 && mount.dir.back() == '/'))
        refuse(table.need("dir").source(), "'dir' must be an absolute path without a slash at its end.");
    if (mount.type.find_first_of(" \t\n") != std::string::npos)
        refuse(table.need("type").source(), "'type' must be one word.");
    mount.present = table.flag("mounted").value_or(true);

    Volume volume;
    volume.type = table.number("magic", 0, UINT32_MAX, usualMagic(mount.type));
    volume.blockSize = table.number("block_size", 1, kLargestBlock, kBlockSize);
    volume.error = table.error("error");
    const auto blockSize = static_cast<std::uint64_t>(volume.blockSize);
    if (const toml::node *size = table.find("size"))
        volume.blocks = amount(*size, "size", std::nullopt).bytes / blockSize;
    volume.available = volume.blocks;
    if (const toml::node *free = table.find("free")) {
        volume.available = amount(*free, "free", volume.bytes()).bytes / blockSize;
        if (volume.available > volume.blocks)
            refuse(free->source(), "'free' cannot exceed the size.");
    }
    const toml::node *const node = table.find("node");
    machine.nodes[mount.device] = node != nullptr ? nodeOf(*node, table.text(*node, "node")) : usualNode(mount.device);
    table.finish();
    machine.volumes[mount.dir] = volume;
    machine.mounts.push_back(mount);
}

void readEvent(const toml::table &from, Machine &machine) {
    Table table(from, "an event of the story");
    Event event;
    table.need("at");
    event.at = static_cast<unsigned>(table.number("at", 0, kLongestStory, 0));
    event.dir = unescaped(table.text(table.need("dir"), "dir"));
    const auto volume = machine.volumes.find(event.dir);
    if (volume == machine.volumes.end())
        refuse(table.need("dir").source(), "no mount has the directory " + quoted(event.dir) + ".");
    event.mounted = table.flag("mounted");
    if (const toml::node *size = table.find("size"))
        event.sizeBytes = amount(*size, "size", std::nullopt).bytes;
    const std::uint64_t whole = event.sizeBytes.value_or(volume->second.bytes());
    if (const toml::node *free = table.find("free")) {
        const Amount given = amount(*free, "free", whole, true);
        const auto bytes = static_cast<std::int64_t>(given.bytes);
        if (given.sign == '\0')
            event.freeBytes = given.bytes;
        else
            event.freeChange = given.sign == '-' ? -bytes : bytes;
    }
    table.finish();
    if (!event.mounted && !event.sizeBytes && !event.freeBytes && !event.freeChange)
        refuse(table.source(), "nothing happens in this event: it needs 'free', 'size' or 'mounted'.");
    machine.story.push_back(event);
}

void readFailures(const toml::table &from, Machine &machine) {
    Table table(from, "[fails]");
    machine.mountsError = table.error("mount_table");
    machine.driversError = table.error("driver_list");
    machine.memoryError = table.error("shared_memory");
    table.finish();
}

} // namespace

Machine readMachine(const std::string &text) {
    Machine machine;
    machine.rest = Rest::Nothing;
    toml::table parsed;
    try {
        parsed = oxttoml::parse(text);
    } catch (const oxttoml::NotToml &problem) {
        throw Malformed(std::to_string(problem.line) + ": this is not TOML: " + problem.what());
    }
    Table table(parsed, "a machine");
    if (const toml::node *name = table.find("name"))
        machine.name = table.text(*name, "name");
    machine.speed = static_cast<unsigned>(table.number("speed", 1, kMostSpeed, 1));
    machine.drivers = usualDrivers();
    if (const toml::node *drivers = table.find("drivers"))
        machine.drivers = table.text(*drivers, "drivers");
    if (const toml::node *fails = table.find("fails"))
        readFailures(table.asTable(*fails, "fails"), machine);
    table.forEach("mount", [&](const toml::table &mount) { readMount(mount, machine); });
    table.forEach("story", [&](const toml::table &event) { readEvent(event, machine); });
    table.finish();
    std::stable_sort(machine.story.begin(), machine.story.end(),
                     [](const Event &one, const Event &other) { return one.at < other.at; });
    return machine;
}

} // namespace oxtmachine
