#include "devices.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <set>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace oxtmachine {

namespace {

struct Kind {
    const char *begin; // of the device's name
    unsigned major;
    const char *driver;
};
constexpr Kind kKinds[] = {
    {"/dev/ram", 1, "ramdisk"},
    {"/dev/fd", 2, "fd"},
    {"/dev/loop", 7, "loop"},
    {"/dev/sd", 8, "sd"},
    {"/dev/md", 9, "md"},
    {"/dev/sr", 11, "sr"},
    {"/dev/nbd", 43, "nbd"},
    {"/dev/mmcblk", 179, "mmc"},
    {"/dev/xvd", 202, "xvd"},
    {"/dev/zram", 252, "zram"},
    {"/dev/mapper/", 253, "device-mapper"},
    {"/dev/dm-", 253, "device-mapper"},
    {"/dev/vd", 254, "virtblk"},
    {"/dev/nvme", 259, "blkext"},
};

struct Magic {
    const char *type;
    long magic; // statfs(2)
};
constexpr Magic kMagics[] = {
    {"ext2", 0xEF53},      {"ext3", 0xEF53},      {"ext4", 0xEF53},         {"xfs", 0x58465342},
    {"btrfs", 0x9123683E}, {"vfat", 0x4d44},      {"msdos", 0x4d44},        {"iso9660", 0x9660},
    {"udf", 0x15013346},   {"tmpfs", 0x01021994}, {"overlay", 0x794c7630},  {"proc", 0x9fa0},
    {"sysfs", 0x62656572}, {"ramfs", 0x858458f6}, {"squashfs", 0x73717368}, {"nfs", 0x6969},
};

} // namespace

std::string usualDrivers() {
    std::string text = "Character devices:\n  1 mem\n  5 /dev/tty\n\nBlock devices:\n";
    std::set<unsigned> written;
    for (const Kind &kind : kKinds) {
        char line[64];
        std::snprintf(line, sizeof line, "%3u %s\n", kind.major, kind.driver);
        text += written.insert(kind.major).second ? line : "";
    }
    return text + "\n";
}

Node usualNode(const std::string &device) {
    for (const Kind &kind : kKinds)
        if (device.rfind(kind.begin, 0) == 0)
            return {S_IFBLK, makedev(kind.major, 1)};
    return {0, 0, ENOENT};
}

std::string nodeText(const Node &node) {
    const std::string number = std::to_string(major(node.number)) + ":" + std::to_string(minor(node.number));
    if (node.error != 0)
        return node.error == ENOENT ? "missing" : errorName(node.error);
    return node.format == S_IFBLK ? "block " + number : node.format == S_IFCHR ? "character " + number : "file";
}

std::string errorName(int error) {
    const char *const name = strerrorname_np(error);
    return name != nullptr ? name : "EIO";
}

long usualMagic(const std::string &type) {
    for (const Magic &known : kMagics)
        if (type == known.type)
            return known.magic;
    return 0;
}

} // namespace oxtmachine
