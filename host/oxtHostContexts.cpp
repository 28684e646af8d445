// Contexts of calls and of the provider's threads.
#include "oxtHostData.h"
#include "oxtHostSlot.h"

namespace oxthost {
namespace {

// Entry names are compared exactly.
NamedDatum *findEntry(ContextBody &context, const std::string &name) {
    for (NamedDatum &entry : context.entries)
        if (entry.name == name)
            return &entry;
    return nullptr;
}

} // namespace

void fillContexts(Tables &tables, const Broker &broker) {
    CMPIContextFT &ft = tables.context;
    fillCommon<ContextBody>(ft, broker);
    if (broker.sfcb())
        ft.clone = [](const CMPIContext *self, CMPIStatus *rc) {
            return onObject<ContextBody>("clone", self, rc, [](Broker &, ContextBody &) -> CMPIContext * {
                throw Refusal{CMPI_RC_ERR_NOT_SUPPORTED};
            });
        };
    ft.getEntry = [](const CMPIContext *self, const char *name, CMPIStatus *rc) {
        return onObject<ContextBody>("getEntry", self, rc, [=](Broker &host, ContextBody &context) {
            const NamedDatum *entry = findEntry(context, orEmpty(name));
            if (entry == nullptr)
                throw Refusal{CMPI_RC_ERR_NO_SUCH_PROPERTY, CMPI_nullValue};
            return toData(host, entry->datum);
        });
    };
    ft.getEntryAt = [](const CMPIContext *self, CMPICount index, CMPIString **name, CMPIStatus *rc) {
        return onObject<ContextBody>("getEntryAt", self, rc, [=](Broker &host, ContextBody &context) {
            if (index >= context.entries.size())
                throw Refusal{CMPI_RC_ERR_NO_SUCH_PROPERTY, CMPI_nullValue};
            const NamedDatum &entry = context.entries[index];
            if (name != nullptr)
                *name = host.makeString(entry.name);
            return toData(host, entry.datum);
        });
    };
    ft.getEntryCount = [](const CMPIContext *self, CMPIStatus *rc) {
        return onObject<ContextBody>("getEntryCount", self, rc, [](Broker &, ContextBody &context) {
            return static_cast<CMPICount>(context.entries.size());
        });
    };
    ft.addEntry = [](const CMPIContext *self, const char *name, const CMPIValue *value, CMPIType type) {
        return onObject<ContextBody>("addEntry", self, nullptr, [=](Broker &host, ContextBody &context) {
            if (name == nullptr)
                throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
            Datum datum = toDatum(host, value, type, "addEntry");
            if (NamedDatum *entry = findEntry(context, name))
                entry->datum = std::move(datum);
            else
                context.entries.push_back({name, std::move(datum)});
        });
    };
}

} // namespace oxthost
