#include "alertFile.h"

#include <cstdlib>

#include <nlohmann/json.hpp>

namespace oxttool {

namespace {

using nlohmann::json;

struct Event {
    std::uint64_t id;
    std::int64_t status;
};
constexpr Event kEvents[] = {{0x400403EA, 1}, {0x800403E9, 2}, {0xC00403E8, 3}};

std::string member(const json &object, const char *name) {
    const auto found = object.find(name);
    if (found == object.end())
        return "";
    if (found->is_string())
        return found->get<std::string>();
    return found->is_number_integer() ? found->dump() : "";
}

std::optional<std::uint64_t> amount(const json &object, const char *name) {
    const auto found = object.find(name);
    return found != object.end() && found->is_number_unsigned() ? std::optional(found->get<std::uint64_t>())
                                                                : std::nullopt;
}

std::optional<std::int64_t> statusOf(const std::string &eventId) {
    char *end = nullptr;
    const std::uint64_t id = std::strtoull(eventId.c_str(), &end, 0); // decimal, or hexadecimal after 0x
    for (const Event &event : kEvents)
        if (*end == '\0' && id == event.id)
            return event.status;
    return std::nullopt;
}

} // namespace

std::optional<Alert> parseAlert(const std::string &line) {
    const json object = json::parse(line, nullptr, false);
    if (!object.is_object())
        return std::nullopt;
    Alert alert;
    alert.time = member(object, "time");
    alert.severity = member(object, "severity");
    alert.event = member(object, "event");
    alert.device = member(object, "device");
    alert.mountPoint = member(object, "mountPoint");
    alert.newStatus = statusOf(member(object, "eventId"));
    alert.freeMiB = amount(object, "availableMiB");
    alert.sizeMiB = amount(object, "sizeMiB");
    alert.thresholdMiB = amount(object, "thresholdMiB");
    return alert;
}

std::vector<Alert> AlertFile::read() {
    std::vector<Alert> alerts;
    lines_.read([&alerts](const std::string &line) {
        if (auto alert = parseAlert(line))
            alerts.push_back(std::move(*alert));
    });
    return alerts;
}

} // namespace oxttool
