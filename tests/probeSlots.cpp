// The probe's deeds that call slot after slot and tell what each answers: a status by its number, a value by its type
// and state.
#include <array>
#include <cstdint>
#include <cstdlib>
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

// In braces, because they are evaluated in their order then.
std::string list(std::initializer_list<Item> items) {
    std::string text;
    for (const Item &item : items)
        text += item.text + " ";
    return text;
}

constexpr CMPIUint32 kOne = 1;

} // namespace

std::string paths(const Request &) {
    CMPIStatus rc = {};
    CMPIString *name = nullptr;
    CMPIObjectPath *path = CMNewObjectPath(broker, "root/a", nullptr, nullptr);
    CMPIObjectPath *other = CMNewObjectPath(broker, "root/b", "Other", nullptr);
    std::string seen;
    seen += list({CMGetClassName(path, nullptr), CMGetHostname(path, nullptr), CMSetClassName(path, "A"),
                  CMSetHostname(path, "near"), CMSetNameSpace(path, "root/c")});
    seen += list({CMAddKey(path, "K", &kOne, CMPI_uint32), CMAddKey(path, "N", nullptr, CMPI_uint32),
                  CMAddKey(path, "S", "\"\\", CMPI_chars), CMAddKey(path, nullptr, &kOne, CMPI_uint32),
                  CMAddKey(path, "k", "x", CMPI_chars)});
    seen += list({CMGetKeyCount(path, nullptr), CMGetKeyAt(path, 1, &name, &rc), name,
                  CMGetKeyAt(path, CMGetKeyCount(path, nullptr), nullptr, &rc), rc});
    seen += list({CMObjectPathToString(path, nullptr), CMSetNameSpaceFromObjectPath(path, other),
                  CMSetHostname(other, "far"), CMGetHostname(path, nullptr), CMGetNameSpace(path, nullptr)});
    seen += list({CMSetNameSpace(other, "root/d"), CMSetHostAndNameSpaceFromObjectPath(path, other),
                  CMObjectPathToString(path, nullptr)});
    return seen + list({CMGetHostname(path, nullptr)});
}

std::string instances(const Request &r) {
    CMPIStatus rc = {};
    CMPIString *name = nullptr;
    CMPIInstance *inst = newInstance(r);
    std::string seen;
    seen += list({CMSetProperty(inst, "B", &kOne, CMPI_sint16), CMSetProperty(inst, "A", "first", CMPI_chars),
                  CMSetProperty(inst, "b", "again", CMPI_chars), CMGetPropertyCount(inst, nullptr)});
    for (CMPICount i = 0; i <= CMGetPropertyCount(inst, nullptr); ++i, name = nullptr)
        seen += list({CMGetPropertyAt(inst, i, &name, &rc), name, rc});
    return seen + list({CMObjectPathToString(CMGetObjectPath(inst, nullptr), nullptr)});
}

// What the agent's class answers to the forms of asking.
std::string asking(const Request &r) {
    CMPIStatus rc = {};
    std::string seen;
    const char *none[] = {"Other", nullptr};
    for (const auto &[ns, cn, key] : {std::array{"root/tavrin/as", "oxt_generalinformation", "OXT:GeneralInformation"},
                                      {"root/TAVRIN/AS", "OXT_GeneralInformation", "Another"},
                                      {"root/other", "OXT_GeneralInformation", "OXT:GeneralInformation"},
                                      {"root/TAVRIN/AS", "OXT_Other", "OXT:GeneralInformation"}}) {
        CMPIObjectPath *path = CMNewObjectPath(broker, ns, cn, nullptr);
        CMPIEnumeration *all = CBEnumInstances(broker, r.ctx, path, none, &rc);
        seen += list({rc});
        while (all != nullptr && CMHasNext(all, nullptr) != 0)
            seen += list({CMGetPropertyCount(CMGetNext(all, nullptr).value.inst, nullptr), "properties"});
        if (all != nullptr)
            seen += list({CMGetNext(all, &rc), rc});
        CMAddKey(path, "InstanceID", key, CMPI_chars);
        CBGetInstance(broker, r.ctx, path, nullptr, &rc);
        seen += list({rc, "|"});
    }
    return seen;
}

std::string dates(const Request &) {
    CMPIStatus rc = {};
    std::string seen;
    const auto note = [&](CMPIDateTime *date) {
        seen += list({rc, "|"});
        if (date != nullptr)
            seen +=
                list({CMGetStringFormat(date, nullptr), CMGetBinaryFormat(date, nullptr), CMIsInterval(date, nullptr)});
    };
    for (const char *text : {"20240229120000.000001-060", "19700101000000.000000+001", "00000001170304.000005:000", "",
                             "20240229120000.000001+06", "2024022912000x.000001+060", "20240229120000,000001+060"})
        note(CMNewDateTimeFromChars(broker, text, &rc));
    note(CMNewDateTimeFromBinary(broker, 147784000005, 1, &rc));
    return seen;
}

// What there is to be refused, and what has an answer of its own.
std::string services(const Request &r) {
    CMPIStatus rc = {};
    CMPIString *name = nullptr;
    CMPIArgs *args = CMNewArgs(broker, nullptr);
    std::string seen;
    seen += list({CMLogMessage(broker, 1, "", "", nullptr), CMTraceMessage(broker, 1, "", "", nullptr),
                  CBDeliverIndication(broker, r.ctx, "", nullptr), CDToString(broker, r.op, &rc), rc});
    seen += list({CDIsOfType(broker, r.op, "", &rc), rc, CBInvokeMethod(broker, r.ctx, r.op, "m", r.in, nullptr, &rc),
                  broker->eft->getMessage(broker, "id", "default", &rc, 0), rc});
    for (const char *type : {"oxt_probe", "OXT_Base", "OXT_Other"})
        seen += list({CMClassPathIsA(broker, r.op, type, nullptr)});
    seen += list({CMAddArg(args, nullptr, "x", CMPI_chars), CMAddArg(args, "A", "x", CMPI_chars),
                  CMAddArg(args, "a", "y", CMPI_chars), CMGetArgCount(args, nullptr),
                  CMGetArg(args, "a", nullptr).value.string});
    seen += list({CMGetArgAt(args, 0, &name, &rc), name, "|", CMGetContextEntryCount(r.ctx, nullptr),
                  CMGetContextEntryAt(r.ctx, 0, &name, &rc)});
    seen +=
        list({name, CMGetContextEntryAt(r.ctx, 9, nullptr, &rc), CMAddContextEntry(r.ctx, nullptr, "", CMPI_chars)});
    return seen + list({CMGetContextEntry(r.ctx, "cmpiinvocationflags", &rc)});
}

// The system's services: a thread, and the time that is waited.
std::string system(const Request &) {
    const CMPIBrokerExtFT &xft = *broker->xft;
    char *const file = xft.resolveFileName("probe");
    CMPI_THREAD_RETURN returned = nullptr;
    std::string seen = file;
    if (xft.joinThread != nullptr) {
        CMPI_THREAD_TYPE thread = xft.newThread([](void *value) { return value; }, file, 0);
        seen += list({" ", xft.joinThread(thread, &returned), returned == file, xft.threadSleep(2345)});
    }
    return free(file), seen;
}
