// The fields of the records: how each is named where it is traced and published, and where it lies.
#ifndef OXT_FS_FIELD_H
#define OXT_FS_FIELD_H

#include "oxtFsRecord.h"

enum FsFieldKind {
    FS_FIELD_TEXT,  // char[OXT_FS_TEXT]
    FS_FIELD_INDEX, // uint16_t, published as decimal text
    FS_FIELD_UINT16,
    FS_FIELD_SINT16,
    FS_FIELD_UINT32, // traced as a signed number
    FS_FIELD_INT64,  // of which the property carries the low 32 bits
};

struct FsField {
    const char *name; // in the dump of a record, which leaves out what is not listed
    const char *property;
    const char *label;    // of the property's trace line
    const char *compared; // where a pass compares two records; null: it does not
    const char *listed;   // in the snapshot's trace; null: is left out
    FsFieldKind kind;
    size_t offset;
};

#define OXT_FIELD(record, kind, field)                                                                                 \
    { #field, #field, #field, nullptr, #field, kind, offsetof(record, field) }
#define OXT_FIELD_AS(field, kind, property, compared, listed)                                                          \
    { #field, property, property, compared, listed, kind, offsetof(FsProv, field) }

inline constexpr FsField FS_CONF_FIELDS[] = {
    OXT_FIELD(FsConf, FS_FIELD_UINT16, MonitorCycle),
    OXT_FIELD(FsConf, FS_FIELD_UINT16, MonitorCycleMin),
    OXT_FIELD(FsConf, FS_FIELD_UINT16, MonitorCycleMax),
    OXT_FIELD(FsConf, FS_FIELD_UINT16, MonitorCycleDefault),
};
inline constexpr FsField FS_TNUM_FIELDS[] = {OXT_FIELD(FsTnum, FS_FIELD_UINT16, FileSystemTotalNumber)};
// In the order of the record, of its dump and of the properties.
inline constexpr FsField FS_PROV_FIELDS[] = {
    {"Index", "Index", "Index_str", "Index", "Index", FS_FIELD_INDEX, offsetof(FsProv, Index)},
    OXT_FIELD(FsProv, FS_FIELD_TEXT, CSCreationClassName),
    OXT_FIELD(FsProv, FS_FIELD_TEXT, CSName),
    OXT_FIELD(FsProv, FS_FIELD_TEXT, CreationClassName),
    OXT_FIELD(FsProv, FS_FIELD_TEXT, Name),
    OXT_FIELD_AS(DriveType, FS_FIELD_SINT16, "DriveType", "DriveType", "DriveType"),
    {"DeviceID", "DeviceID", "DeviceId", nullptr, nullptr, FS_FIELD_TEXT, offsetof(FsProv, DeviceID)},
    OXT_FIELD_AS(MonitorThreshold, FS_FIELD_UINT16, "MonitorThreshold", "MonThreshold", "MonThreshold"),
    OXT_FIELD_AS(WarningThreshold, FS_FIELD_UINT32, "WarningThreshold", "WarnThreshold", "WarnThreshold"),
    OXT_FIELD_AS(WarningThresholdDefault, FS_FIELD_UINT32, "WarningThresholdDefault", "WarnThresholdDef",
                 "WarnThresholdDef"),
    OXT_FIELD_AS(FatalThreshold, FS_FIELD_UINT32, "FatalThreshold", "FatThreshold", "FatThreshold"),
    OXT_FIELD_AS(FatalThresholdDefault, FS_FIELD_UINT32, "FatalThresholdDefault", "FatThresholdDef", "FatThresholdDef"),
    OXT_FIELD_AS(FreeSpaceStatus, FS_FIELD_SINT16, "FreeSpaceStatus", "FreeSpaceStatus", "FreeSpaceSts"),
    OXT_FIELD_AS(_root, FS_FIELD_TEXT, "Root", "_root", "Root"),
    OXT_FIELD_AS(_FileSystemSize, FS_FIELD_INT64, "FileSystemSize", "_FileSystemSize", "FileSystemSize"),
    OXT_FIELD_AS(_AvailableSpace, FS_FIELD_INT64, "AvailableSpace", "_AvailableSpace", "AvailableSpace"),
    OXT_FIELD_AS(_FileSystemType, FS_FIELD_TEXT, "FileSystemType", "_FileSystemType", "FileSystemType"),
};
static_assert(sizeof FS_PROV_FIELDS / sizeof *FS_PROV_FIELDS == 17, "the properties of OXT_FileSystem");
#undef OXT_FIELD
#undef OXT_FIELD_AS

// A field as it is traced: the record's text, or a number in the buffer.
typedef char FsShown[24];
const char *fsShow(const FsField &field, const void *record, FsShown &buffer);
int64_t fsNumberIn(const FsField &field, const void *record); // 0 for a text

// Ends every text of records that came from outside (save file, shared memory) inside its array.
void fsEndTexts(DatInfo *area);

// Traces the records of one class, or of all three for OXT_DUMP_ALL.
constexpr int OXT_DUMP_ALL = 99;
void fsLogDumpInstanceDat(int selector, const DatInfo *datLog);

#endif
