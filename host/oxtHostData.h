// Values on their way between the provider (CMPIValue, CMPIData), the objects (Datum) and the caller (Value).
#ifndef OXT_HOST_DATA_H
#define OXT_HOST_DATA_H

#include <string>

#include "oxtHostBroker.h"

namespace oxthost {

// A copy of what a slot is given. Reads no more bytes than the type has. Throws Refusal for a type code that cannot be
// stored, or an object that is not live.
Datum toDatum(Broker &broker, const CMPIValue *value, CMPIType type, const char *slot);
// What a getter answers; texts and objects are new objects in the calling thread's scope.
CMPIData toData(Broker &broker, const Datum &datum);

Datum toDatum(const Value &value);
Value toValue(const Datum &datum);
std::string toText(const Datum &datum); // for paths and debugging: texts in quotes, arrays in braces

Datum datumOf(std::shared_ptr<const Body> object, CMPIType type);
Datum nullDatum(CMPIType type);

// A command line's text as a value of that type. Numbers are not refused: what does not fit is cut, what is no number
// arrives as some number, as clients and object managers have it.
Value valueFromText(const std::string &text, CMPIType type);

// The type code of a schema's type name; CMPI_null for an unknown one.
CMPIType typeOfName(const std::string &name, bool isArray);

} // namespace oxthost

#endif
