#include "oxtCmpi.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "oxtTrace.h"

namespace {

constexpr CMPIValueState UNUSABLE = CMPI_nullValue | CMPI_notFound | CMPI_badValue;

// atoi(3) with a result for every text: what no int holds saturates.
int toInt(const char *text) {
    const long number = strtol(text, nullptr, 10);
    return number > INT_MAX ? INT_MAX : number < INT_MIN ? INT_MIN : static_cast<int>(number);
}

// Whether a key or an argument was delivered; *text is that of a string, null for another type. The value union counts
// as a whole 64-bit word: a number 0 is refused like a missing item, so clients that mean 0 send it as text.
bool isDelivered(const CMPIStatus &rc, const CMPIData &data, const char **text) {
    *text = nullptr;
    if (rc.rc != CMPI_RC_OK || (data.state & UNUSABLE) != 0 || data.value.uint64 == 0)
        return false;
    if (data.type == CMPI_string)
        *text = CMGetCharsPtr(data.value.string, nullptr);
    return data.type != CMPI_string || *text != nullptr;
}

typedef CMPIString *(*PathText)(const CMPIObjectPath *, CMPIStatus *);

// getNameSpace and getClassName, which differ in the call and two texts.
char *copyPathText(const char *function, const CMPIObjectPath *cop, PathText get, const char *getName,
                   const char *resultName) {
    OXT_TRACE_AS(function, "_IN_ cop=[%p]", static_cast<const void *>(cop));
    OXT_REQUIRE_AS(function, cop != nullptr, nullptr, "_OUT_ Param(cop) Failure!!");
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    CMPIString *string = get(cop, &rc);
    if (rc.rc != CMPI_RC_OK || CMIsNullObject(string)) {
        if (string != nullptr)
            CMRelease(string);
        OXT_TRACE_FAIL_AS(function, "_OUT_ %s() Failure!!", getName);
        return nullptr;
    }
    const char *chars = CMGetCharsPtr(string, &rc);
    char *copy = chars != nullptr && rc.rc == CMPI_RC_OK ? strdup(chars) : nullptr;
    const int error = errno;
    CMRelease(string);
    OXT_REQUIRE_AS(function, copy != nullptr, nullptr, "_OUT_ CMGetCharsPtr() Failure!! errno=[%d]", error);
    OXT_TRACE_AS(function, "_OUT_ %s=[%p][%s]", resultName, static_cast<void *>(copy), copy);
    return copy;
}

// The instances of an enumeration as a clone of its array: their number, or -1 with the failure traced.
int cloneAll(const char *function, CMPIEnumeration *enumeration, CMPIArray **out) {
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    CMPIArray *array = CMToArray(enumeration, &rc);
    CMPICount count = 0;
    if (rc.rc == CMPI_RC_OK && !CMIsNullObject(array))
        count = CMGetArrayCount(array, &rc);
    else if (rc.rc == CMPI_RC_OK)
        rc.rc = CMPI_RC_ERR_FAILED;
    if (rc.rc != CMPI_RC_OK) {
        if (array != nullptr)
            CMRelease(array);
        OXT_TRACE_FAIL_AS(function, "_OUT_ CMToArray() Failure!! status=[%d]", static_cast<int>(rc.rc));
        return -1;
    }
    // The clone is the caller's to release; the array is the object manager's.
    *out = CMClone(array, &rc);
    CMRelease(array);
    if (rc.rc != CMPI_RC_OK || CMIsNullObject(*out)) {
        OXT_TRACE_FAIL_AS(function, "_OUT_ CMClone() Failure!! status=[%d]", static_cast<int>(rc.rc));
        return -1;
    }
    return static_cast<int>(count);
}

} // namespace

int getKeyIndex(const CMPIObjectPath *cop) {
    OXT_TRACE("_IN_ cop=[%p]", static_cast<const void *>(cop));
    OXT_REQUIRE(cop != nullptr, -1, "_OUT_ Param(cop) Failure!!");
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    const CMPIData data = CMGetKey(cop, "Index", &rc);
    const char *text = nullptr;
    OXT_REQUIRE(isDelivered(rc, data, &text), -1, "_OUT_ CMGetKey() Failure!!");
    const int ret = text != nullptr ? static_cast<CMPIUint16>(toInt(text)) : data.value.uint16;
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}

int getArgToInt(const CMPIArgs *in, const char *name) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(in != nullptr, -1, "_OUT_ Param(cin) Failure!!");
    OXT_REQUIRE(name != nullptr, -1, "_OUT_ Param(name) Failure!!");
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    const CMPIData data = CMGetArg(in, name, &rc);
    const char *text = nullptr;
    OXT_REQUIRE(isDelivered(rc, data, &text), -1, "_OUT_ CMGetArg() Failure!!");
    const int ret = text != nullptr ? toInt(text) : data.value.sint16;
    OXT_TRACE("_OUT_ ret=[%d]", ret);
    return ret;
}

char *getNameSpace(const CMPIObjectPath *cop) {
    return copyPathText(
        __func__, cop, [](const CMPIObjectPath *path, CMPIStatus *rc) { return CMGetNameSpace(path, rc); },
        "CMGetNameSpace", "namsp");
}

char *getClassName(const CMPIObjectPath *cop) {
    return copyPathText(
        __func__, cop, [](const CMPIObjectPath *path, CMPIStatus *rc) { return CMGetClassName(path, rc); },
        "CMGetClassName", "className");
}

CMPIStatus oxtStatus(const OxtCInfo *cInfo, CMPIrc rc, const char *message) {
    return {rc, CMNewString(cInfo->broker, message, nullptr)};
}

int getEnumArray(const OxtCInfo *cInfo, const char *nameSpace, const char *className, CMPIArray **out) {
    OXT_TRACE("_IN_");
    OXT_REQUIRE(cInfo != nullptr, -1, "_OUT_ Param(cInfo) Failure!!");
    OXT_REQUIRE(nameSpace != nullptr, -1, "_OUT_ Param(namespace) Failure!!");
    OXT_REQUIRE(className != nullptr, -1, "_OUT_ Param(classname) Failure!!");
    OXT_REQUIRE(out != nullptr, -1, "_OUT_ Param(cPArray) Failure!!");
    OXT_TRACE("namespace=[%s] class=[%s]", nameSpace, className);
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    CMPIObjectPath *path = CMNewObjectPath(cInfo->broker, nameSpace, className, &rc);
    OXT_REQUIRE(rc.rc == CMPI_RC_OK && !CMIsNullObject(path), -1, "_OUT_ CMNewObjectPath() Failure!! status=[%d]",
                static_cast<int>(rc.rc));
    CMPIEnumeration *enumeration = CBEnumInstances(cInfo->broker, cInfo->context, path, nullptr, &rc);
    if (rc.rc != CMPI_RC_OK || CMIsNullObject(enumeration)) {
        CMRelease(path);
        OXT_FAIL(-1, "_OUT_ CBEnumInstances() Failure!! status=[%d]", static_cast<int>(rc.rc));
    }
    const int count = cloneAll(__func__, enumeration, out);
    CMRelease(enumeration);
    CMRelease(path);
    if (count >= 0)
        OXT_TRACE("_OUT_ cnt=[%d] *CMPIArray=[%p]", count, static_cast<void *>(*out));
    return count;
}
