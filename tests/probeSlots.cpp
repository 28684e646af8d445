// The probe's deeds that call slot after slot and tell what each answers: a status by its number, a value by its type
// and state.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <type_traits>

#include "probe.h"

namespace {

struct Item {
    Item(const CMPIStatus &rc) : text(std::to_string(rc.rc)) {}
    Item(const CMPIData &data) : text(std::to_string(data.type) + code({}, data).substr(1, 5)) {}
    Item(const CMPIString *string) : Item(string != nullptr ? CMGetCharsPtr(string, nullptr) : "none") {}
    Item(const char *chars) : text(chars != nullptr ? chars : "NULL") {}
    template <class Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
    Item(Number number) : text(std::to_string(number)) {}
    std::string text;
};

struct Seen {
    Seen &operator+=(std::initializer_list<Item> items) { // in braces: evaluated in their order
        for (const Item &item : items)
            text += item.text + " ";
        return *this;
    }
    operator std::string() const { return text; }
    std::string text;
};

constexpr CMPIUint32 kOne = 1;

} // namespace

std::string paths(const Request &) {
    CMPIStatus rc = {};
    CMPIString *name = nullptr;
    CMPIObjectPath *path = CMNewObjectPath(broker, "root/a", nullptr, nullptr);
    CMPIObjectPath *other = CMNewObjectPath(broker, "root/b", "Other", nullptr);
    Seen seen;
    seen += {CMGetClassName(path, nullptr), CMGetHostname(path, nullptr), CMSetClassName(path, "A"),
             CMSetHostname(path, "near"), CMSetNameSpace(path, "root/c")};
    seen += {CMAddKey(path, "K", &kOne, CMPI_uint32), CMAddKey(path, "N", nullptr, CMPI_uint32),
             CMAddKey(path, "S", "\"\\", CMPI_chars), CMAddKey(path, nullptr, &kOne, CMPI_uint32),
             CMAddKey(path, "k", "x", CMPI_chars)};
    seen += {CMGetKeyCount(path, nullptr), CMGetKeyAt(path, 1, &name, &rc), name,
             CMGetKeyAt(path, CMGetKeyCount(path, nullptr), nullptr, &rc), rc};
    seen += {CMObjectPathToString(path, nullptr), CMSetNameSpaceFromObjectPath(path, other),
             CMSetHostname(other, "far"), CMGetHostname(path, nullptr), CMGetNameSpace(path, nullptr)};
    seen += {CMSetNameSpace(other, "root/d"), CMSetHostAndNameSpaceFromObjectPath(path, other),
             CMObjectPathToString(path, nullptr)};
    return seen += {CMGetHostname(path, nullptr)};
}

std::string instances(const Request &r) {
    CMPIStatus rc = {};
    CMPIString *name = nullptr;
    CMPIInstance *inst = newInstance(r);
    Seen seen;
    seen += {CMSetProperty(inst, "B", &kOne, CMPI_sint16), CMSetProperty(inst, "A", "first", CMPI_chars),
             CMSetProperty(inst, "b", "again", CMPI_chars), CMGetPropertyCount(inst, nullptr)};
    for (CMPICount i = 0; i <= CMGetPropertyCount(inst, nullptr); ++i, name = nullptr)
        seen += {CMGetPropertyAt(inst, i, &name, &rc), name, rc};
    CMPIObjectPath *path = CMGetObjectPath(inst, nullptr);
    seen += {CMObjectPathToString(path, nullptr), CMAddKey(path, "Id", "8", CMPI_chars), CMSetObjectPath(inst, path)};
    return seen += {CMObjectPathToString(CMGetObjectPath(inst, nullptr), nullptr)};
}

// What the agent's class answers to the forms of asking.
std::string asking(const Request &r) {
    CMPIStatus rc = {};
    Seen seen;
    const char *none[] = {"Other", nullptr};
    for (const auto &[ns, cn, key] : {std::array{"root/tavrin/as", "oxt_generalinformation", "OXT:GeneralInformation"},
                                      {"root/TAVRIN/AS", "OXT_GeneralInformation", "Another"},
                                      {"root/other", "OXT_GeneralInformation", "OXT:GeneralInformation"},
                                      {"root/TAVRIN/AS", "OXT_Other", "OXT:GeneralInformation"}}) {
        CMPIObjectPath *path = CMNewObjectPath(broker, ns, cn, nullptr);
        CMPIEnumeration *all = CBEnumInstances(broker, r.ctx, path, none, &rc);
        seen += {rc};
        while (all != nullptr && CMHasNext(all, nullptr) != 0)
            seen += {CMGetPropertyCount(CMGetNext(all, nullptr).value.inst, nullptr), "properties"};
        if (all != nullptr)
            seen += {CMGetNext(all, &rc), rc};
        CMAddKey(path, "InstanceID", key, CMPI_chars);
        CBGetInstance(broker, r.ctx, path, nullptr, &rc);
        seen += {rc, "|"};
    }
    return seen;
}

