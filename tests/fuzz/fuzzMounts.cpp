// The mount table is anything: file names and options of whoever may mount.
#include "snapshot.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    static const std::string drivers = "Character devices:\n  1 mem\n\nBlock devices:\n  1 ramdisk\n  2 fd\n  7 loop\n"
                                       "  8 sd\n 11 sr\n253 device-mapper\n259 blkext\n\n";
    checkSnapshot(std::string(reinterpret_cast<const char *>(data), size), drivers);
    return 0;
}
