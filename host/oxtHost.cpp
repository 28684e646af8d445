#include "oxtHost.h"

#include <atomic>
#include <dlfcn.h>
#include <mutex>
#include <stdexcept>

#include "oxtHostBroker.h"
#include "oxtHostData.h"
#include "oxtHostInstances.h"

namespace oxthost {
namespace {

using Expects = ResultBody::Expects;

// A property list as the provider gets it: NULL-terminated, or NULL for all.
class PropertyList {
  public:
    explicit PropertyList(Host::Filter filter) : all_(filter == nullptr) {
        for (std::size_t i = 0; !all_ && i < filter->size(); ++i)
            names_.push_back((*filter)[i].c_str());
        names_.push_back(nullptr);
    }
    const char **get() { return all_ ? nullptr : names_.data(); }

  private:
    bool all_;
    std::vector<const char *> names_;
};

// The arguments of one call into the provider, and what came back. What the provider makes in the call is freed with
// the scope, when the call's reply has been taken out of it.
struct Call {
    Call(Broker &b, Expects expects, ContextBody::Use use) : broker(b), scope(b) {
        auto body = std::make_shared<ContextBody>();
        body->use = use;
        body->thread = std::this_thread::get_id();
        if (use == ContextBody::Use::Request) {
            put(body->entries, CMPIInvocationFlags, toDatum(Value::unsignedNumber(CMPI_uint32, 0)));
            if (b.sfcb())
                put(body->entries, CMPIPrincipal, toDatum(Value::string("root")));
        }
        context = lend(std::move(body));
        answer = std::make_shared<ResultBody>();
        answer->expects = expects;
        result = lend(answer);
    }

    template <class B> typename B::Face *lend(std::shared_ptr<B> body) {
        return broker.make(std::move(body), scopeOfThread(broker), true);
    }
    CMPIObjectPath *path(const std::string &className, const std::vector<NamedValue> &keys = {}) {
        auto body = std::make_shared<PathBody>();
        body->nameSpace = broker.options.nameSpace;
        body->className = className;
        for (const auto &[name, value] : keys)
            put(body->keys, name, toDatum(value));
        return lend(std::move(body));
    }
    CMPIArgs *arguments(const std::vector<NamedValue> &values) {
        auto body = std::make_shared<ArgsBody>();
        for (const auto &[name, value] : values)
            put(body->items, name, toDatum(value));
        return lend(std::move(body));
    }
    Reply reply(const CMPIStatus &status) {
        Reply all;
        all.rc = status.rc;
        try {
            if (status.msg != nullptr)
                all.message = broker.use<StringBody>(status.msg, "status message")->text;
        } catch (const Refusal &) {
            // noted as a misuse; the reply goes without it
        }
        // SFCB's own answer to a provider that finds nothing and says that all went well.
        if (broker.sfcb() && all.ok() && answer->expects == Expects::OneInstance && answer->instances.empty())
            all.rc = CMPI_RC_ERR_NOT_FOUND;
        all.instances = std::move(answer->instances);
        all.returned = answer->returned;
        all.done = answer->done;
        return all;
    }

    Broker &broker;
    RequestScope scope;
    CMPIContext *context;
    CMPIResult *result;
    std::shared_ptr<ResultBody> answer;
};

void keepForever(const std::shared_ptr<Broker> &broker) {
    static std::mutex lock;
    static auto *kept = new std::vector<std::shared_ptr<Broker>>; // no destructor at exit: threads may still run then
    const std::lock_guard<std::mutex> guard(lock);
    kept->push_back(broker);
}

} // namespace

struct Host::Impl {
    std::shared_ptr<Broker> broker;
    void *library = nullptr;
    std::atomic<CMPIInstanceMI *> instances{nullptr};
    std::atomic<CMPIMethodMI *> methods{nullptr};

