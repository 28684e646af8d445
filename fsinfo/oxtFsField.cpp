#include "oxtFsField.h"

#include <cstdio>
#include <cstring>

namespace {

template <typename T> int64_t numberAt(const void *at) {
    T value;
    memcpy(&value, at, sizeof value);
    return static_cast<int64_t>(value);
}

template <size_t N> void dump(const char *function, const FsField (&fields)[N], const void *record) {
    FsShown number;
    for (const FsField &field : fields)
        if (field.listed != nullptr)
            OXT_TRACE_AS(function, "    %-25s=[%s]", field.name, fsShow(field, record, number));
}

} // namespace

int64_t fsNumberIn(const FsField &field, const void *record) {
    const void *at = static_cast<const char *>(record) + field.offset;
    switch (field.kind) {
    case FS_FIELD_TEXT:
        break;
    case FS_FIELD_INDEX:
    case FS_FIELD_UINT16:
        return numberAt<uint16_t>(at);
    case FS_FIELD_SINT16:
        return numberAt<int16_t>(at);
    case FS_FIELD_UINT32:
        return numberAt<int32_t>(at);
    case FS_FIELD_INT64:
        return numberAt<int64_t>(at);
    }
    return 0;
}

const char *fsShow(const FsField &field, const void *record, FsShown &buffer) {
    if (field.kind == FS_FIELD_TEXT)
        return static_cast<const char *>(record) + field.offset;
    snprintf(buffer, sizeof buffer, "%lld", static_cast<long long>(fsNumberIn(field, record)));
    return buffer;
}

void fsEndTexts(DatInfo *area) {
    for (int i = 0; area->datAdr != nullptr && i < area->datNum; ++i)
        for (const FsField &field : FS_PROV_FIELDS)
            if (field.kind == FS_FIELD_TEXT)
                reinterpret_cast<char *>(&fsProv(area)[i])[field.offset + OXT_FS_TEXT - 1] = '\0';
}

void fsLogDumpInstanceDat(int selector, const DatInfo *datLog) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(datLog != nullptr, , "_OUT_ param(datLog) Failure!!");
    if (selector == OXT_CID_FS_CONF || selector == OXT_DUMP_ALL) {
        OXT_REQUIRE(fsConf(datLog) != nullptr, , "_OUT_ param(datLog[OXT_CID_FS_CONF].datAdr) Failure!!");
        OXT_TRACE("++++ OXT_FileSystemConfig ++++");
        dump(__func__, FS_CONF_FIELDS, fsConf(datLog));
    }
    if (selector == OXT_CID_FS_TNUM || selector == OXT_DUMP_ALL) {
        OXT_REQUIRE(fsTnum(datLog) != nullptr, , "_OUT_ param(datLog[OXT_CID_FS_TNUM].datAdr) Failure!!");
        OXT_TRACE("++++ OXT_FileSystemTotalNumber ++++");
        dump(__func__, FS_TNUM_FIELDS, fsTnum(datLog));
    }
    const DatInfo *area = &datLog[OXT_CID_FS_PROV];
    if ((selector == OXT_CID_FS_PROV || selector == OXT_DUMP_ALL) && area->datAdr != nullptr && oxtTraceOn()) {
        for (int i = 0; i < area->datNum; ++i) {
            OXT_TRACE("++++ OXT_FileSystem[%d] ++++", i);
            dump(__func__, FS_PROV_FIELDS, &fsProv(area)[i]);
        }
    }
    OXT_TRACE("_OUT_");
}
