// The save file is anything. The provider loads it, and what it would write back is what it read; the tool, which tells
// without the provider's code what the provider would do, says the same.
#include <cstring>
#include <memory>

#include "oxtFile.h"
#include "oxtFsSave.h"
#include "oxtFsStatus.h"
#include "promise.h"
#include "saveFile.h"

using namespace oxttool;

namespace {

constexpr std::size_t kFirst = 30, kTexts[] = {4, 260, 516, 772, 1032, 1312, 1584};

// The areas as a start has them before it loads.
struct Areas {
    Areas() {
        fsInitDatInfo(areas);
        areas[OXT_CID_FS_CONF].datAdr = memalloc(sizeof(FsConf));
        areas[OXT_CID_FS_TNUM].datAdr = memalloc(sizeof(FsTnum));
    }
    ~Areas() {
        for (const DatInfo &area : areas)
            free(area.datAdr);
    }
    Areas(const Areas &) = delete;
    Areas &operator=(const Areas &) = delete;
    DatInfo areas[OXT_CID_FS_COUNT];
};

// Once more with somebody listening to the trace, which shows every text of every record.
void checkTraced(const std::string &bytes) {
    const Listener listener;
    Areas again;
    const OxtFile fp(fmemopen(const_cast<char *>(bytes.data()), bytes.size(), "r"));
    PROMISE(fsGetBinFile(fp.get(), again.areas) == 0);
    for (int i = 0; i < again.areas[OXT_CID_FS_PROV].datNum; ++i) {
        const FsProv *prov = &fsProv(&again.areas[OXT_CID_FS_PROV])[i];
        fsGetFreeSpaceStatus(prov);
        fsPutAlert(OXT_ALERTID_FREESPC_FATAL, prov);
    }
}

void checkRecord(const FsProv &prov, const FileSystem &told) {
    PROMISE(told.index == std::to_string(prov.Index));
    PROMISE(told.device == prov.Name && told.mountPoint == prov._root && told.type == prov._FileSystemType);
    PROMISE(told.driveType == prov.DriveType && told.monitored == prov.MonitorThreshold);
    PROMISE(told.status == prov.FreeSpaceStatus);
    PROMISE(told.warningMiB == prov.WarningThreshold && told.fatalMiB == prov.FatalThreshold);
    PROMISE(told.sizeMiB == 0 || told.sizeMiB == static_cast<uint64_t>(prov._FileSystemSize));
    PROMISE(told.freeMiB == 0 || told.freeMiB == static_cast<uint64_t>(prov._AvailableSpace));
}

void checkWrittenBack(std::string bytes, const DatInfo areas[], std::size_t count) {
    bytes.resize(kFirst + count * sizeof(FsProv));
    bytes.replace(0, OXT_DAT_FS_VERSIZE, OXT_DAT_FS_VERNAME);
    for (std::size_t i = 0; i < count; ++i)
        for (const std::size_t text : kTexts)
            bytes[kFirst + i * sizeof(FsProv) + text + OXT_FS_TEXT - 1] = '\0';
    char *written = nullptr;
    std::size_t length = 0;
    OxtFile fp(open_memstream(&written, &length));
    PROMISE(fsPutBinFile(fp.get(), areas) == 0);
    fp.reset();
    PROMISE(std::string(written, length) == bytes);
    free(written);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    const std::string bytes(reinterpret_cast<const char *>(data), size);
    const SaveFile told = parseSaveFile(bytes);
    if (told.total.value_or(0) > size && (*told.total != 65535 || size != kFirst))
        return 0; // rejected like the seed of most records; large areas take their time
    Areas loaded;
    const OxtFile fp(fmemopen(const_cast<unsigned char *>(data), size, "r"));
    PROMISE((fsGetBinFile(fp.get(), loaded.areas) == 0) == told.loads());
    if (!told.loads())
        return 0;
    const DatInfo &provs = loaded.areas[OXT_CID_FS_PROV];
    const std::size_t count = fsTnum(loaded.areas)->FileSystemTotalNumber;
    PROMISE(told.total == count && provs.datNum == static_cast<int>(count) && told.fileSystems.size() == count);
    PROMISE(static_cast<std::size_t>(oxtAreaSize(&provs)) == count * sizeof(FsProv));
    const FsConf &conf = *fsConf(loaded.areas);
    PROMISE(told.cycle && told.cycle->seconds == conf.MonitorCycle && told.cycle->least == conf.MonitorCycleMin);
    PROMISE(told.cycle->greatest == conf.MonitorCycleMax && told.cycle->standard == conf.MonitorCycleDefault);
    for (std::size_t i = 0; i < count; ++i)
        checkRecord(fsProv(&provs)[i], told.fileSystems[i]);
    checkWrittenBack(bytes, loaded.areas, count);
    checkTraced(bytes);
    return 0;
}