    explicit Impl(Options options) : broker(std::make_shared<Broker>(std::move(options))) {
        // RTLD_NOW: a symbol that is missing shows here, and not as the end of the process in a later call.
        library = dlopen(broker->options.library.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr)
            throw std::runtime_error("cannot load the provider library " + std::string(dlerror()));
        try {
            callFactories();
        } catch (...) {
            dlclose(library);
            throw;
        }
    }
    Impl(const Impl &) = delete;
    Impl &operator=(const Impl &) = delete;
    ~Impl() {
        if (broker->attachedThreads == 0) {
            dlclose(library);
            return;
        }
        keepForever(broker); // a thread of the provider still runs in the library: both must stay
    }

    template <class MI> MI *callFactory(const std::string &kind) {
        const std::string name = broker->options.providerName + "_Create_" + kind + "MI";
        const std::string generic = "_Generic_Create_" + kind + "MI";
        Call call(*broker, Expects::Nothing, ContextBody::Use::Request);
        CMPIStatus rc = {CMPI_RC_OK, nullptr};
        MI *made = nullptr;
        // The generic factory comes first, as object managers look for it: it serves every provider of its library.
        if (void *found = dlsym(library, generic.c_str())) {
            using Factory = MI *(*)(const CMPIBroker *, const CMPIContext *, const char *, CMPIStatus *);
            made = reinterpret_cast<Factory>(found)(&broker->face, call.context, broker->options.providerName.c_str(),
                                                    &rc);
        } else if ((found = dlsym(library, name.c_str())) != nullptr) {
            using Factory = MI *(*)(const CMPIBroker *, const CMPIContext *, CMPIStatus *);
            made = reinterpret_cast<Factory>(found)(&broker->face, call.context, &rc);
        } else {
            throw std::runtime_error("the library " + broker->options.library + " does not export " + name +
                                     ": it is no such provider.");
        }
        const Reply reply = call.reply(rc);
        if (made == nullptr || made->ft == nullptr || !reply.ok())
            throw std::runtime_error(name + " made no provider (status " + std::to_string(reply.rc) + "); " +
                                     (reply.message.empty() ? "look into its log." : reply.message));
        return made;
    }

    void callFactories() {
        instances = callFactory<CMPIInstanceMI>("Instance");
        methods = callFactory<CMPIMethodMI>("Method");
    }

    // Calls one slot of one interface and gathers the reply. Arguments that callers build in place, as a property list,
    // live until it returns.
    template <class Table, class Slot, class... Args>
    Reply invoke(Call &call, const Table *table, Slot slot, Args... args) {
        if (table->*slot == nullptr) {
            broker->registry.misuse("the provider left a slot of its table NULL");
            return call.reply({CMPI_RC_ERR_NOT_SUPPORTED, nullptr});
        }
        return call.reply((table->*slot)(args...));
    }

