// An alert for people and for the program that is run for it.
#ifndef OXT_MONITOR_ALERTTEXT_H
#define OXT_MONITOR_ALERTTEXT_H

#include <string>

#include "alertFile.h"
#include "alertProgram.h"
#include "view.h"

namespace oxttool {

// "/data (/dev/sdb1): 512M of 10G free, threshold 1G"; the event's name when it is about no file system.
std::string sentenceOf(const Alert &alert);

// OXTFS_EVENT, OXTFS_MOUNTPOINT and so on: each field of the alert, empty where it has none, and what the view knows of
// the file system's future.
Environment environmentOf(const Alert &alert, const View *view);

} // namespace oxttool

#endif
