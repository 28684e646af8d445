// The kernel's driver list is anything: names of drivers that nobody here knows.
#include "snapshot.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    static const std::string mounts = [] {
        std::string text = "/dev/root / ext4 rw 0 0\n";
        for (const int i : {0, 2, 5, 9, 10, 19, 25, 39, 41, 59}) // between them, devices of all kinds
            text += (i % 2 == 0 ? "/dev/sd" : "/dev/nvme") + std::to_string(i) + " /" + std::to_string(i) + " " +
                    (i % 3 == 0 ? "xfs" : "ext4") + " rw 0 0\n";
        return text;
    }();
    checkSnapshot(mounts, std::string(reinterpret_cast<const char *>(data), size));
    return 0;
}