    template <class Slot, class... Args> Reply instanceCall(Call &call, Slot slot, CMPIObjectPath *op, Args... args) {
        CMPIInstanceMI *mi = instances;
        return invoke(call, mi->ft, slot, mi, call.context, call.result, op, args...);
    }
};

Value Value::string(std::string text) {
    Value value;
    value.type = CMPI_string;
    value.null = false;
    value.text = std::move(text);
    return value;
}

Value Value::signedNumber(CMPIType type, std::int64_t number) {
    Value value;
    value.type = type;
    value.null = false;
    value.number = number;
    return value;
}

Value Value::unsignedNumber(CMPIType type, std::uint64_t number) {
    return signedNumber(type, static_cast<std::int64_t>(number));
}

Value Value::nullOf(CMPIType type) {
    Value value;
    value.type = type;
    return value;
}

const Value *Instance::find(std::string_view property) const {
    for (const auto &[name, value] : properties)
        if (sameName(name, property))
            return &value;
    return nullptr;
}

Host::Host(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}
Host::~Host() = default;

Reply Host::getInstance(const std::string &className, const std::vector<NamedValue> &keys, Filter filter) {
    Call call(*impl_->broker, Expects::OneInstance, ContextBody::Use::Request);
    return impl_->instanceCall(call, &CMPIInstanceMIFT::getInstance, call.path(className, keys),
                               PropertyList(filter).get());
}

Reply Host::enumInstances(const std::string &className, Filter filter) {
    Call call(*impl_->broker, Expects::Instances, ContextBody::Use::Request);
    return impl_->instanceCall(call, &CMPIInstanceMIFT::enumerateInstances, call.path(className),
                               PropertyList(filter).get());
}

Reply Host::enumInstanceNames(const std::string &className) {
    Call call(*impl_->broker, Expects::Paths, ContextBody::Use::Request);
    return impl_->instanceCall(call, &CMPIInstanceMIFT::enumerateInstanceNames, call.path(className));
}

Reply Host::createInstance(const std::string &className) {
    Call call(*impl_->broker, Expects::Paths, ContextBody::Use::Request);
    PathBody path;
    path.nameSpace = impl_->broker->options.nameSpace;
    path.className = className;
    return impl_->instanceCall(call, &CMPIInstanceMIFT::createInstance, call.path(className),
                               call.lend(newInstanceBody(*impl_->broker, path)));
}

Reply Host::modifyInstance(const std::string &className) {
    Call call(*impl_->broker, Expects::Nothing, ContextBody::Use::Request);
    PathBody path;
    path.nameSpace = impl_->broker->options.nameSpace;
    path.className = className;
    return impl_->instanceCall(call, &CMPIInstanceMIFT::modifyInstance, call.path(className),
                               call.lend(newInstanceBody(*impl_->broker, path)), PropertyList(nullptr).get());
}

Reply Host::deleteInstance(const std::string &className) {
    Call call(*impl_->broker, Expects::Nothing, ContextBody::Use::Request);
    return impl_->instanceCall(call, &CMPIInstanceMIFT::deleteInstance, call.path(className));
}

Reply Host::execQuery(const std::string &className, const std::string &query, const std::string &language) {
    Call call(*impl_->broker, Expects::Instances, ContextBody::Use::Request);
    return impl_->instanceCall(call, &CMPIInstanceMIFT::execQuery, call.path(className), query.c_str(),
                               language.c_str());
}

Reply Host::invokeMethod(const std::string &className, const std::string &method, const std::vector<NamedValue> &args) {
    Call call(*impl_->broker, Expects::Value, ContextBody::Use::Request);
    CMPIMethodMI *mi = impl_->methods;
    return impl_->invoke(call, mi->ft, &CMPIMethodMIFT::invokeMethod, mi, call.context, call.result,
                         call.path(className), method.c_str(), call.arguments(args), call.arguments({}));
}

Value argumentOf(const Mof &schema, const std::string &className, const std::string &method,
                 const std::string &parameter, const std::string &text) {
    const MofMethod *declared = schema.findMethod(className, method);
    const MofParameter *found = declared != nullptr ? declared->findParameter(parameter) : nullptr;
    return found != nullptr ? valueFromText(text, typeOfName(found->type, found->isArray)) : Value::string(text);
}

Value Host::argument(const std::string &className, const std::string &method, const std::string &parameter,
                     const std::string &text) const {
    const auto &schema = impl_->broker->schema;
    return schema ? argumentOf(*schema, className, method, parameter, text) : Value::string(text);
}

Reply Host::cleanupInstance(bool terminating) {
    Call call(*impl_->broker, Expects::Nothing, ContextBody::Use::CleanUp);
    CMPIInstanceMI *mi = impl_->instances;
    return impl_->invoke(call, mi->ft, &CMPIInstanceMIFT::cleanup, mi, call.context, CMPIBoolean{terminating});
}

Reply Host::cleanupMethod(bool terminating) {
    Call call(*impl_->broker, Expects::Nothing, ContextBody::Use::CleanUp);
    CMPIMethodMI *mi = impl_->methods;
    return impl_->invoke(call, mi->ft, &CMPIMethodMIFT::cleanup, mi, call.context, CMPIBoolean{terminating});
}

void Host::callFactoriesAgain() {
    impl_->callFactories();
}
void Host::setServiceMode(ServiceMode mode) {
    impl_->broker->setServiceMode(mode);
}
long Host::failBrokerCall(const std::string &service, long n) {
    return impl_->broker->plan.set(service, n);
}
LiveObjects Host::live() const {
    return impl_->broker->registry.live();
}
std::vector<std::string> Host::misuses() const {
    return impl_->broker->registry.misuses();
}

} // namespace oxthost
