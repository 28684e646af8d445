// Arrays and enumerations.
#include "oxtHostData.h"
#include "oxtHostSlot.h"

namespace oxthost {
namespace {

constexpr auto kNoMoreElements = static_cast<CMPIrc>(18); // of a later version of the interface

void fillArray(CMPIArrayFT &ft) {
    ft.getSize = [](const CMPIArray *self, CMPIStatus *rc) {
        return onObject<ArrayBody>("getSize", self, rc, [](Broker &, ArrayBody &array) {
            return static_cast<CMPICount>(array.elements.size());
        });
    };
    ft.getSimpleType = [](const CMPIArray *self, CMPIStatus *rc) {
        return onObject<ArrayBody>("getSimpleType", self, rc,
                                   [](Broker &, ArrayBody &array) { return array.elementType; });
    };
    ft.getElementAt = [](const CMPIArray *self, CMPICount index, CMPIStatus *rc) {
        return onObject<ArrayBody>("getElementAt", self, rc, [=](Broker &broker, ArrayBody &array) {
            if (index < array.elements.size())
                return toData(broker, array.elements[index]);
            if (broker.sfcb())
                return CMPIData{array.elementType, CMPI_badValue, {}};
            throw Refusal{CMPI_RC_ERR_NO_SUCH_PROPERTY};
        });
    };
    ft.setElementAt = [](CMPIArray *self, CMPICount index, const CMPIValue *value, CMPIType type) {
        return onObject<ArrayBody>("setElementAt", self, nullptr, [=](Broker &broker, ArrayBody &array) {
            if (index >= array.elements.size())
                throw Refusal{broker.sfcb() ? CMPI_RC_ERR_FAILED : CMPI_RC_ERR_NO_SUCH_PROPERTY};
            const bool typed = type == array.elementType || (type == CMPI_chars && array.elementType == CMPI_string);
            if (!typed && !(value == nullptr && type == CMPI_null))
                throw Refusal{broker.sfcb() ? CMPI_RC_ERR_FAILED : CMPI_RC_ERR_TYPE_MISMATCH};
            Datum element = toDatum(broker, value, type, "setElementAt");
            element.type = array.elementType;
            if (value == nullptr && type != CMPI_null && broker.sfcb() && (type & CMPI_ENC) == 0)
                element.state = CMPI_goodValue; // that host marks it good, its value unset
            array.elements[index] = std::move(element);
        });
    };
}

void fillEnumeration(CMPIEnumerationFT &ft) {
    ft.getNext = [](const CMPIEnumeration *self, CMPIStatus *rc) {
        return onObject<EnumerationBody>("getNext", self, rc, [](Broker &broker, EnumerationBody &body) {
            if (body.next < body.elements.size())
                return toData(broker, body.elements[body.next++]);
            if (broker.sfcb())
                return CMPIData{CMPI_null, CMPI_badValue, {}};
            throw Refusal{kNoMoreElements};
        });
    };
    ft.hasNext = [](const CMPIEnumeration *self, CMPIStatus *rc) {
        return onObject<EnumerationBody>("hasNext", self, rc, [](Broker &, EnumerationBody &body) {
            return CMPIBoolean{body.next < body.elements.size()};
        });
    };
    ft.toArray = [](const CMPIEnumeration *self, CMPIStatus *rc) {
        return onObject<EnumerationBody>("toArray", self, rc, [](Broker &broker, EnumerationBody &body) {
            auto array = std::make_shared<ArrayBody>();
            array->elementType = body.elementType;
            array->elements = body.elements;
            return broker.make(std::move(array));
        });
    };
}

} // namespace

void fillArrays(Tables &tables, const Broker &broker) {
    fillCommon<ArrayBody>(tables.array, broker);
    fillArray(tables.array);
    fillCommon<EnumerationBody>(tables.enumeration, broker);
    fillEnumeration(tables.enumeration);
}

} // namespace oxthost
