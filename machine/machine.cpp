#include "machine.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <utility>

#include <mntent.h>

namespace oxtmachine {

namespace {

constexpr int kLineSize = 64 * 1024; // as the provider reads the table

std::mutex machineMutex;
std::unique_ptr<Machine> machine; // guarded by machineMutex

void apply(const Event &event, Machine &m) {
    for (Mount &mount : m.mounts)
        if (mount.dir == event.dir)
            mount.present = event.mounted.value_or(mount.present);
    const auto known = m.volumes.find(event.dir);
    if (known == m.volumes.end())
        return;
    Volume &volume = known->second;
    const auto blockSize = static_cast<std::uint64_t>(volume.blockSize);
    const auto change = event.freeChange.value_or(0);
    volume.blocks = event.sizeBytes.value_or(volume.bytes()) / blockSize;
    auto bytes = event.freeBytes.value_or(volume.freeBytes());
    bytes = change < 0 ? bytes - std::min(bytes, static_cast<std::uint64_t>(-change))
                       : bytes + static_cast<std::uint64_t>(change);
    volume.available = std::min(bytes / blockSize, static_cast<std::uint64_t>(volume.blocks));
}

} // namespace

std::string Facts::mountTableText() const {
    std::string text = mountText;
    for (const Mount &mount : mounts)
        if (mount.present)
            text += escaped(mount.device) + " " + escaped(mount.dir) +
                    (mount.type.empty() ? "\n" : " " + mount.type + " rw,relatime 0 0\n");
    return text;
}

std::vector<Mount> Facts::mountTable() const {
    std::string text = mountTableText();
    std::vector<Mount> entries;
    const std::unique_ptr<FILE, int (*)(FILE *)> table(text.empty() ? nullptr : fmemopen(&text[0], text.size(), "r"),
                                                       endmntent);
    const auto line = std::make_unique<char[]>(kLineSize);
    mntent entry = {};
    while (table != nullptr && getmntent_r(table.get(), &entry, line.get(), kLineSize) != nullptr)
        entries.push_back({entry.mnt_fsname, entry.mnt_dir, entry.mnt_type});
    return entries;
}

void Machine::advance(std::chrono::steady_clock::time_point now) {
    const auto seconds = std::chrono::duration_cast<std::chrono::milliseconds>(now - begin).count() * speed / 1000;
    while (!story.empty() && story.front().at <= seconds) {
        apply(story.front(), *this);
        story.erase(story.begin());
    }
}

std::unique_ptr<Machine> use(std::unique_ptr<Machine> next) {
    const std::lock_guard<std::mutex> lock(machineMutex);
    return std::exchange(machine, std::move(next));
}

bool withMachine(const std::function<void(Machine &)> &action) {
    const std::lock_guard<std::mutex> lock(machineMutex);
    if (machine == nullptr)
        return false;
    if (!machine->story.empty())
        machine->advance(std::chrono::steady_clock::now());
    action(*machine);
    return true;
}

std::string escaped(const std::string &field) {
    std::string text;
    for (const char c : field) {
        char octal[8];
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(c)));
        text += std::strchr(" \t\n\\", c) != nullptr ? std::string(octal) : std::string(1, c);
    }
    return text;
}

std::string unescaped(const std::string &field) {
    const auto isOctal = [&field](std::size_t at) { return at < field.size() && field[at] >= '0' && field[at] <= '7'; };
    std::string text;
    for (std::size_t i = 0; i < field.size(); ++i) {
        const bool escape = field[i] == '\\' && isOctal(i + 1) && isOctal(i + 2) && isOctal(i + 3);
        text += escape ? static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8)) : field[i];
        i += escape ? 3 : 0;
    }
    return text;
}

} // namespace oxtmachine
