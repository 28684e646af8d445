#include <cstdio>
#include <cstring>

#include "oxtClasses.h"
#include "oxtSetting.h"

namespace {

constexpr OxtClass FILE_SYSTEM = OXT_CLASS("OXT_FileSystem", FS_PROV_FIELDS, true, OXT_CID_FS_PROV, OXT_FSSetPropInst,
                                           "datprov", "_OUT_ CMSetPropertyFilter() Failure!!", OXT_TRACE_FAILURE);

// A method sets one field from the argument of the same name.
struct ThresholdMethod {
    const char *name;
    const char *argument;
    size_t offset;
    size_t width;
    const char *typeText; // of the value in the trace
};
constexpr ThresholdMethod METHODS[] = {
    {"SetMonitorThreshold", "MonitorThreshold", offsetof(FsProv, MonitorThreshold), 2, "uint16"},
    {"SetWarningThreshold", "WarningThreshold", offsetof(FsProv, WarningThreshold), 4, "uint32"},
    {"SetFatalThreshold", "FatalThreshold", offsetof(FsProv, FatalThreshold), 4, "uint32"},
};

// The position of the first record with this Index; -1 with *status the answer and the exit traced.
int findIndex(const char *function, const OxtCInfo *cInfo, const DatInfo *records, int index, CMPIStatus *status) {
    for (int i = 0; i < records->datNum; ++i) {
        const FsProv *prov = &fsProv(records)[i];
        OXT_TRACE_AS(function, "datProv[%d]->Index=[%d]", i, prov->Index);
        if (prov->Index == index)
            return i;
    }
    *status = oxtFailed(function, cInfo, "CMSetStatusWithChars() - CMPI_RC_ERR_INVALID_PARAMETER Index",
                        CMPI_RC_ERR_INVALID_PARAMETER, "NotFound Index");
    return -1;
}

const ThresholdMethod *findMethod(const char *name) {
    for (const ThresholdMethod &method : METHODS)
        if (name != nullptr && strcmp(method.name, name) == 0)
            return &method;
    return nullptr;
}

uint32_t valueIn(const ThresholdMethod &method, const FsProv *prov) {
    uint32_t value = 0;
    memcpy(&value, reinterpret_cast<const char *>(prov) + method.offset, method.width);
    return value;
}

// The switch takes 0 and 1; a threshold an amount of free space up to the whole size. A negative threshold is, widened
// and compared without sign, too great.
bool isAcceptable(const ThresholdMethod &method, const FsProv *prov, int value) {
    if (method.offset == offsetof(FsProv, MonitorThreshold))
        return value == 0 || value == 1;
    return value != 0 && static_cast<uint64_t>(int64_t{value}) <= static_cast<uint64_t>(prov->_FileSystemSize);
}

// True for a file system that may be monitored; else *status is the answer and the exit is traced.
bool isEligible(const char *function, const OxtCInfo *cInfo, const FsProv *prov, CMPIStatus *status) {
    char trace[64];
    if (prov->DriveType != OXT_DRIVE_FIXED) {
        snprintf(trace, sizeof trace, "DriveType Failure!! Type=[%d]", prov->DriveType);
        *status = oxtFailed(function, cInfo, trace, CMPI_RC_ERR_FAILED, "DriveType not Fixed FAILED");
        return false;
    }
    if (prov->_FileSystemSize < OXT_FS_MIN_SIZE) {
        snprintf(trace, sizeof trace, "FileSystemSize Failure!! Size=[%d]", static_cast<int>(prov->_FileSystemSize));
        *status = oxtFailed(function, cInfo, trace, CMPI_RC_ERR_FAILED, "FileSystemSize less 100MB FAILED");
        return false;
    }
    return true;
}

CMPIStatus setField(const char *function, const OxtCInfo *cInfo, const ThresholdMethod &method, const CMPIArgs *in,
                    const DatInfo *records, int position) {
    const FsProv *prov = &fsProv(records)[position];
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    int value = -1;
    OXT_TRACE_AS(function, "getArgToInt(%s)", method.argument);
    if (!oxtReadSetting(function, cInfo, in, method.argument, &value, &status))
        return status;
    if (!isAcceptable(method, prov, value))
        return oxtRefuseSetting(function, cInfo, method.argument, value);
    OXT_TRACE_AS(function, "datprov[%d]->%s=[%d] dt.value.%s=[%d]", position, method.argument,
                 static_cast<int>(valueIn(method, prov)), method.typeText, value);
    OXT_TRACE_AS(function, "datprov[%d]->%s=[%d]", position, method.argument, value); // what the commit will store
    const FsEdit edit = {OXT_CID_FS_PROV, position, prov, method.offset, method.width, static_cast<uint32_t>(value)};
    return oxtCommitSetting(function, cInfo, &edit);
}

CMPIStatus change(const char *function, const OxtCInfo *cInfo, const char *methodName, const CMPIArgs *in, int index,
                  const DatInfo *records) {
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    const int position = findIndex(function, cInfo, records, index, &status);
    if (position < 0 || !isEligible(function, cInfo, &fsProv(records)[position], &status))
        return status;
    // The entry point lets known methods through only. For any other name the records are published and saved as they
    // are.
    const ThresholdMethod *method = findMethod(methodName);
    return method != nullptr ? setField(function, cInfo, *method, in, records, position)
                             : oxtCommitSetting(function, cInfo, nullptr);
}

} // namespace

