#include "memoryFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "fd.h"
#include "packedName.h"

namespace oxttool {

namespace {

using nlohmann::json;

constexpr std::size_t kMostBytes = 64 * 1024 * 1024;

std::optional<std::string> nameIn(const json &object, const char *key) {
    const auto found = object.is_object() ? object.find(key) : object.end();
    if (found == object.end() || !found->is_string())
        return std::nullopt;
    try {
        return unpackedName(found->get<std::string>());
    } catch (const std::invalid_argument &) {
        return std::nullopt;
    }
}

template <class Number> Number numberOf(const json &object, const char *key) {
    const auto found = object.is_object() ? object.find(key) : object.end();
    return found != object.end() && found->is_number_unsigned() ? found->get<Number>() : Number(0);
}

bool flagOf(const json &object, const char *key) {
    return numberOf<unsigned>(object, key) == 1;
}

json rulesOf(const RuleMemories &memories) {
    json all = json::array();
    for (const auto &[device, memory] : memories) {
        json settings = json::array();
        for (const SettingMemory &setting : memory.settings)
            settings.push_back(setting.outcome ? json{{"outcome", *setting.outcome},
                                                      {"byHand", setting.byHand ? 1U : 0U},
                                                      {"before", setting.before}}
                                               : json(nullptr));
        all.push_back({{"device", packedName(device)}, {"size", memory.sizeMiB}, {"settings", settings}});
    }
    return all;
}

void takeRules(const json &all, RuleMemories &memories) {
    if (!all.is_array())
        return;
    for (const json &one : all) {
        const auto device = nameIn(one, "device");
        if (!device || !one.contains("settings") || !one["settings"].is_array() || one["settings"].size() != kSettings)
            continue;
        RuleMemory &memory = memories[*device];
        memory.sizeMiB = numberOf<std::uint64_t>(one, "size");
        for (std::size_t i = 0; i < kSettings; ++i)
            if (const json &setting = one["settings"][i]; setting.is_object())
                memory.settings[i] = {numberOf<std::uint64_t>(setting, "outcome"), flagOf(setting, "byHand"),
                                      numberOf<std::uint64_t>(setting, "before"), 0};
    }
}

json historiesOf(const Memory &memory) {
    json all = json::array();
    for (const auto &[name, history] : memory.histories) {
        json points = json::array();
        for (const Measurement &point : history.points()) {
            points.push_back(static_cast<std::uint64_t>(point.time));
            points.push_back(point.freeMiB);
        }
        all.push_back({{"device", packedName(name.first)}, {"mount", packedName(name.second)}, {"points", points}});
    }
    return all;
}

void takeHistories(const json &all, std::int64_t now, Memory &memory) {
    if (!all.is_array())
        return;
    for (const json &one : all) {
        const auto device = nameIn(one, "device"), mount = nameIn(one, "mount");
        if (!device || !mount || !one.contains("points") || !one["points"].is_array() ||
            memory.histories.size() == kMostHistories)
            continue;
        History &history = memory.histories[{*device, *mount}];
        const json &points = one["points"];
        for (std::size_t i = 0; i + 1 < points.size(); i += 2) {
            if (!points[i].is_number_unsigned() || !points[i + 1].is_number_unsigned())
                break;
            const auto time = points[i].get<std::uint64_t>();
            if (time <= static_cast<std::uint64_t>(now) && static_cast<std::int64_t>(time) >= now - History::kDay)
                history.add({static_cast<std::int64_t>(time), points[i + 1].get<std::uint64_t>()});
        }
    }
}

bool writeAll(int fd, const std::string &text) {
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t put = write(fd, text.data() + done, text.size() - done);
        if (put <= 0)
            return false;
        done += static_cast<std::size_t>(put);
    }
    return fsync(fd) == 0;
}

} // namespace

std::string memoryText(const Memory &memory) {
    json all = {{"rules", rulesOf(memory.rules)}, {"histories", historiesOf(memory)}};
    if (memory.cycleSeconds)
        all["cycle"] = *memory.cycleSeconds;
    return all.dump();
}

Memory parseMemory(const std::string &text, std::int64_t now) {
    const json all = json::parse(text, nullptr, false);
    Memory memory;
    if (!all.is_object())
        return memory;
    takeRules(all.value("rules", json()), memory.rules);
    takeHistories(all.value("histories", json()), now, memory);
    if (const auto cycle = numberOf<unsigned>(all, "cycle"); cycle > 0)
        memory.cycleSeconds = cycle;
    return memory;
}

Memory readMemory(const std::string &path, std::int64_t now) {
    const Fd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat state = {};
    if (!file || fstat(file.get(), &state) != 0 || !S_ISREG(state.st_mode) ||
        static_cast<std::uint64_t>(state.st_size) > kMostBytes)
        return {};
    std::string text(static_cast<std::size_t>(state.st_size), '\0');
    const ssize_t got = read(file.get(), text.data(), text.size());
    text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return parseMemory(text, now);
}

bool writeMemory(const std::string &path, const Memory &memory) {
    const std::string fresh = path + ".new";
    unlink(fresh.c_str());
    Fd file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (file && writeAll(file.get(), memoryText(memory)) && std::rename(fresh.c_str(), path.c_str()) == 0)
        return true;
    unlink(fresh.c_str());
    return false;
}

} // namespace oxttool
