// The broker behind one host: its tables, its settings and the scopes of its threads.
//
// The tables are written once, before the provider is loaded. The service mode has its own mutex; everything else that
// changes is in the registry.
#ifndef OXT_HOST_BROKER_H
#define OXT_HOST_BROKER_H

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "oxtHost.h"
#include "oxtHostObjects.h"
#include "oxtHostRegistry.h"
#include "oxtMof.h"

namespace oxthost {

struct Tables {
    CMPIBrokerFT bft = {};
    CMPIBrokerEncFT eft = {};
    CMPIBrokerExtFT xft = {};
    CMPIStringFT string = {};
    CMPIArrayFT array = {};
    CMPIEnumerationFT enumeration = {};
    CMPIInstanceFT instance = {};
    CMPIObjectPathFT path = {};
    CMPIArgsFT args = {};
    CMPIContextFT context = {};
    CMPIResultFT result = {};
    CMPIDateTimeFT dateTime = {};

    CMPIStringFT *of(const StringBody *) { return &string; }
    CMPIArrayFT *of(const ArrayBody *) { return &array; }
    CMPIEnumerationFT *of(const EnumerationBody *) { return &enumeration; }
    CMPIInstanceFT *of(const InstanceBody *) { return &instance; }
    CMPIObjectPathFT *of(const PathBody *) { return &path; }
    CMPIArgsFT *of(const ArgsBody *) { return &args; }
    CMPIContextFT *of(const ContextBody *) { return &context; }
    CMPIResultFT *of(const ResultBody *) { return &result; }
    CMPIDateTimeFT *of(const DateTimeBody *) { return &dateTime; }
};

struct Broker : std::enable_shared_from_this<Broker> {
    explicit Broker(Options o); // throws std::runtime_error when the schema cannot be read
    Broker(const Broker &) = delete;
    Broker &operator=(const Broker &) = delete;

    const Options options;
    std::optional<Mof> schema;
    CMPIBroker face = {};
    Tables tables;
    Registry registry;
    FailPlan plan;
    std::atomic<int> attachedThreads{0};

    bool sfcb() const { return options.flavour == Flavour::Sfcb; }
    int ftVersion() const { return sfcb() ? 1 : CMPICurrentVersion; }
    CMPIrc missing() const { return sfcb() ? CMPI_RC_ERR_NOT_FOUND : CMPI_RC_ERR_NO_SUCH_PROPERTY; }
    Refusal missingItem() const { return Refusal{missing(), CMPI_notFound}; }

    ServiceMode serviceMode();
    void setServiceMode(ServiceMode mode);

    // A new object in the calling thread's scope, or in the one given.
    template <class B> typename B::Face *make(std::shared_ptr<B> body);
    template <class B> typename B::Face *make(std::shared_ptr<B> body, ScopeId scope, bool lent = false);
    CMPIString *makeString(const std::string &text) { return make(std::make_shared<StringBody>(text, false)); }
    CMPIString *makeNullString() { return make(std::make_shared<StringBody>(std::string(), true)); }

    template <class B> std::shared_ptr<B> use(const typename B::Face *object, const char *slot) {
        return std::static_pointer_cast<B>(registry.use(object, B::ownKind, slot));
    }

  private:
    std::mutex modeLock_;
    ServiceMode mode_;
};

// Fillers of the tables, one per module.
void fillStrings(Tables &tables, const Broker &broker);
void fillArrays(Tables &tables, const Broker &broker);
void fillInstances(Tables &tables, const Broker &broker);
void fillPaths(Tables &tables, const Broker &broker);
void fillArgs(Tables &tables, const Broker &broker);
void fillContexts(Tables &tables, const Broker &broker);
void fillResults(Tables &tables, const Broker &broker);
void fillUpCalls(Tables &tables, const Broker &broker);
void fillFactories(Tables &tables, const Broker &broker);
void fillSystem(Tables &tables, const Broker &broker);

// What the calling thread makes belongs to its request, outside requests to the thread itself.
ScopeId scopeOfThread(Broker &broker);
bool threadMayMake(const Broker &broker); // in a request, or attached
void setThreadAttached(Broker &broker, bool attached);
Broker *brokerOfThread(); // of the request that the thread serves; nullptr outside

// Brackets one call into the provider.
class RequestScope {
  public:
    explicit RequestScope(Broker &broker);
    ~RequestScope(); // frees what the request made
    RequestScope(const RequestScope &) = delete;
    RequestScope &operator=(const RequestScope &) = delete;

  private:
    Broker &broker_;
};

template <class B> typename B::Face *Broker::make(std::shared_ptr<B> body) {
    return make(std::move(body), scopeOfThread(*this));
}

template <class B> typename B::Face *Broker::make(std::shared_ptr<B> body, ScopeId scope, bool lent) {
    auto shell = registry.newShell<Shell<typename B::Face>>();
    shell->face.hdl = shell.get(); // only its being NULL or not means anything
    if constexpr (B::ownKind == Kind::String)
        shell->face.hdl = body->null ? nullptr : sfcb() ? body->text.data() : shell->face.hdl;
    shell->face.ft = tables.of(body.get());
    shell->broker = this;
    auto *made = &shell->face;
    registry.add(std::move(shell), std::move(body), scope, lent);
    return made;
}

} // namespace oxthost

#endif
