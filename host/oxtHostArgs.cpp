// Method arguments.
#include "oxtHostData.h"
#include "oxtHostSlot.h"

namespace oxthost {

void fillArgs(Tables &tables, const Broker &broker) {
    CMPIArgsFT &ft = tables.args;
    fillCommon<ArgsBody>(ft, broker);
    ft.addArg = [](const CMPIArgs *self, const char *name, const CMPIValue *value, CMPIType type) {
        return onObject<ArgsBody>("addArg", self, nullptr, [=](Broker &host, ArgsBody &args) {
            if (name == nullptr)
                throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
            put(args.items, name, toDatum(host, value, type, "addArg"));
        });
    };
    ft.getArg = [](const CMPIArgs *self, const char *name, CMPIStatus *rc) {
        return onObject<ArgsBody>("getArg", self, rc, [=](Broker &host, ArgsBody &args) {
            const NamedDatum *item = find(args.items, orEmpty(name));
            if (item == nullptr)
                throw host.missingItem();
            return toData(host, item->datum);
        });
    };
    ft.getArgAt = [](const CMPIArgs *self, CMPICount index, CMPIString **name, CMPIStatus *rc) {
        return onObject<ArgsBody>("getArgAt", self, rc, [=](Broker &host, ArgsBody &args) {
            if (index >= args.items.size())
                throw host.missingItem();
            const NamedDatum &item = args.items[index];
            if (name != nullptr)
                *name = host.makeString(item.name);
            return toData(host, item.datum);
        });
    };
    ft.getArgCount = [](const CMPIArgs *self, CMPIStatus *rc) {
        return onObject<ArgsBody>("getArgCount", self, rc,
                                  [](Broker &, ArgsBody &args) { return static_cast<CMPICount>(args.items.size()); });
    };
}

} // namespace oxthost
