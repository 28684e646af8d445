// seeds DIRECTORY: writes the small binary inputs that the fuzzers start from, into DIRECTORY/SaveFile and /Segments.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "oxtFsRecord.h"
#include "oxtFsSave.h"

namespace {

template <class Record> std::string bytesOf(const Record &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

std::string records(int count, bool ended) {
    std::string all;
    for (int i = 0; i < count; ++i) {
        FsProv prov = {};
        prov.Index = static_cast<uint16_t>(i + 1);
        prov.MonitorThreshold = 1;
        prov.WarningThreshold = prov.WarningThresholdDefault = 100;
        prov.FatalThreshold = prov.FatalThresholdDefault = 10;
        prov._FileSystemSize = 1000;
        prov._AvailableSpace = 50;
        strcpy(prov._FileSystemType, "ext4");
        for (char *text : {prov.Name, prov._root})
            memset(text, '/', ended ? 9 : OXT_FS_TEXT);
        all += bytesOf(prov);
    }
    return all;
}

} // namespace

int main(int, char **argv) {
    const struct {
        const char *name;
        int counted, kept;
        bool ended;
        std::size_t cut;
    } seeds[] = {{"none", 0, 0, true, 0},         {"one", 1, 1, true, 0},     {"two", 2, 2, true, 0},
                 {"withoutEnds", 2, 2, false, 0}, {"more", 1, 2, true, 0},    {"fewer", 3, 2, true, 0},
                 {"cut", 1, 1, true, 1},          {"most", 65535, 0, true, 0}};
    for (const auto &seed : seeds) {
        const std::string head =
            bytesOf(FsConf{60, 10, 3600, 60}) + bytesOf(FsTnum{static_cast<uint16_t>(seed.counted), 0});
        std::string body = head + records(seed.kept, seed.ended);
        body.resize(body.size() - seed.cut);
        for (const auto &[target, start] :
             {std::pair("SaveFile", OXT_DAT_FS_VERNAME), std::pair("Segments", "\x08\x04")}) {
            const std::filesystem::path directory = std::filesystem::path(argv[1]) / target;
            std::filesystem::create_directories(directory);
            std::ofstream(directory / seed.name, std::ios::binary) << start << body;
        }
    }
}
