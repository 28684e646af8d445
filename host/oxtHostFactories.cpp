// The broker's factories and services.
#include <chrono>

#include "oxtHostData.h"
#include "oxtHostInstances.h"
#include "oxtHostRefuse.h"
#include "oxtHostSlot.h"
#include "oxtHostStrings.h"

namespace oxthost {
namespace {

constexpr CMPICount kLargestArray = 1000000; // a provider's wrong count must not use up the host's memory

std::shared_ptr<DateTimeBody> dateTime(CMPIUint64 microseconds, bool interval) {
    auto date = std::make_shared<DateTimeBody>();
    date->microseconds = microseconds;
    date->interval = interval;
    return date;
}

void fillObjects(CMPIBrokerEncFT &ft) {
    ft.newInstance = [](const CMPIBroker *mb, const CMPIObjectPath *op, CMPIStatus *rc) {
        return onFactory("newInstance", mb, rc, [=](Broker &broker) {
            return broker.make(newInstanceBody(broker, *broker.use<PathBody>(op, "newInstance")));
        });
    };
    ft.newObjectPath = [](const CMPIBroker *mb, const char *ns, const char *cn, CMPIStatus *rc) {
        return onFactory("newObjectPath", mb, rc, [=](Broker &broker) {
            auto path = std::make_shared<PathBody>();
            path->nameSpace = orEmpty(ns);
            path->className = orEmpty(cn);
            return broker.make(std::move(path));
        });
    };
    ft.newArgs = [](const CMPIBroker *mb, CMPIStatus *rc) {
        return onFactory("newArgs", mb, rc, [](Broker &broker) { return broker.make(std::make_shared<ArgsBody>()); });
    };
    ft.newString = [](const CMPIBroker *mb, const char *data, CMPIStatus *rc) {
        return onFactory("newString", mb, rc, [=](Broker &broker) {
            return data != nullptr ? broker.makeString(data) : broker.makeNullString();
        });
    };
    ft.newArray = [](const CMPIBroker *mb, CMPICount max, CMPIType type, CMPIStatus *rc) {
        return onFactory("newArray", mb, rc, [=](Broker &broker) {
            if (max > kLargestArray || (type & CMPI_ARRAY) != 0)
                throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
            auto array = std::make_shared<ArrayBody>();
            array->elementType = type == CMPI_chars ? CMPIType{CMPI_string} : type;
            array->elements.assign(max, nullDatum(type));
            return broker.make(std::move(array));
        });
    };
}

void fillDates(CMPIBrokerEncFT &ft) {
    ft.newDateTime = [](const CMPIBroker *mb, CMPIStatus *rc) {
        return onFactory("newDateTime", mb, rc, [](Broker &broker) {
            const auto now = std::chrono::system_clock::now().time_since_epoch();
            const auto microseconds = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
            return broker.make(dateTime(static_cast<CMPIUint64>(microseconds), false));
        });
    };
    ft.newDateTimeFromBinary = [](const CMPIBroker *mb, CMPIUint64 microseconds, CMPIBoolean interval, CMPIStatus *rc) {
        return onFactory("newDateTimeFromBinary", mb, rc,
                         [=](Broker &broker) { return broker.make(dateTime(microseconds, interval != 0)); });
    };
    ft.newDateTimeFromChars = [](const CMPIBroker *mb, const char *text, CMPIStatus *rc) {
        return onFactory("newDateTimeFromChars", mb, rc, [=](Broker &broker) {
            auto date = parseDateTime(orEmpty(text), !broker.sfcb());
            if (date == nullptr)
                throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
            return broker.make(std::move(date));
        });
    };
}

// A host without message files gives the default text.
CMPIString *defaultMessage(const char *slot, const CMPIBroker *mb, const char *text, CMPIStatus *rc) {
    CMPIString *message = onFactory(slot, mb, rc, [=](Broker &broker) { return broker.makeString(orEmpty(text)); });
    if (message != nullptr)
        answer(rc, CMPI_RC_ERR_NOT_SUPPORTED);
    return message;
}

CMPIString *getMessage(const CMPIBroker *mb, const char *, const char *text, CMPIStatus *rc, CMPICount, ...) {
    return defaultMessage("getMessage", mb, text, rc);
}

CMPIString *getMessage2(const CMPIBroker *mb, const char *, CMPIMsgFileHandle, const char *text, CMPIStatus *rc,
                        CMPICount, ...) {
    return defaultMessage("getMessage2", mb, text, rc);
}

void fillOptional(CMPIBrokerEncFT &ft) {
    OXT_REFUSED(ft, newCMPIError);
    OXT_REFUSED(ft, openMessageFile);
    OXT_REFUSED(ft, closeMessageFile);
    ft.getMessage2 = getMessage2;
}

} // namespace

void fillFactories(Tables &tables, const Broker &broker) {
    CMPIBrokerEncFT &ft = tables.eft;
    ft.ftVersion = broker.ftVersion();
    fillObjects(ft);
    fillDates(ft);
    ft.classPathIsA = [](const CMPIBroker *mb, const CMPIObjectPath *op, const char *type, CMPIStatus *rc) {
        return onBroker("classPathIsA", mb, rc, [=](Broker &host) {
            const std::string name = host.use<PathBody>(op, "classPathIsA")->className;
            const bool isA = host.schema ? host.schema->isA(name, orEmpty(type)) : sameName(name, orEmpty(type));
            return CMPIBoolean{isA};
        });
    };
    ft.getMessage = getMessage;
    OXT_REFUSED(ft, newSelectExp);
    OXT_REFUSED(ft, toString);
    OXT_REFUSED(ft, isOfType);
    OXT_REFUSED(ft, getType);
    OXT_REFUSED(ft, logMessage);
    OXT_REFUSED(ft, trace);
    if (!broker.sfcb())
        fillOptional(ft);
}

} // namespace oxthost