std::string arrays(const Request &) {
    CMPIStatus rc = {};
    CMPIArray *array = CMNewArray(broker, 2, CMPI_chars, nullptr);
    Seen seen;
    seen += {CMGetArrayCount(array, nullptr), CMGetArrayType(array, nullptr), CMGetArrayElementAt(array, 1, &rc),
             CMSetArrayElementAt(array, 1, "x", CMPI_chars), CMSetArrayElementAt(array, 2, "x", CMPI_chars)};
    seen += {CMSetArrayElementAt(array, 1, &kOne, CMPI_uint16), CMGetArrayElementAt(array, 1, nullptr).value.string,
             CMSetArrayElementAt(array, 1, nullptr, CMPI_null), CMGetArrayElementAt(array, 1, &rc), rc};
    CMNewArray(broker, 1000001, CMPI_uint16, &rc);
    seen += {rc};
    CMNewArray(broker, 1, CMPI_uint16A, &rc);
    return seen += {rc};
}

std::string dates(const Request &) {
    CMPIStatus rc = {};
    Seen seen;
    const auto note = [&](CMPIDateTime *date) {
        seen += {rc};
        if (date != nullptr)
            seen += {CMGetStringFormat(date, nullptr), CMGetBinaryFormat(date, nullptr), CMIsInterval(date, nullptr)};
        seen += {"|"};
    };
    for (const char *text : {"20240229120000.000001-060", "19700101000000.000000+001", "00000001020304.000005:000", "",
                             "20240229120000.000001+06", "2024022912000x.000001+060", "20240229120000,000001+060"})
        note(CMNewDateTimeFromChars(broker, text, &rc));
    note(CMNewDateTimeFromBinary(broker, 93784000005, 1, &rc));
    note(CMNewDateTimeFromBinary(broker, 1709164800000000, 0, &rc));
    return seen;
}

// What there is to be refused, and what has an answer of its own.
std::string services(const Request &r) {
    CMPIStatus rc = {};
    CMPIString *name = nullptr;
    CMPIArgs *args = CMNewArgs(broker, nullptr);
    Seen seen;
    seen += {CMLogMessage(broker, 1, "", "", nullptr), CMTraceMessage(broker, 1, "", "", nullptr),
             CBDeliverIndication(broker, r.ctx, "", nullptr), CDToString(broker, r.op, &rc), rc};
    seen += {CDIsOfType(broker, r.op, "", &rc), rc, CBInvokeMethod(broker, r.ctx, r.op, "m", r.in, nullptr, &rc),
             broker->eft->getMessage(broker, "id", "default", &rc, 0), rc};
    seen += {"|"};
    for (const char *type : {"oxt_probe", "OXT_Base", "OXT_Other"})
        seen += {CMClassPathIsA(broker, r.op, type, nullptr)};
    seen +=
        {CMAddArg(args, nullptr, "x", CMPI_chars), CMAddArg(args, "A", "x", CMPI_chars),
         CMAddArg(args, "a", "y", CMPI_chars), CMGetArgCount(args, nullptr), CMGetArg(args, "a", nullptr).value.string};
    seen += {CMGetArgAt(args, 0, &name, &rc), name, "|", CMGetContextEntryCount(r.ctx, nullptr),
             CMGetContextEntryAt(r.ctx, 0, &name, &rc)};
    seen += {name, CMGetContextEntryAt(r.ctx, 9, nullptr, &rc), CMAddContextEntry(r.ctx, nullptr, "", CMPI_chars)};
    return seen += {CMGetContextEntry(r.ctx, "cmpiinvocationflags", &rc)};
}

// The system's services: a lock, a key, a thread, and the time that is waited.
std::string system(const Request &) {
    const CMPIBrokerExtFT &xft = *broker->xft;
    CMPI_MUTEX_TYPE mutex = xft.newMutex(0);
    CMPI_COND_TYPE condition = xft.newCondition(0);
    CMPI_THREAD_KEY_TYPE key = 0;
    timespec past = {1, 0};
    static int once = 0, inits = 0;
    Seen seen;
    xft.lockMutex(mutex);
    seen += {xft.timedCondWait(condition, mutex, &past), xft.createThreadKey(&key, nullptr),
             xft.setThreadSpecific(key, &key), xft.getThreadSpecific(key) == &key, xft.destroyThreadKey(key)};
    seen += {xft.threadOnce(&once, [] { ++inits; }), xft.threadOnce(&once, [] { ++inits; }), inits};
    xft.unlockMutex(mutex);
    xft.lockMutex(mutex); // which has been let go
    xft.unlockMutex(mutex);
    xft.destroyCondition(condition);
    xft.destroyMutex(mutex);
    char *file = xft.resolveFileName("probe");
    seen += {static_cast<const char *>(file)};
    free(file);
    if (xft.joinThread == nullptr)
        return seen;
    CMPI_THREAD_RETURN returned = nullptr;
    CMPI_THREAD_TYPE thread = xft.newThread([](void *value) { return value; }, &key, 0);
    seen += {xft.joinThread(thread, &returned), returned == &key};
    return seen += {xft.threadSleep(2345)};
}
