#include "oxtFsStatus.h"

#include <cstdio>

namespace {

constexpr int PARAMS = 6; // slots handed to the alert library; the last stays null

// What an event sends. The first four parameters are those of every free-space event.
struct AlertEvent {
    unsigned evId;
    const char *text;
    int evType; // 1 critical, 2 warning, 4 information
    int params;
    uint32_t FsProv::*threshold; // the fifth parameter
};
constexpr AlertEvent EVENTS[] = {
    {OXT_ALERTID_CONFIG_CHANGE, "evId=[OXT_ALERTID_CONFIG_CHANGE]", 4, 0, nullptr},
    {OXT_ALERTID_FREESPC_NORMAL, "evId=[OXT_ALERTID_FREESPC_NORMAL]", 4, 4, nullptr},
    {OXT_ALERTID_FREESPC_WARN, "evId=[OXT_ALERTID_FREESPC_WARN]", 2, 5, &FsProv::WarningThreshold},
    {OXT_ALERTID_FREESPC_FATAL, "evId=[OXT_ALERTID_FREESPC_FATAL]", 1, 5, &FsProv::FatalThreshold},
};

const AlertEvent *findEvent(unsigned evId) {
    for (const AlertEvent &event : EVENTS)
        if (event.evId == evId)
            return &event;
    return nullptr;
}

// A free-space event's parameters in text form; the buffers live for the send.
struct AlertTexts {
    char name[OXT_FS_TEXT];
    char root[OXT_FS_TEXT];
    char available[24]; // 20 digits of a 64-bit number
    char size[24];
    char threshold[16]; // 10 digits
};

void fillTexts(AlertTexts *texts, const AlertEvent &event, const FsProv *prov) {
    oxtCopyText(texts->name, sizeof texts->name, prov->Name);
    oxtCopyText(texts->root, sizeof texts->root, prov->_root);
    snprintf(texts->available, sizeof texts->available, "%lu", static_cast<unsigned long>(prov->_AvailableSpace));
    snprintf(texts->size, sizeof texts->size, "%lu", static_cast<unsigned long>(prov->_FileSystemSize));
    if (event.threshold != nullptr)
        snprintf(texts->threshold, sizeof texts->threshold, "%u", prov->*event.threshold);
}

int statusOf(const FsProv *prov) {
    if (prov->_FileSystemSize == 0)
        return OXT_FREESPC_UNKNOWN;
    if (prov->MonitorThreshold == 0)
        return OXT_FREESPC_OFF;
    if (prov->MonitorThreshold != 1)
        return OXT_FREESPC_UNKNOWN;
    const int64_t warning = prov->WarningThreshold;
    const int64_t fatal = prov->FatalThreshold;
    if (prov->_AvailableSpace <= fatal) // wins whatever the warning threshold: nobody orders the two
        return OXT_FREESPC_FATAL;
    return prov->_AvailableSpace <= warning ? OXT_FREESPC_WARN : OXT_FREESPC_NORMAL;
}

} // namespace

int fsGetFreeSpaceStatus(const FsProv *prov) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(prov != nullptr, OXT_FREESPC_UNKNOWN, "_OUT_ param(prov) Failure!!");
    const int ret = statusOf(prov);
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}

unsigned fsAlertOfNew(int status) {
    return status == OXT_FREESPC_WARN    ? OXT_ALERTID_FREESPC_WARN
           : status == OXT_FREESPC_FATAL ? OXT_ALERTID_FREESPC_FATAL
                                         : OXT_ALERTID_NONE;
}

unsigned fsAlertOfChange(int storedStatus, int newStatus) {
    if (storedStatus == newStatus)
        return OXT_ALERTID_NONE;
    if (newStatus == OXT_FREESPC_NORMAL)
        return storedStatus != OXT_FREESPC_OFF ? OXT_ALERTID_FREESPC_NORMAL : OXT_ALERTID_NONE;
    return fsAlertOfNew(newStatus);
}

int fsPutAlert(unsigned evId, const FsProv *prov) {
    OXT_TRACE("_IN_ evId=[0x%08x]", evId);
    char sourceName[24] = "OXTFSService";
    char *cpParam[PARAMS] = {};
    AlertTexts texts = {};
    const AlertEvent *event = findEvent(evId);
    if (event == nullptr) // without an exit line, as it always was
        return -1;
    OXT_REQUIRE(event->params == 0 || prov != nullptr, -1, "_OUT_ param(prov) Failure!!");
    if (event->params > 0) {
        fillTexts(&texts, *event, prov);
        char *all[] = {texts.name, texts.root, texts.available, texts.size, texts.threshold};
        for (int i = 0; i < event->params; ++i)
            cpParam[i] = all[i];
    }
    OXT_TRACE("%s", event->text);
    for (int i = 0; i < PARAMS; ++i)
        OXT_TRACE("cpParam[%d]=[%s]", i, cpParam[i] != nullptr ? cpParam[i] : "NULL");
    OXT_TRACE("cntParam=[%d]", event->params);
    OXT_TRACE("evType=[%d]", event->evType);
    const int ret = OXTSendIndication(sourceName, evId, event->evType, 3, event->params, cpParam);
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}
