#include "oxtHostData.h"

#include <cstdlib>
#include <cstring>

namespace oxthost {
namespace {

struct Scalar {
    CMPIType type;
    const char *name; // in a schema
    unsigned width;   // bytes
    bool isSigned;
};

constexpr Scalar kScalars[] = {
    {CMPI_boolean, "boolean", 1, false}, {CMPI_char16, "char16", 2, false}, {CMPI_uint8, "uint8", 1, false},
    {CMPI_uint16, "uint16", 2, false},   {CMPI_uint32, "uint32", 4, false}, {CMPI_uint64, "uint64", 8, false},
    {CMPI_sint8, "sint8", 1, true},      {CMPI_sint16, "sint16", 2, true},  {CMPI_sint32, "sint32", 4, true},
    {CMPI_sint64, "sint64", 8, true},    {CMPI_real32, "real32", 4, false}, {CMPI_real64, "real64", 8, false},
};

const Scalar *scalarOf(CMPIType type) {
    for (const Scalar &scalar : kScalars)
        if (scalar.type == type)
            return &scalar;
    return nullptr;
}

bool isReal(CMPIType type) {
    return type == CMPI_real32 || type == CMPI_real64;
}

// The low bytes of a number as a variable of that width holds them; the rest of the union is 0.
CMPIValue cut(std::uint64_t number, unsigned width) {
    CMPIValue value = {};
    std::memcpy(&value, &number, width);
    return value;
}

std::int64_t widen(const CMPIValue &value, const Scalar &scalar) {
    if (scalar.type == CMPI_real32)
        return static_cast<std::int64_t>(value.real32);
    if (scalar.type == CMPI_real64)
        return static_cast<std::int64_t>(value.real64);
    std::uint64_t number = 0;
    std::memcpy(&number, &value, scalar.width);
    const unsigned unused = 64 - 8 * scalar.width; // up and down again: the signed shift copies the sign
    const std::uint64_t high = number << unused;
    return scalar.isSigned ? static_cast<std::int64_t>(high) >> unused : static_cast<std::int64_t>(high >> unused);
}

template <class B> Datum copyOf(Broker &broker, const typename B::Face *object, CMPIType type, const char *slot) {
    return object == nullptr ? nullDatum(type) : datumOf(broker.use<B>(object, slot)->copy(), type);
}

template <class B> typename B::Face *makeFrom(Broker &broker, const Datum &datum) {
    return broker.make(std::static_pointer_cast<B>(datum.object->copy()));
}

Datum textDatum(std::string text) {
    Datum datum;
    datum.type = CMPI_string;
    datum.state = CMPI_goodValue;
    datum.text = std::move(text);
    return datum;
}

} // namespace

Datum nullDatum(CMPIType type) {
    Datum datum;
    datum.type = type == CMPI_chars ? CMPIType{CMPI_string} : type;
    return datum;
}

Datum datumOf(std::shared_ptr<const Body> object, CMPIType type) {
    Datum datum;
    datum.type = type;
    datum.state = CMPI_goodValue;
    datum.object = std::move(object);
    return datum;
}

Datum toDatum(Broker &broker, const CMPIValue *value, CMPIType type, const char *slot) {
    if (value == nullptr)
        return nullDatum(type);
    if (const Scalar *scalar = scalarOf(type)) {
        Datum datum;
        datum.type = type;
        datum.state = CMPI_goodValue;
        std::memcpy(&datum.scalar, value, scalar->width);
        return datum;
    }
    if (type == CMPI_chars)
        return textDatum(reinterpret_cast<const char *>(value));
    if ((type & CMPI_ARRAY) != 0)
        return copyOf<ArrayBody>(broker, value->array, type, slot);
    switch (type) {
    case CMPI_string: {
        if (value->string == nullptr)
            return nullDatum(type);
        const auto string = broker.use<StringBody>(value->string, slot);
        return string->null ? nullDatum(type) : textDatum(string->text);
    }
    case CMPI_ref:
        return copyOf<PathBody>(broker, value->ref, type, slot);
    case CMPI_instance:
        return copyOf<InstanceBody>(broker, value->inst, type, slot);
    case CMPI_dateTime:
        return copyOf<DateTimeBody>(broker, value->dateTime, type, slot);
    default:
        broker.registry.misuse(std::string(slot) + ": type code " + std::to_string(type) + " cannot be stored");
        throw Refusal{CMPI_RC_ERR_INVALID_DATA_TYPE};
    }
}

CMPIData toData(Broker &broker, const Datum &datum) {
    CMPIData data = {datum.type, datum.state, {}};
    if (datum.isNull())
        return data;
    if (scalarOf(datum.type) != nullptr)
        data.value = datum.scalar;
    else if ((datum.type & CMPI_ARRAY) != 0)
        data.value.array = makeFrom<ArrayBody>(broker, datum);
    else if (datum.type == CMPI_string)
        data.value.string = broker.makeString(datum.text);
    else if (datum.type == CMPI_ref)
        data.value.ref = makeFrom<PathBody>(broker, datum);
    else if (datum.type == CMPI_instance)
        data.value.inst = makeFrom<InstanceBody>(broker, datum);
    else if (datum.type == CMPI_dateTime)
        data.value.dateTime = makeFrom<DateTimeBody>(broker, datum);
    return data;
}

Datum toDatum(const Value &value) {
    if (value.null)
        return nullDatum(value.type);
    const Scalar *scalar = scalarOf(value.type);
    if (scalar == nullptr)
        return textDatum(value.text);
    Datum datum;
    datum.type = value.type;
    datum.state = CMPI_goodValue;
    if (value.type == CMPI_real32)
        datum.scalar.real32 = std::strtof(value.text.c_str(), nullptr);
    else if (value.type == CMPI_real64)
        datum.scalar.real64 = std::strtod(value.text.c_str(), nullptr);
    else
        datum.scalar = cut(static_cast<std::uint64_t>(value.number), scalar->width);
    return datum;
}

Value toValue(const Datum &datum) {
    Value value;
    value.type = datum.type;
    value.null = datum.isNull();
    const Scalar *scalar = scalarOf(datum.type);
    if (value.null)
        return value;
    if (scalar != nullptr)
        value.number = widen(datum.scalar, *scalar);
    if (scalar == nullptr || isReal(datum.type))
        value.text = datum.type == CMPI_string ? datum.text : toText(datum);
    return value;
}

std::string toText(const Datum &datum) {
    if (datum.isNull())
        return "NULL";
    if (const Scalar *scalar = scalarOf(datum.type)) {
        if (datum.type == CMPI_boolean)
            return datum.scalar.boolean != 0 ? "true" : "false";
        if (isReal(datum.type))
            return std::to_string(datum.type == CMPI_real32 ? double{datum.scalar.real32} : datum.scalar.real64);
        const std::int64_t number = widen(datum.scalar, *scalar);
        return scalar->isSigned ? std::to_string(number) : std::to_string(static_cast<std::uint64_t>(number));
    }
    if (datum.type == CMPI_string) {
        std::string text = "\"";
        for (const char c : datum.text)
            text += c == '"' || c == '\\' ? std::string("\\") + c : std::string(1, c);
        return text + "\"";
    }
    if (datum.type == CMPI_dateTime)
        return static_cast<const DateTimeBody &>(*datum.object).text();
    if (datum.type == CMPI_ref)
        return static_cast<const PathBody &>(*datum.object).text();
    if (datum.type == CMPI_instance)
        return static_cast<const InstanceBody &>(*datum.object).path.text();
    std::string text;
    for (const Datum &element : static_cast<const ArrayBody &>(*datum.object).elements)
        text += (text.empty() ? "" : ", ") + toText(element);
    return "{" + text + "}";
}

Value valueFromText(const std::string &text, CMPIType type) {
    const Scalar *scalar = scalarOf(type);
    if (scalar == nullptr)
        return Value::string(text);
    if (isReal(type)) {
        Value value = Value::signedNumber(type, 0);
        value.text = text;
        return value;
    }
    if (type == CMPI_boolean)
        return Value::unsignedNumber(type, sameName(text, "true") || text == "1");
    char *end = nullptr;
    std::uint64_t number = !text.empty() && text.front() == '-'
                               ? static_cast<std::uint64_t>(std::strtoll(text.c_str(), &end, 10))
                               : std::strtoull(text.c_str(), &end, 10);
    if (end == text.c_str()) { // no number at all: rubbish, but the same one every time
        for (const char c : text)
            number = number * 31 + static_cast<unsigned char>(c);
    }
    const std::int64_t arrived = widen(cut(number, scalar->width), *scalar);
    return scalar->isSigned ? Value::signedNumber(type, arrived)
                            : Value::unsignedNumber(type, static_cast<std::uint64_t>(arrived));
}

CMPIType typeOfName(const std::string &name, bool isArray) {
    const CMPIType flag = isArray ? CMPI_ARRAY : 0;
    const auto of = [flag](int type) { return static_cast<CMPIType>(type | flag); };
    for (const Scalar &scalar : kScalars)
        if (sameName(name, scalar.name))
            return of(scalar.type);
    if (sameName(name, "string"))
        return of(CMPI_string);
    if (sameName(name, "datetime"))
        return of(CMPI_dateTime);
    return name.size() > 4 && sameName(name.substr(name.size() - 4), " ref") ? of(CMPI_ref) : CMPIType{CMPI_null};
}

} // namespace oxthost
