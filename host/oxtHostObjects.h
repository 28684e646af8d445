// The bodies of the host's CMPI objects and the shells in which a provider sees them.
//
// A provider holds a pointer to a shell: the two words that CMPI shows, then the broker. The body lies elsewhere and is
// reached only through the registry of live objects, so that a stale pointer is noticed instead of followed. Bodies
// carry no lock: like any host's, one object is for one thread at a time.
#ifndef OXT_HOST_OBJECTS_H
#define OXT_HOST_OBJECTS_H

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "cmpidt.h"
#include "cmpift.h"
#include "cmpimacs.h"
#include "oxtHost.h"

namespace oxthost {

struct Broker;

enum class Kind { String, Array, Enumeration, Instance, Path, Args, Context, Result, DateTime };
constexpr int kKindCount = 9;

template <class FaceT> struct Shell {
    FaceT face;
    Broker *broker;
};

struct Body {
    explicit Body(Kind k) : kind(k) {}
    Body(const Body &) = default;
    Body &operator=(const Body &) = default;
    virtual ~Body() = default;
    virtual std::shared_ptr<Body> copy() const = 0;
    Kind kind;
};

template <class Self, class FaceT, class TableT, Kind K> struct BodyOf : Body {
    using Face = FaceT;
    using Table = TableT;
    static constexpr Kind ownKind = K;
    BodyOf() : Body(K) {}
    std::shared_ptr<Body> copy() const override { return std::make_shared<Self>(static_cast<const Self &>(*this)); }
};

// One CMPI value with its contents, free of shells. Arrays, instances, paths and date-times are bodies that nobody
// changes any more.
struct Datum {
    CMPIType type = CMPI_null;
    CMPIValueState state = CMPI_nullValue;
    CMPIValue scalar = {};
    std::string text;
    std::shared_ptr<const Body> object;
    bool isNull() const { return (state & CMPI_nullValue) != 0; }
};

struct NamedDatum {
    std::string name;
    Datum datum;
    unsigned place = 0; // of a property among those that the provider has set; 0: put there by the host
};

struct StringBody : BodyOf<StringBody, CMPIString, CMPIStringFT, Kind::String> {
    StringBody(std::string t, bool isNull) : text(std::move(t)), null(isNull) {}
    StringBody(const StringBody &) = default;
    StringBody &operator=(const StringBody &) = default;
    ~StringBody() override; // overwrites the text, so that a kept character pointer shows
    std::string text;
    bool null;
};

struct DateTimeBody : BodyOf<DateTimeBody, CMPIDateTime, CMPIDateTimeFT, Kind::DateTime> {
    CMPIUint64 microseconds = 0; // since 1970 UTC, or the interval's length
    int utcOffset = 0;           // minutes, only shown
    bool interval = false;
    std::string text() const; // 25 characters
};

struct ArrayBody : BodyOf<ArrayBody, CMPIArray, CMPIArrayFT, Kind::Array> {
    CMPIType elementType = CMPI_null;
    std::vector<Datum> elements;
};

struct EnumerationBody : BodyOf<EnumerationBody, CMPIEnumeration, CMPIEnumerationFT, Kind::Enumeration> {
    CMPIType elementType = CMPI_instance;
    std::vector<Datum> elements;
    std::size_t next = 0;
};

struct PathBody : BodyOf<PathBody, CMPIObjectPath, CMPIObjectPathFT, Kind::Path> {
    std::string nameSpace, hostName, className;
    std::vector<NamedDatum> keys;
    std::string text() const; // ns:Class.key="value",...
};

struct InstanceBody : BodyOf<InstanceBody, CMPIInstance, CMPIInstanceFT, Kind::Instance> {
    PathBody path;
    std::vector<NamedDatum> properties; // as the class declares them; inPlaces() has them as clients see them
    unsigned placesTaken = 0;
    std::optional<std::vector<std::string>> filter; // what clients asked for
    std::vector<std::string> keyNames;              // of the path and of the class
    std::vector<std::string> listedKeys;            // the filter's own key list
};

struct ArgsBody : BodyOf<ArgsBody, CMPIArgs, CMPIArgsFT, Kind::Args> {
    std::vector<NamedDatum> items;
};

struct ContextBody : BodyOf<ContextBody, CMPIContext, CMPIContextFT, Kind::Context> {
    enum class Use { Request, CleanUp, Prepared, Attached };
    Use use = Use::Request;
    std::thread::id thread; // the one that may use it
    std::vector<NamedDatum> entries;
};

struct ResultBody : BodyOf<ResultBody, CMPIResult, CMPIResultFT, Kind::Result> {
    enum class Expects { Nothing, Paths, Instances, OneInstance, Value };
    Expects expects = Expects::Nothing;
    std::vector<Instance> instances; // of paths only: no properties
    std::optional<Value> returned;
    bool done = false;
};

// Names in CMPI are compared without case.
bool sameName(std::string_view a, std::string_view b);
bool contains(const std::vector<std::string> &names, std::string_view name);
NamedDatum *find(std::vector<NamedDatum> &items, std::string_view name); // nullptr when it is not there
// Adds the item or replaces the one of that name.
void put(std::vector<NamedDatum> &items, const std::string &name, Datum datum);

} // namespace oxthost

#endif
