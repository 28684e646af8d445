// Results: what a provider returns, copied out at once, and the order in which it may return it.
#include "oxtHostData.h"
#include "oxtHostInstances.h"
#include "oxtHostSlot.h"

namespace oxthost {
namespace {

using Expects = ResultBody::Expects;

void refuse(Broker &broker, const char *slot, const char *what, CMPIrc rc = CMPI_RC_ERR_FAILED) {
    broker.registry.misuse(std::string(slot) + ": " + what);
    throw Refusal{rc};
}

// Refuses data after the end, and data of another sort than the operation returns.
void admit(Broker &broker, const ResultBody &result, const char *slot, bool expected) {
    if (result.done)
        refuse(broker, slot, "data after done");
    if (!expected)
        refuse(broker, slot, "not what this operation returns");
}

void returnData(Broker &broker, ResultBody &result, const CMPIValue *value, CMPIType type) {
    const char *slot = "returnData";
    admit(broker, result, slot, result.expects == Expects::Value);
    if (broker.sfcb() && type == CMPI_ref)
        refuse(broker, slot, "a reference ends the object manager's process", CMPI_RC_ERR_INVALID_DATA_TYPE);
    if (broker.sfcb() && (type & CMPI_ARRAY) != 0) // that host answers a failure
        throw Refusal{CMPI_RC_ERR_FAILED};
    Datum datum = toDatum(broker, value, type, slot);
    if (value == nullptr && broker.sfcb() && (type & CMPI_ENC) == 0)
        datum.state = CMPI_goodValue; // that host returns a number, its value unset
    if (result.returned)
        refuse(broker, slot, "more than one return value");
    result.returned = toValue(datum);
}

void returnInstance(Broker &broker, ResultBody &result, const InstanceBody &instance) {
    const char *slot = "returnInstance";
    admit(broker, result, slot, result.expects == Expects::Instances || result.expects == Expects::OneInstance);
    if (result.expects == Expects::OneInstance && !result.instances.empty())
        refuse(broker, slot, "more than one instance");
    result.instances.push_back(toInstance(broker, instance));
}

} // namespace

void fillResults(Tables &tables, const Broker &broker) {
    CMPIResultFT &ft = tables.result;
    fillCommon<ResultBody>(ft, broker);
    ft.returnData = [](const CMPIResult *self, const CMPIValue *value, CMPIType type) {
        return onObject<ResultBody>("returnData", self, nullptr,
                                    [=](Broker &host, ResultBody &result) { returnData(host, result, value, type); });
    };
    ft.returnInstance = [](const CMPIResult *self, const CMPIInstance *inst) {
        return onObject<ResultBody>("returnInstance", self, nullptr, [=](Broker &host, ResultBody &result) {
            returnInstance(host, result, *host.use<InstanceBody>(inst, "returnInstance"));
        });
    };
    ft.returnObjectPath = [](const CMPIResult *self, const CMPIObjectPath *ref) {
        return onObject<ResultBody>("returnObjectPath", self, nullptr, [=](Broker &host, ResultBody &result) {
            admit(host, result, "returnObjectPath", result.expects == Expects::Paths);
            result.instances.push_back(toInstance(*host.use<PathBody>(ref, "returnObjectPath")));
        });
    };
    ft.returnDone = [](const CMPIResult *self) {
        return onObject<ResultBody>("returnDone", self, nullptr, [](Broker &host, ResultBody &result) {
            if (result.done)
                refuse(host, "returnDone", "done twice");
            result.done = true;
        });
    };
    if (!broker.sfcb())
        ft.returnError = [](const CMPIResult *self, const CMPIError *) {
            return onObject<ResultBody>("returnError", self, nullptr,
                                        [](Broker &, ResultBody &) { throw Refusal{CMPI_RC_ERR_NOT_SUPPORTED}; });
        };
}

} // namespace oxthost
