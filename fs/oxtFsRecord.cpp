#include "oxtFsRecord.h"

#include <cstring>
#include <initializer_list>

namespace {

// What each descriptor starts with.
constexpr DatInfo START[OXT_CID_FS_COUNT] = {
    {sizeof(FsConf), 1, nullptr},
    {sizeof(FsTnum), 1, nullptr},
    {sizeof(FsProv), 0, nullptr},
};

void dumpProv(const char *function, const FsProv *prov) {
#define DUMP(...) OXT_TRACE_AS(function, __VA_ARGS__)
    DUMP("    Index                    =[%d]", prov->Index);
    DUMP("    CSCreationClassName      =[%s]", prov->CSCreationClassName);
    DUMP("    CSName                   =[%s]", prov->CSName);
    DUMP("    CreationClassName        =[%s]", prov->CreationClassName);
    DUMP("    Name                     =[%s]", prov->Name);
    DUMP("    DriveType                =[%d]", prov->DriveType);
    DUMP("    MonitorThreshold         =[%d]", prov->MonitorThreshold);
    DUMP("    WarningThreshold         =[%d]", static_cast<int>(prov->WarningThreshold));
    DUMP("    WarningThresholdDefault  =[%d]", static_cast<int>(prov->WarningThresholdDefault));
    DUMP("    FatalThreshold           =[%d]", static_cast<int>(prov->FatalThreshold));
    DUMP("    FatalThresholdDefault    =[%d]", static_cast<int>(prov->FatalThresholdDefault));
    DUMP("    FreeSpaceStatus          =[%d]", prov->FreeSpaceStatus);
    DUMP("    _root                    =[%s]", prov->_root);
    DUMP("    _FileSystemSize          =[%lld]", static_cast<long long>(prov->_FileSystemSize));
    DUMP("    _AvailableSpace          =[%lld]", static_cast<long long>(prov->_AvailableSpace));
    DUMP("    _FileSystemType          =[%s]", prov->_FileSystemType);
#undef DUMP
}

} // namespace

void fsInitDatInfo(DatInfo *datInfo) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(datInfo != nullptr, , "_OUT_ param(datInfo) Failure!!");
    memcpy(datInfo, START, sizeof START);
    OXT_TRACE("_OUT_");
}

bool fsSameKeys(const FsProv *a, const FsProv *b) {
    return strcmp(a->Name, b->Name) == 0 && strcmp(a->CSCreationClassName, b->CSCreationClassName) == 0 &&
           strcmp(a->CSName, b->CSName) == 0 && strcmp(a->CreationClassName, b->CreationClassName) == 0;
}

void fsEndTexts(DatInfo *area) {
    for (int i = 0; area->datAdr != nullptr && i < area->datNum; ++i) {
        FsProv &prov = fsProv(area)[i];
        for (char *text : {prov.CSCreationClassName, prov.CSName, prov.CreationClassName, prov.Name, prov.DeviceID,
                           prov._root, prov._FileSystemType})
            text[OXT_FS_TEXT - 1] = '\0';
    }
}

void fsLogDumpInstanceDat(int selector, const DatInfo *datLog) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(datLog != nullptr, , "_OUT_ param(datLog) Failure!!");
    if (selector == OXT_CID_FS_CONF || selector == OXT_DUMP_ALL) {
        const FsConf *conf = fsConf(datLog);
        OXT_REQUIRE(conf != nullptr, , "_OUT_ param(datLog[OXT_CID_FS_CONF].datAdr) Failure!!");
        OXT_TRACE("++++ OXT_FileSystemConfig ++++");
        OXT_TRACE("    MonitorCycle             =[%d]", conf->MonitorCycle);
        OXT_TRACE("    MonitorCycleMin          =[%d]", conf->MonitorCycleMin);
        OXT_TRACE("    MonitorCycleMax          =[%d]", conf->MonitorCycleMax);
        OXT_TRACE("    MonitorCycleDefault      =[%d]", conf->MonitorCycleDefault);
    }
    if (selector == OXT_CID_FS_TNUM || selector == OXT_DUMP_ALL) {
        const FsTnum *tnum = fsTnum(datLog);
        OXT_REQUIRE(tnum != nullptr, , "_OUT_ param(datLog[OXT_CID_FS_TNUM].datAdr) Failure!!");
        OXT_TRACE("++++ OXT_FileSystemTotalNumber ++++");
        OXT_TRACE("    FileSystemTotalNumber    =[%d]", tnum->FileSystemTotalNumber);
    }
    const DatInfo *area = &datLog[OXT_CID_FS_PROV];
    if ((selector == OXT_CID_FS_PROV || selector == OXT_DUMP_ALL) && area->datAdr != nullptr && oxtTraceOn()) {
        for (int i = 0; i < area->datNum; ++i) {
            OXT_TRACE("++++ OXT_FileSystem[%d] ++++", i);
            dumpProv(__func__, &fsProv(area)[i]);
        }
    }
    OXT_TRACE("_OUT_");
}
