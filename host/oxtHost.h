// An in-process CMPI host for one provider library, for tools and tests.
//
// The host owns the broker's function tables, loads the provider's shared object with dlopen and calls it only through
// its CMPI factories and tables, as an object manager does. Every request runs on the caller's thread and may be made
// from several threads at once. What a request makes is freed when the request ends; what an attached thread of the
// provider makes lives until it is released or the thread ends. Live objects are counted and misuse (a double release,
// a use after release, data after "done") is noted and answered with a status, never with a crash.
#ifndef OXT_HOST_H
#define OXT_HOST_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cmpidt.h"

namespace oxthost {

// A CIM value in plain form. Numbers and booleans keep their 64 bits; text holds strings.
struct Value {
    CMPIType type = CMPI_null; // as the provider set it; CMPI_chars arrives as CMPI_string
    bool null = true;
    std::int64_t number = 0; // signed types sign-extended, unsigned types zero-extended
    std::string text;

    static Value string(std::string text);
    static Value unsignedNumber(CMPIType type, std::uint64_t number);
    static Value signedNumber(CMPIType type, std::int64_t number);
    static Value nullOf(CMPIType type);
};

using NamedValue = std::pair<std::string, Value>;

struct Instance {
    std::string nameSpace;
    std::string className;
    std::vector<NamedValue> keys;                       // of the instance's object path
    std::vector<NamedValue> properties;                 // in the order in which the provider set them
    const Value *find(std::string_view property) const; // nullptr when the instance does not carry it
};

// The answer to one request. Nothing in it refers to CMPI objects any more.
struct Reply {
    CMPIrc rc = CMPI_RC_OK;
    std::string message; // of the provider's status, empty when it has none
    std::vector<Instance> instances;
    std::optional<Value> returned; // CMReturnData of a method
    bool done = false;             // CMReturnDone was called
    bool ok() const { return rc == CMPI_RC_OK; }
};

// What the agent's class OXT_GeneralInformation answers when the provider asks for InstalledServiceMode.
struct ServiceMode {
    enum Kind { Byte, NoSuchInstance, NoSuchProperty } kind = Byte;
    CMPIBoolean byte = 0; // 0, 1 or an odd value
    static ServiceMode off() { return {Byte, 0}; }
    static ServiceMode on() { return {Byte, 1}; }
};

// Where hosts differ. Standard: the 2.0 document's own answers; Sfcb: those of the Small Footprint CIM Broker (missing
// items give code 6, optional slots are null, a property filter without key list drops key properties, ...).
enum class Flavour { Standard, Sfcb };

struct Options {
    std::string library;                                // path of the provider's shared object
    std::string providerName = "OXTFileSystemProvider"; // prefix of the factory names
    std::string nameSpace = "root/TAVRIN/AS";
    ServiceMode serviceMode;
    Flavour flavour = Flavour::Sfcb;
    std::string schema; // MOF text; when given, instances and untyped arguments have the types that it declares
};

struct LiveObjects {
    long strings = 0, arrays = 0, enumerations = 0, instances = 0, paths = 0, args = 0, contexts = 0, results = 0;
    long dateTimes = 0;
    long total() const {
        return strings + arrays + enumerations + instances + paths + args + contexts + results + dateTimes;
    }
};

struct Mof;

// The value of a command line's text in the type that the schema declares for that parameter; a string where it
// declares none.
Value argumentOf(const Mof &schema, const std::string &className, const std::string &method,
                 const std::string &parameter, const std::string &text);

class Host {
  public:
    // Loads the library and calls both factories. Throws std::runtime_error with a sentence that says what to do.
    explicit Host(Options options);
    // Does not call the provider's clean-up. Unloads the library, unless a thread of the provider is still attached.
    ~Host();
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    // filter: nullptr asks for all properties, an empty list for none.
    using Filter = const std::vector<std::string> *;
    Reply getInstance(const std::string &className, const std::vector<NamedValue> &keys = {}, Filter filter = nullptr);
    Reply enumInstances(const std::string &className, Filter filter = nullptr);
    Reply enumInstanceNames(const std::string &className);
    Reply createInstance(const std::string &className);
    Reply modifyInstance(const std::string &className);
    Reply deleteInstance(const std::string &className);
    Reply execQuery(const std::string &className, const std::string &query, const std::string &language);
    Reply invokeMethod(const std::string &className, const std::string &method, const std::vector<NamedValue> &args);
    // As argumentOf() with the host's schema; a string without one.
    Value argument(const std::string &className, const std::string &method, const std::string &parameter,
                   const std::string &text) const;

    // The clean-up call of one interface, with a context that has no entries, as the real host makes it.
    Reply cleanupInstance(bool terminating);
    Reply cleanupMethod(bool terminating);
    void callFactoriesAgain(); // as a host does at the first request of each further class

    void setServiceMode(ServiceMode mode);
    // Makes the n-th call of a broker service from now on fail (n = 1 is the next); 0 stops failing. Returns the count
    // of such calls since the last setting. Services are named by their slot ("newInstance", "getProperty", ...); "*"
    // counts all of them but "release", which has no failure that a caller could handle; named itself, it fails too.
    long failBrokerCall(const std::string &service, long n);

    LiveObjects live() const;
    std::vector<std::string> misuses() const; // empty when the provider kept to the interface's rules

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace oxthost

#endif
