// The broker: scopes of threads, registration of the provider's threads, up-calls.
#include "oxtHostBroker.h"

#include <algorithm>
#include <vector>

#include "oxtHostData.h"
#include "oxtHostInstances.h"
#include "oxtHostRefuse.h"
#include "oxtHostSlot.h"

namespace oxthost {
namespace {

using Use = ContextBody::Use;

constexpr char kAgentClass[] = "OXT_GeneralInformation";
constexpr char kAgentKey[] = "InstanceID";
constexpr char kAgentInstance[] = "OXT:GeneralInformation";
constexpr char kAgentProperty[] = "InstalledServiceMode";

// What one thread has to do with each broker. Its objects end with it.
struct ThreadState {
    struct Own {
        std::weak_ptr<Broker> broker; // a thread may outlive it
        ScopeId scope = kOwnedByProvider;
        bool attached = false;
    };
    std::vector<Own> own;
    Broker *requestOf = nullptr;
    ScopeId request = kOwnedByProvider;

    ThreadState() = default;
    ThreadState(const ThreadState &) = delete;
    ThreadState &operator=(const ThreadState &) = delete;
    ~ThreadState() {
        for (const Own &entry : own) {
            const std::shared_ptr<Broker> broker = entry.broker.lock();
            if (broker == nullptr)
                continue;
            broker->registry.endScope(entry.scope);
            if (entry.attached)
                --broker->attachedThreads;
        }
    }

