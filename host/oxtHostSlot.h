// The boundary between the provider and the host: every slot of a table is written as onObject() or onBroker() around
// its work. They count the call, check the object, and turn a Refusal (or lack of memory) into the natural failure of
// the slot's result type. No exception passes them but the unwinding of a cancelled thread.
#ifndef OXT_HOST_SLOT_H
#define OXT_HOST_SLOT_H

#include <exception>
#include <type_traits>

#include "oxtHostBroker.h"

namespace oxthost {

inline void answer(CMPIStatus *rc, CMPIrc code) {
    if (rc != nullptr)
        *rc = CMPIStatus{code, nullptr};
}

template <class R> R failureOf(const Refusal &refusal) {
    if constexpr (std::is_same_v<R, CMPIStatus>)
        return CMPIStatus{refusal.rc, nullptr};
    else if constexpr (std::is_same_v<R, CMPIData>)
        return CMPIData{refusal.type, refusal.state, {}};
    else
        return R{};
}

// Work that returns nothing makes a slot that answers a CMPIStatus.
template <class Work> auto fenced(CMPIStatus *rc, Work &&work) {
    using Result = decltype(work());
    using R = std::conditional_t<std::is_void_v<Result>, CMPIStatus, Result>;
    Refusal refusal = {CMPI_RC_ERR_FAILED};
    try {
        answer(rc, CMPI_RC_OK);
        if constexpr (std::is_void_v<Result>) {
            work();
            return R{CMPI_RC_OK, nullptr};
        } else {
            return work();
        }
    } catch (const Refusal &thrown) {
        refusal = thrown;
    } catch (const std::exception &) {
        // out of memory: an unspecific failure
    }
    answer(rc, refusal.rc);
    return failureOf<R>(refusal);
}

template <class B, class Work>
auto onObject(const char *slot, const typename B::Face *self, CMPIStatus *rc, const Work &work) {
    return fenced(rc, [&] {
        if (self == nullptr) {
            if (Broker *current = brokerOfThread())
                current->registry.misuse(std::string(slot) + ": called without an object");
            throw Refusal{CMPI_RC_ERR_INVALID_HANDLE};
        }
        Broker &broker = *reinterpret_cast<const Shell<typename B::Face> *>(self)->broker;
        const std::shared_ptr<B> body = broker.use<B>(self, slot);
        broker.plan.count(slot);
        return work(broker, *body);
    });
}

template <class Work> auto onBroker(const char *slot, const CMPIBroker *mb, CMPIStatus *rc, const Work &work) {
    return fenced(rc, [&] {
        if (mb == nullptr || mb->hdl == nullptr)
            throw Refusal{CMPI_RC_ERR_INVALID_HANDLE};
        Broker &broker = *static_cast<Broker *>(mb->hdl);
        broker.plan.count(slot);
        return work(broker);
    });
}

// As onBroker(), for a slot that makes an object.
template <class Work> auto onFactory(const char *slot, const CMPIBroker *mb, CMPIStatus *rc, const Work &work) {
    return onBroker(slot, mb, rc, [&](Broker &broker) {
        if (!threadMayMake(broker))
            broker.registry.misuse(std::string(slot) + ": called in a thread that is not attached");
        return work(broker);
    });
}

template <class B> CMPIStatus releaseObject(typename B::Face *self) {
    return onObject<B>("release", self, nullptr,
                       [self](Broker &broker, B &) { broker.registry.release(self, B::ownKind, "release"); });
}

template <class B> typename B::Face *cloneObject(const typename B::Face *self, CMPIStatus *rc) {
    return onObject<B>("clone", self, rc, [](Broker &broker, B &body) {
        return broker.make(std::static_pointer_cast<B>(body.copy()), kOwnedByProvider);
    });
}

template <class B> void fillCommon(typename B::Table &table, const Broker &broker) {
    table.ftVersion = broker.ftVersion();
    table.release = releaseObject<B>;
    table.clone = cloneObject<B>;
}

inline const char *orEmpty(const char *text) {
    return text != nullptr ? text : "";
}

} // namespace oxthost

#endif
