// Slots that this host has but does not serve.
#ifndef OXT_HOST_REFUSE_H
#define OXT_HOST_REFUSE_H

#include "oxtHostSlot.h"

namespace oxthost {

inline CMPIStatus *statusIn(CMPIStatus *rc) {
    return rc;
}
template <class Other> CMPIStatus *statusIn(Other) {
    return nullptr;
}

// Fills a broker's slot with a function that answers CMPI_RC_ERR_NOT_SUPPORTED in the slot's own way.
template <const char *Name, class R, class... Rest> void fillRefused(R (*&slot)(const CMPIBroker *, Rest...)) {
    slot = [](const CMPIBroker *mb, Rest... rest) -> R {
        CMPIStatus *rc = nullptr;
        ((rc = statusIn(rest) != nullptr ? statusIn(rest) : rc), ...);
        return onBroker(Name, mb, rc, [](Broker &) -> R { throw Refusal{CMPI_RC_ERR_NOT_SUPPORTED}; });
    };
}

#define OXT_REFUSED(table, slot)                                                                                       \
    do {                                                                                                               \
        static constexpr char slotName[] = #slot;                                                                      \
        fillRefused<slotName>((table).slot);                                                                           \
    } while (false)

} // namespace oxthost

#endif
