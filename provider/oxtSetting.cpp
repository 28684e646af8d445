#include "oxtSetting.h"

#include <cstdio>

bool oxtReadSetting(const char *function, const OxtCInfo *cInfo, const CMPIArgs *in, const char *name, int *value,
                    CMPIStatus *status) {
    *value = getArgToInt(in, name);
    if (*value != -1)
        return true;
    char trace[64], message[64];
    snprintf(trace, sizeof trace, "getArgToInt(%s) Failure!!", name);
    snprintf(message, sizeof message, "getArgToInt(%s) FAILED", name);
    *status = oxtFailed(function, cInfo, trace, CMPI_RC_ERR_FAILED, message);
    return false;
}

CMPIStatus oxtRefuseSetting(const char *function, const OxtCInfo *cInfo, const char *name, int value) {
    char trace[64], message[64];
    snprintf(trace, sizeof trace, "%s Failure!! value=[%d]", name, value);
    snprintf(message, sizeof message, "SetValue(%s) FAILED", name);
    return oxtFailed(function, cInfo, trace, CMPI_RC_ERR_FAILED, message);
}

CMPIStatus oxtCommitSetting(const char *function, const OxtCInfo *cInfo, const FsEdit *edit) {
    OXT_TRACE_AS(function, "fsSetInstance()");
    if (fsSetInstance(cInfo, edit) != 0)
        return oxtFailed(function, cInfo, "fsSetInstance() Failure!!", CMPI_RC_ERR_FAILED, "FileSystem-Update FAILED");
    OXT_TRACE_AS(function, "_OUT_");
    return {CMPI_RC_OK, nullptr};
}