CMPIStatus OXT_FSEnumInstances(const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
                               const char **properties) {
    OXT_ENTER_HANDLER();
    const char *function = __func__;
    return oxtWithRecords(function, FILE_SYSTEM, cInfo, [&](const DatInfo *records) {
        CMPIStatus status = {CMPI_RC_OK, nullptr};
        for (int i = 0; i < records->datNum && status.rc == CMPI_RC_OK; ++i) {
            const FsProv *prov = &fsProv(records)[i];
            OXT_TRACE_AS(function, "datProv[%d]->Index=[%d]", i, prov->Index);
            status = oxtReturnInstance(function, FILE_SYSTEM, cInfo, result, cop, properties, prov);
        }
        return oxtFinish(function, result, status);
    });
}

CMPIStatus OXT_FSGetInstance(const OxtCInfo *cInfo, const CMPIResult *result, const CMPIObjectPath *cop,
                             const char **properties) {
    OXT_ENTER_HANDLER();
    const char *function = __func__;
    const int index = getKeyIndex(cop);
    if (index <= 0)
        return oxtFailed(function, cInfo, "getKeyIndex() Failure!!", CMPI_RC_ERR_FAILED, "getKeyIndex() FAILED");
    return oxtWithRecords(function, FILE_SYSTEM, cInfo, [&](const DatInfo *records) {
        CMPIStatus status = {CMPI_RC_OK, nullptr};
        const int position = findIndex(function, cInfo, records, index, &status);
        if (position >= 0)
            status =
                oxtReturnInstance(function, FILE_SYSTEM, cInfo, result, cop, properties, &fsProv(records)[position]);
        return oxtFinish(function, result, status);
    });
}

CMPIStatus OXT_FSInvokeMethod(const OxtCInfo *cInfo, const CMPIResult *, const CMPIObjectPath *, const char *methodName,
                              const CMPIArgs *in, CMPIArgs *) {
    OXT_ENTER_HANDLER();
    const char *function = __func__;
    OXT_TRACE("getArgToInt(Index)");
    const int index = getArgToInt(in, "Index");
    if (index <= 0)
        return oxtFailed(function, cInfo, "getArgToInt(Index) Failure!!", CMPI_RC_ERR_FAILED,
                         "getArgToInt(Index) FAILED");
    return oxtWithRecords(function, FILE_SYSTEM, cInfo, [&](const DatInfo *records) {
        return change(function, cInfo, methodName, in, index, records);
    });
}