    Own &of(Broker &broker) {
        for (Own &entry : own)
            if (entry.broker.lock().get() == &broker)
                return entry;
        own.push_back({broker.weak_from_this(), broker.registry.newScope(), false});
        return own.back();
    }
};

thread_local ThreadState threadState;

// The context of an up-call: of this thread, and one that a request came with.
void checkContext(Broker &broker, const CMPIContext *ctx, const char *slot) {
    const auto context = broker.use<ContextBody>(ctx, slot);
    const std::string name = slot;
    // SFCB's process would end, so there is no answer; the other two are noted and go on.
    if (context->use == Use::CleanUp && broker.sfcb()) {
        broker.registry.misuse(name + ": up-call with the context of a clean-up ends the object manager's process");
        throw Refusal{CMPI_RC_ERR_FAILED};
    }
    if (context->use == Use::Prepared)
        broker.registry.misuse(name + ": context of a thread that is not attached");
    else if (context->thread != std::this_thread::get_id())
        broker.registry.misuse(name + ": context of another thread");
}

bool wanted(const char **properties, const char *name) {
    if (properties == nullptr)
        return true;
    for (; *properties != nullptr; ++properties)
        if (sameName(*properties, name))
            return true;
    return false;
}

// The agent's one instance, or nullptr when the path leads elsewhere or the agent withholds it.
std::shared_ptr<InstanceBody> agentInstanceAt(Broker &broker, PathBody path, const char **properties) {
    const ServiceMode mode = broker.serviceMode();
    if (!sameName(path.className, kAgentClass) || !sameName(path.nameSpace, broker.options.nameSpace) ||
        mode.kind == ServiceMode::NoSuchInstance)
        return nullptr;
    // A client may leave the key out; one that names another instance gets none.
    const Datum key = toDatum(Value::string(kAgentInstance));
    for (const NamedDatum &given : path.keys)
        if (!sameName(given.name, kAgentKey) || given.datum.text != key.text)
            return nullptr;
    put(path.keys, kAgentKey, key);
    auto instance = newInstanceBody(broker, path);
    instance->properties.clear();
    if (wanted(properties, kAgentKey))
        put(instance->properties, kAgentKey, key);
    if (mode.kind == ServiceMode::Byte && wanted(properties, kAgentProperty))
        put(instance->properties, kAgentProperty, toDatum(Value::unsignedNumber(CMPI_boolean, mode.byte)));
    return instance;
}

void fillThreads(CMPIBrokerFT &ft) {
    ft.prepareAttachThread = [](const CMPIBroker *mb, const CMPIContext *ctx) -> CMPIContext * {
        return onBroker("prepareAttachThread", mb, nullptr, [=](Broker &broker) {
            // A copy that outlives the request, made in the request's thread: the new thread may start when it is over.
            auto context = std::make_shared<ContextBody>(*broker.use<ContextBody>(ctx, "prepareAttachThread"));
            context->use = Use::Prepared;
            return broker.make(std::move(context), kOwnedByProvider);
        });
    };
    ft.attachThread = [](const CMPIBroker *mb, const CMPIContext *ctx) {
        return onBroker("attachThread", mb, nullptr, [=](Broker &broker) {
            const auto context = broker.use<ContextBody>(ctx, "attachThread");
            if (context->use != Use::Prepared) {
                broker.registry.misuse("attachThread: context that was not prepared, or attached already");
                throw Refusal{CMPI_RC_ERR_FAILED};
            }
            context->use = Use::Attached;
            context->thread = std::this_thread::get_id();
            setThreadAttached(broker, true);
        });
    };
    ft.detachThread = [](const CMPIBroker *mb, const CMPIContext *ctx) {
        return onBroker("detachThread", mb, nullptr, [=](Broker &broker) {
            const auto context = broker.use<ContextBody>(ctx, "detachThread");
            if (context->use != Use::Attached || context->thread != std::this_thread::get_id()) {
                broker.registry.misuse("detachThread: context that this thread did not attach");
                throw Refusal{CMPI_RC_ERR_FAILED};
            }
            broker.registry.release(ctx, Kind::Context, "detachThread");
            setThreadAttached(broker, false);
        });
    };
}

void fillReading(CMPIBrokerFT &ft) {
    ft.getInstance = [](const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op, const char **properties,
                        CMPIStatus *rc) {
        return onFactory("getInstance", mb, rc, [=](Broker &broker) {
            checkContext(broker, ctx, "getInstance");
            auto instance = agentInstanceAt(broker, *broker.use<PathBody>(op, "getInstance"), properties);
            if (instance == nullptr)
                throw Refusal{CMPI_RC_ERR_NOT_FOUND};
            return broker.make(std::move(instance));
        });
    };
    ft.enumerateInstances = [](const CMPIBroker *mb, const CMPIContext *ctx, const CMPIObjectPath *op,
                               const char **properties, CMPIStatus *rc) {
        return onFactory("enumerateInstances", mb, rc, [=](Broker &broker) {
            checkContext(broker, ctx, "enumerateInstances");
            const auto path = broker.use<PathBody>(op, "enumerateInstances");
            if (!sameName(path->className, kAgentClass))
                throw Refusal{CMPI_RC_ERR_NOT_FOUND};
            auto all = std::make_shared<EnumerationBody>();
            if (auto instance = agentInstanceAt(broker, *path, properties))
                all->elements.push_back(datumOf(std::move(instance), CMPI_instance));
            return broker.make(std::move(all));
        });
    };
}

} // namespace

Broker::Broker(Options o) : options(std::move(o)), mode_(options.serviceMode) {
    if (!options.schema.empty())
        schema = readMof(options.schema);
    fillStrings(tables, *this);
    fillArrays(tables, *this);
    fillInstances(tables, *this);
    fillPaths(tables, *this);
    fillArgs(tables, *this);
    fillContexts(tables, *this);
    fillResults(tables, *this);
    fillUpCalls(tables, *this);
    fillFactories(tables, *this);
    fillSystem(tables, *this);
    face.hdl = this;
    face.bft = &tables.bft;
    face.eft = &tables.eft;
    face.xft = &tables.xft;
    face.mft = nullptr;
}

ServiceMode Broker::serviceMode() {
    const std::lock_guard<std::mutex> guard(modeLock_);
    return mode_;
}

void Broker::setServiceMode(ServiceMode mode) {
    const std::lock_guard<std::mutex> guard(modeLock_);
    mode_ = mode;
}

void fillUpCalls(Tables &tables, const Broker &broker) {
    CMPIBrokerFT &ft = tables.bft;
    ft.brokerCapabilities = CMPI_MB_InstanceManipulation;
    ft.brokerVersion = broker.sfcb() ? 0 : CMPICurrentVersion;
    ft.brokerName = "in-process host";
    fillThreads(ft);
    fillReading(ft);
    OXT_REFUSED(ft, deliverIndication);
    OXT_REFUSED(ft, enumerateInstanceNames);
    OXT_REFUSED(ft, createInstance);
    OXT_REFUSED(ft, modifyInstance);
    OXT_REFUSED(ft, deleteInstance);
    OXT_REFUSED(ft, execQuery);
    OXT_REFUSED(ft, associators);
    OXT_REFUSED(ft, associatorNames);
    OXT_REFUSED(ft, references);
    OXT_REFUSED(ft, referenceNames);
    OXT_REFUSED(ft, invokeMethod);
    OXT_REFUSED(ft, setProperty);
    OXT_REFUSED(ft, getProperty);
}

ScopeId scopeOfThread(Broker &broker) {
    return threadState.requestOf == &broker ? threadState.request : threadState.of(broker).scope;
}

bool threadMayMake(const Broker &broker) {
    const auto attached = [&](const ThreadState::Own &own) {
        return own.attached && own.broker.lock().get() == &broker;
    };
    return threadState.requestOf == &broker || std::any_of(threadState.own.begin(), threadState.own.end(), attached);
}

void setThreadAttached(Broker &broker, bool attached) {
    bool &now = threadState.of(broker).attached;
    // Counted once per thread, however often it attaches: at 0 the library may be closed.
    broker.attachedThreads += static_cast<int>(attached) - static_cast<int>(now);
    now = attached;
}

Broker *brokerOfThread() {
    return threadState.requestOf;
}

RequestScope::RequestScope(Broker &broker) : broker_(broker) {
    threadState.requestOf = &broker;
    threadState.request = broker.registry.newScope();
}

RequestScope::~RequestScope() {
    broker_.registry.endScope(threadState.request);
    threadState.requestOf = nullptr;
    threadState.request = kOwnedByProvider;
}

} // namespace oxthost
