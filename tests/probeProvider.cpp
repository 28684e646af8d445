// A provider that exists to try the in-process host: each of its methods does one thing to the broker, right or wrong,
// and returns what it saw as text. Its instance operations hand out one instance under the request's filter.
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <thread>
#include <unistd.h>

#include "probe.h"

namespace {

CMPIString *kept;

} // namespace

const CMPIBroker *broker;

std::string code(const CMPIStatus &rc, const CMPIData &data) {
    char text[32];
    std::snprintf(text, sizeof text, "%d/%04x ", static_cast<int>(rc.rc), static_cast<unsigned>(data.state));
    return text;
}

CMPIInstance *newInstance(const Request &r) { // nullptr when a service fails
    CMPIObjectPath *path = CMClone(r.op, nullptr);
    if (path == nullptr)
        return nullptr;
    CMAddKey(path, "Id", "7", CMPI_chars);
    CMPIInstance *inst = CMNewInstance(broker, path, nullptr);
    CMRelease(path);
    return inst;
}

namespace {

std::string missing(const Request &r) {
    CMPIStatus rc = {};
    CMPIArray *array = CMNewArray(broker, 2, CMPI_uint16, nullptr);
    std::string seen;
    const auto note = [&](const CMPIData &data) { seen += code(rc, data); };
    note(CMGetProperty(newInstance(r), "None", &rc));
    note(CMGetKey(r.op, "None", &rc));
    note(CMGetArg(r.in, "None", &rc));
    note(CMGetArgAt(r.in, 0, nullptr, &rc));
    note(CMGetContextEntry(r.ctx, "None", &rc));
    note(CMGetArrayElementAt(array, 2, &rc));
    seen += code(CMSetArrayElementAt(array, 0, "x", CMPI_chars));
    return seen;
}

std::string optional(const Request &r) {
    std::string seen;
    for (const bool callable :
         {r.op->ft->getClassQualifier != nullptr, newInstance(r)->ft->setPropertyWithOrigin != nullptr,
          r.rslt->ft->returnError != nullptr, broker->eft->newCMPIError != nullptr, broker->xft->joinThread != nullptr,
          broker->mft != nullptr})
        seen += callable ? '1' : '0';
    return seen;
}

// An array and a NULL through an instance; then what the same names give in another spelling.
std::string values(const Request &r) {
    CMPIStatus rc = {};
    const CMPIUint16 number = 65535;
    CMPIInstance *inst = newInstance(r);
    CMPIValue value;
    value.array = CMNewArray(broker, 2, CMPI_uint16, nullptr);
    CMSetArrayElementAt(value.array, 1, &number, CMPI_uint16);
    CMSetProperty(inst, "List", &value, CMPI_uint16A);
    CMSetArrayElementAt(value.array, 0, &number, CMPI_uint16); // too late: the property is a copy
    CMSetProperty(inst, "Nothing", nullptr, CMPI_sint32);
    value.string = CMNewString(broker, nullptr, nullptr);
    CMSetProperty(inst, "NoText", &value, CMPI_string);
    CMPIArray *list = CMGetProperty(inst, "LIST", &rc).value.array;
    std::string seen = code(rc, CMGetArrayElementAt(list, 0, nullptr));
    seen += std::to_string(CMGetArrayElementAt(list, 1, nullptr).value.uint16) + " ";
    for (const char *null : {"nothing", "notext"})
        seen += code(rc, CMGetProperty(inst, null, &rc));
    for (const CMPIUint16 one : {CMPIUint16{1}, number})
        CMAddContextEntry(r.ctx, "Number", &one, CMPI_uint16);
    seen += std::to_string(CMGetContextEntry(r.ctx, "Number", &rc).value.uint16) + " ";
    CMPIObjectPath *path = CMNewObjectPath(broker, "root/TAVRIN/AS", "OXT_GeneralInformation", nullptr);
    CMPIArray *all = CMToArray(CBEnumInstances(broker, r.ctx, path, nullptr, nullptr), nullptr);
    seen += std::to_string(all->ft->getSimpleType(all, nullptr)) + " ";
    return seen + (CMGetBinaryFormat(CMNewDateTime(broker, nullptr), nullptr) > 1'700'000'000'000'000 ? "now" : "past");
}

std::string echo(const Request &r) {
    std::string seen;
    for (CMPICount i = 0; i < CMGetArgCount(r.in, nullptr); ++i) {
        const CMPIData data = CMGetArgAt(r.in, i, nullptr, nullptr);
        char text[32];
        std::snprintf(text, sizeof text, "%04x:", static_cast<unsigned>(data.type));
        seen += text;
        seen +=
            data.type == CMPI_string ? CMGetCharsPtr(data.value.string, nullptr) : std::to_string(data.value.uint64);
    }
    return seen;
}

std::string askAgent(const CMPIContext *ctx) {
    CMPIStatus rc = {};
    CMPIObjectPath *path = CMNewObjectPath(broker, "root/TAVRIN/AS", "OXT_GeneralInformation", &rc);
    CMPIInstance *inst = CBGetInstance(broker, ctx, path, nullptr, &rc);
    CMRelease(path);
    if (inst == nullptr)
        return "no instance " + code(rc);
    const CMPIData data = CMGetProperty(inst, "InstalledServiceMode", &rc);
    CMRelease(inst);
    return rc.rc == CMPI_RC_OK ? std::to_string(data.value.boolean) : "no property " + code(rc);
}

// In a thread of its own; what it leaves behind must go when it ends.
std::string inThread(const Request &r) {
    CMPIContext *ctx = CBPrepareAttachThread(broker, r.ctx);
    std::string seen;
    std::thread([&] {
        CBAttachThread(broker, ctx);
        CMNewString(broker, "left behind", nullptr);
        seen = askAgent(ctx);
        CBDetachThread(broker, ctx);
    }).join();
    return seen;
}

// A thread that stays until it reads a byte from one pipe; it tells the other when it is attached, then what it saw.
std::string linger(const Request &r) {
    CMPIContext *ctx = CBPrepareAttachThread(broker, r.ctx);
    const int in = CMGetArg(r.in, "in", nullptr).value.sint32, out = CMGetArg(r.in, "out", nullptr).value.sint32;
    std::thread([=] {
        char byte = 'a';
        CBAttachThread(broker, ctx);
        if (write(out, &byte, 1) != 1 || read(in, &byte, 1) != 1)
            return;
        const std::string seen = askAgent(ctx);
        CBDetachThread(broker, ctx);
        byte = seen.front();
        if (write(out, &byte, 1) != 1)
            close(out);
    }).detach();
    return "";
}

std::string keepString(const Request &) {
    const std::string before = kept != nullptr ? CMGetCharsPtr(kept, nullptr) : "nothing";
    if (kept != nullptr)
        CMRelease(kept);
    kept = CMClone(CMNewString(broker, "kept", nullptr), nullptr);
    return before;
}

std::string misuse(const Request &r, const std::string &which) {
    CMPIStatus rc = {};
    CMPIString *string = CMNewString(broker, "text", &rc);
    if (which == "doubleRelease")
        return CMRelease(string), code(CMRelease(string));
    if (which == "useAfterRelease")
        return CMRelease(string), CMGetCharsPtr(string, &rc) == nullptr ? code(rc) : "answered";
    if (which == "useAfterRequest") { // the second time
        CMPIString *old = kept;
        kept = string;
        return old == nullptr ? "" : CMGetCharsPtr(old, &rc) == nullptr ? code(rc) : "answered";
    }
    if (which == "wrongKind")
        return code(CMReturnInstance(r.rslt, reinterpret_cast<const CMPIInstance *>(string)));
    if (which == "setWrongKind") {
        CMPIValue value;
        value.string = reinterpret_cast<CMPIString *>(CMNewArgs(broker, nullptr));
        return code(CMSetProperty(newInstance(r), "A", &value, CMPI_string));
    }
    if (which == "releaseArgument")
        return code(r.op->ft->release(const_cast<CMPIObjectPath *>(r.op)));
    if (which == "attachTwice") {
        CMPIContext *ctx = CBPrepareAttachThread(broker, r.ctx);
        std::thread([&] { rc = (CBAttachThread(broker, ctx), CBAttachThread(broker, ctx)); }).join();
        return CMRelease(ctx), code(rc);
    }
    if (which == "attachTwo") {
        std::string seen;
        CMPIContext *const both[] = {CBPrepareAttachThread(broker, r.ctx), CBPrepareAttachThread(broker, r.ctx)};
        std::thread([&] {
            for (const auto *ctx : both)
                seen += code(CBAttachThread(broker, ctx));
            for (const auto *ctx : both)
                seen += code(CBDetachThread(broker, ctx));
        }).join();
        return seen;
    }
    if (which == "unattached")
        return std::thread([&] { string = CMNewString(broker, "x", &rc); }).join(), code(rc);
    if (which == "otherThreadsContext")
        return std::thread([&] { askAgent(r.ctx); }).join(), "";
    return "?";
}

const struct {
    const char *name;
    std::string (*run)(const Request &);
} deeds[] = {
    {"missing", missing},
    {"optional", optional},
    {"values", values},
    {"paths", paths},
    {"instances", instances},
    {"asking", asking},
    {"dates", dates},
    {"services", services},
    {"system", system},
    {"echo", echo},
    {"askAgent", [](const Request &r) { return askAgent(r.ctx); }},
    {"inThread", inThread},
    {"linger", linger},
    {"keepString", keepString},
};

CMPIStatus invoke(CMPIMethodMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op,
                  const char *method, const CMPIArgs *in, CMPIArgs *) {
    const Request request = {ctx, rslt, op, in};
    const std::string name = method;
    const auto *deed =
        std::find_if(std::begin(deeds), std::end(deeds), [&](const auto &one) { return one.name == name; });
    const std::string text = deed != std::end(deeds) ? deed->run(request) : misuse(request, name);
    if (name == "doneTwice" || name == "dataAfterDone")
        CMReturnDone(rslt);
    if (name == "dataTwice")
        CMReturnData(rslt, text.c_str(), CMPI_chars);
    const CMPIStatus rc = CMReturnData(rslt, text.c_str(), CMPI_chars);
    return name == "dataAfterDone" ? rc : CMReturnDone(rslt);
}

// Asks for a key "Bare" to leave the key list out of the filter.
CMPIStatus getInstance(CMPIInstanceMI *, const CMPIContext *ctx, const CMPIResult *rslt, const CMPIObjectPath *op,
                       const char **properties) {
    CMPIInstance *inst = newInstance({ctx, rslt, op, nullptr});
    CMPIStatus rc = {CMPI_RC_OK, nullptr};
    const CMPIUint32 seventyThousand = 70000;
    if (inst == nullptr)
        CMReturnWithChars(broker, CMPI_RC_ERR_FAILED, "no instance");
    const char *keys[] = {"Id", nullptr};
    CMGetKey(op, "Bare", &rc);
    rc = CMSetPropertyFilter(inst, properties, rc.rc == CMPI_RC_OK ? nullptr : keys);
    const auto set = [&](const char *name, const void *value, CMPIType type) {
        if (rc.rc == CMPI_RC_OK)
            rc = CMSetProperty(inst, name, value, type);
    };
    set("Text", "text", CMPI_chars);
    set("Id", "7", CMPI_chars);
    set("Number", nullptr, CMPI_uint32); // which admits no value of that type
    set("Number", &seventyThousand, CMPI_uint32);
    if (rc.rc == CMPI_RC_OK)
        rc = CMReturnInstance(rslt, inst);
    if (properties != nullptr && properties[0] != nullptr && std::string(properties[0]) == "twice")
        CMReturnInstance(rslt, inst);
    return rc.rc == CMPI_RC_OK ? CMReturnDone(rslt) : rc;
}

CMPIStatus getPaths(CMPIInstanceMI *, const CMPIContext *, const CMPIResult *rslt, const CMPIObjectPath *op) {
    const CMPIStatus rc = CMReturnObjectPath(rslt, op);
    return rc.rc == CMPI_RC_OK ? CMReturnDone(rslt) : rc;
}

CMPIStatus keepLoaded(CMPIInstanceMI *, const CMPIContext *ctx, CMPIBoolean terminating) {
    if (terminating != 0)
        askAgent(ctx);
    CMReturnWithChars(broker, CMPI_RC_DO_NOT_UNLOAD, "busy");
}

CMPIStatus letGo(CMPIMethodMI *, const CMPIContext *, CMPIBoolean) {
    CMReturn(CMPI_RC_OK);
}

CMPIInstanceMIFT instanceTable = {CMPICurrentVersion,
                                  CMPICurrentVersion,
                                  "instanceProbe",
                                  keepLoaded,
                                  getPaths,
                                  nullptr,
                                  getInstance,
                                  nullptr,
                                  nullptr,
                                  nullptr,
                                  nullptr};
CMPIMethodMIFT methodTable = {CMPICurrentVersion, CMPICurrentVersion, "methodProbe", letGo, invoke};
CMPIInstanceMI instanceFace = {nullptr, &instanceTable};
CMPIMethodMI methodFace = {nullptr, &methodTable};

} // namespace

CMPI_EXTERN_C CMPIInstanceMI *Probe_Create_InstanceMI(const CMPIBroker *mb, const CMPIContext *, CMPIStatus *rc) {
    broker = mb;
    kept = nullptr;
    CMSetStatus(rc, CMPI_RC_OK);
    return &instanceFace;
}

CMPI_EXTERN_C CMPIMethodMI *Probe_Create_MethodMI(const CMPIBroker *, const CMPIContext *, CMPIStatus *rc) {
    CMSetStatus(rc, CMPI_RC_OK);
    return &methodFace;
}

// A provider that refuses to be made.
CMPI_EXTERN_C CMPIInstanceMI *Broken_Create_InstanceMI(const CMPIBroker *mb, const CMPIContext *, CMPIStatus *rc) {
    CMSetStatusWithChars(mb, rc, CMPI_RC_ERR_FAILED, "out of order");
    return &instanceFace;
}
