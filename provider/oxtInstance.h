// What all class handlers share: a class as a table of its properties, the instance built from the table and a record,
// the read of a class's records, and the answers of a failed step.
#ifndef OXT_INSTANCE_H
#define OXT_INSTANCE_H

#include <cstddef>

#include "oxtCmpi.h"
#include "oxtFsStore.h"

// A class and the texts in which its handlers differ.
struct OxtClass {
    const char *name;
    const FsField *fields; // of its properties, in the order in which they are set
    size_t fieldCount;
    bool indexKey;             // the path's key "Index" is the record's Index
    int cid;                   // of its records; -1 when the store keeps none
    const char *readText;      // trace of the read
    const char *builder;       // function name of the instance builder
    const char *refusedRecord; // trace for a null record
    const char *filterFailure; // trace for a refused property filter
    int buildFailureLevel;
    const char *buildFailure; // trace when no instance could be built
    const char *buildFailed;  // the same for the client
};

// The row of a class: its texts follow from the builder and the record's name.
#define OXT_CLASS(name, fields, indexKey, cid, builder, record, filterFailure, buildFailureLevel)                      \
    {                                                                                                                  \
        name, fields, sizeof(fields) / sizeof *(fields), indexKey, cid, "fsGetInstance(" #cid ")", #builder,           \
            "_OUT_ Param(" record ") Failure!!", filterFailure, buildFailureLevel, #builder "() Failure!!",            \
            #builder "() FAILED"                                                                                       \
    }

// A failure that ends a handler: traces the line, then "_OUT_", and is the status for the client.
CMPIStatus oxtFailed(const char *function, const OxtCInfo *cInfo, const char *trace, CMPIrc rc, const char *message);
CMPIStatus oxtRefused(const char *function); // a handler called without class info
#define OXT_ENTER_HANDLER()                                                                                            \
    do {                                                                                                               \
        OXT_TRACE("_IN_");                                                                                             \
        if (cInfo == nullptr)                                                                                          \
            return oxtRefused(__func__);                                                                               \
    } while (0)

// A new instance of the class from a record, released by the caller; null with the failure traced. `properties` is the
// client's list, null for all.
CMPIInstance *oxtBuildInstance(const OxtClass &cls, const OxtCInfo *cInfo, const CMPIObjectPath *cop,
                               const char **properties, const void *record);

// Builds the instance and hands it to the result. CMPI_RC_OK, or the answer with the exit traced.
CMPIStatus oxtReturnInstance(const char *function, const OxtClass &cls, const OxtCInfo *cInfo, const CMPIResult *rslt,
                             const CMPIObjectPath *cop, const char **properties, const void *record);
// The end of a handler that has returned its instances: says so to the result. With another status, nothing.
CMPIStatus oxtFinish(const char *function, const CMPIResult *rslt, CMPIStatus status);

// Reads the class's records: true with at least one, until fsReleaseInstance; else *status is the answer and the exit
// is traced.
bool oxtReadClass(const char *function, const OxtClass &cls, const OxtCInfo *cInfo, FsRecords *reading,
                  CMPIStatus *status);
// Reads the records and answers with what `use` makes of them.
template <typename Use>
CMPIStatus oxtWithRecords(const char *function, const OxtClass &cls, const OxtCInfo *cInfo, Use use) {
    CMPIStatus status = {CMPI_RC_OK, nullptr};
    FsRecords reading = {};
    if (oxtReadClass(function, cls, cInfo, &reading, &status)) {
        status = use(static_cast<const DatInfo *>(&reading.area));
        fsReleaseInstance(&reading);
    }
    return status;
}

// GetInstance of a class with one record.
CMPIStatus oxtGetSingleton(const char *function, const OxtClass &cls, const OxtCInfo *cInfo, const CMPIResult *rslt,
                           const CMPIObjectPath *cop, const char **properties);

#endif
