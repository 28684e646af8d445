// Free-space status of a record, and the alert of a change.
#ifndef OXT_FS_STATUS_H
#define OXT_FS_STATUS_H

#include "oxtFsRecord.h"

enum FsFreeSpaceStatus : int {
    OXT_FREESPC_UNKNOWN = -1, // size 0, or monitoring neither on nor off
    OXT_FREESPC_OFF = 0,      // not monitored
    OXT_FREESPC_NORMAL = 1,
    OXT_FREESPC_WARN = 2,
    OXT_FREESPC_FATAL = 3,
};

// Event identifiers of the alerts, as the agent's alert catalogue numbers them.
constexpr unsigned OXT_ALERTID_CONFIG_CHANGE = 0x400407D0;
constexpr unsigned OXT_ALERTID_FREESPC_NORMAL = 0x400403EA;
constexpr unsigned OXT_ALERTID_FREESPC_WARN = 0x800403E9;
constexpr unsigned OXT_ALERTID_FREESPC_FATAL = 0xC00403E8;
constexpr unsigned OXT_ALERTID_NONE = 0;

// The status of a record against its thresholds; OXT_FREESPC_UNKNOWN also for a null pointer.
int fsGetFreeSpaceStatus(const FsProv *prov);

// The alert that a known file system's change of status calls for, or OXT_ALERTID_NONE. Only from "not monitored" does
// a file system return to normal silently.
unsigned fsAlertOfChange(int storedStatus, int newStatus);
// The alert that a file system seen for the first time calls for, or OXT_ALERTID_NONE.
unsigned fsAlertOfNew(int status);

// Sends one alert about a record (null for OXT_ALERTID_CONFIG_CHANGE). 0 when it was taken; -1 when not, for an
// unknown identifier, and for a missing record.
int fsPutAlert(unsigned evId, const FsProv *prov);

#endif
