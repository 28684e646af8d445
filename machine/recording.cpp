#include "description.h"

#include <cstdio>

#include "devices.h"

namespace oxtmachine {

namespace {

// The length of the UTF-8 sequence at a position; 0 when there is none.
std::size_t sequenceAt(const std::string &text, std::size_t at) {
    const auto byte = [&](std::size_t i) -> unsigned {
        return at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0;
    };
    const std::size_t length = byte(0) < 0x80 ? 1 : byte(0) < 0xC2 ? 0 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xC0) != 0x80)
            return 0;
    const unsigned first = byte(0) << 8 | byte(1);
    const bool bad = (first >= 0xE000 && first < 0xE0A0) || (first >= 0xEDA0 && first < 0xEE00) ||
                     (first >= 0xF000 && first < 0xF090) || first >= 0xF490;
    return length > 2 && bad ? 0 : length;
}

// A literal string: what it cannot hold, or what is no text, stands as an octal escape of the mount table.
std::string literal(const std::string &text) {
    std::string all;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = sequenceAt(text, i);
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool plain = length > 0 && byte >= 0x20 && byte != 0x7f && byte != '\'' && byte != '\\';
        char octal[8];
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned>(byte));
        all += plain ? text.substr(i, length) : octal;
        i += plain ? length : 1;
    }
    return "'" + all + "'";
}

std::string space(std::uint64_t bytes) {
    return bytes % 1024 == 0 ? "\"" + std::to_string(bytes / 1024) + "K\"" : "\"" + std::to_string(bytes) + "B\"";
}

std::string writeVolume(const Volume &volume, const std::string &type) {
    std::string text;
    if (volume.error != 0)
        return "error = \"" + errorName(volume.error) + "\"\n";
    if (volume.type != usualMagic(type))
        text += "magic = " + std::to_string(volume.type & 0xFFFFFFFF) + "\n";
    if (volume.blockSize <= 0)
        return text;
    if (volume.blockSize != 4096)
        text += "block_size = " + std::to_string(volume.blockSize) + "\n";
    if (volume.blocks != 0)
        text += "size = " + space(volume.bytes()) + "\nfree = " + space(volume.freeBytes()) + "\n";
    return text;
}

std::string writeMount(const Facts &machine, const Mount &mount) {
    std::string text = "\n[[mount]]\ndir = " + literal(mount.dir) + "\ndevice = " + literal(mount.device) +
                       "\ntype = " + literal(mount.type) + "\n";
    const auto node = machine.nodes.find(mount.device);
    const std::string usual = nodeText(usualNode(mount.device));
    const std::string is = node != machine.nodes.end() ? nodeText(node->second) : usual;
    text += is != usual ? "node = \"" + is + "\"\n" : "";
    const auto volume = machine.volumes.find(mount.dir);
    return text + (volume != machine.volumes.end() ? writeVolume(volume->second, mount.type) : "");
}

} // namespace

std::string writeMachine(const Facts &machine) {
    std::string text;
    if (!machine.name.empty())
        text += "name = " + literal(machine.name) + "\n";
    if (machine.drivers != usualDrivers() && !machine.drivers.empty())
        text += "drivers = '''\n" + machine.drivers + "'''\n";
    std::string failures;
    for (const auto &[key, error] : {std::pair("mount_table", machine.mountsError),
                                     {"driver_list", machine.driversError},
                                     {"shared_memory", machine.memoryError}})
        failures += error > 0 ? std::string(key) + " = \"" + errorName(error) + "\"\n" : "";
    text += failures.empty() ? "" : "\n[fails]\n" + failures;
    for (const Mount &mount : machine.mountTable())
        text += mount.dir[0] == '/' ? writeMount(machine, mount) : ""; // swap space is mounted on no directory
    return text;
}

} // namespace oxtmachine
