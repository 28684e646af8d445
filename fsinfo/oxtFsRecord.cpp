#include "oxtFsRecord.h"

#include <cstring>

namespace {

// What each descriptor starts with.
constexpr DatInfo START[OXT_CID_FS_COUNT] = {
    {sizeof(FsConf), 1, nullptr},
    {sizeof(FsTnum), 1, nullptr},
    {sizeof(FsProv), 0, nullptr},
};

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
