// An alert for people and for the program that is run for it.
#ifndef OXT_MONITOR_ALERTTEXT_H
#define OXT_MONITOR_ALERTTEXT_H

#include <ctime>
#include <string>
#include <vector>

#include "alertFile.h"
#include "alertProgram.h"
#include "view.h"

namespace oxttool {

// "/data (/dev/sdb1): 512M of 10G free, threshold 1G"; the event's name when it is about no file system.
std::string sentenceOf(const Alert &alert);

// The alerts that the changes from one look to the next make, for machines where no file tells of them. Those to and
// from "not monitored" make none.
std::vector<Alert> changesOfStatus(const std::vector<FileSystem> &before, const std::vector<FileSystem> &after,
                                   std::time_t now);

// OXTFS_EVENT, OXTFS_MOUNTPOINT and so on: each field of the alert, empty where it has none, and what the view knows of
// the file system's future.
Variables variablesOf(const Alert &alert, const View *view);

} // namespace oxttool

#endif
