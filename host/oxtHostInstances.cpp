// Instances with their property filters. The two flavours differ here most: one has the path of an instance built from
// its key properties, the other keeps the path that newInstance was given.
#include "oxtHostInstances.h"

#include <algorithm>

#include "oxtHostData.h"
#include "oxtHostSlot.h"

namespace oxthost {
namespace {

constexpr std::size_t kUsualProperties = 24;

std::vector<std::string> namesOf(const char **list) {
    std::vector<std::string> names;
    for (; list != nullptr && *list != nullptr; ++list)
        names.emplace_back(*list);
    return names;
}

bool passesFilter(const InstanceBody &instance, std::string_view name) {
    return !instance.filter || contains(*instance.filter, name) || contains(instance.listedKeys, name);
}

// Refuses a value of another type than the schema declares. SFCB compares only arrays and objects: a number of another
// width is stored as it came.
void checkType(Broker &broker, const InstanceBody &instance, std::string_view name, const Datum &datum) {
    if (!broker.schema || datum.isNull())
        return;
    const MofProperty *declared = broker.schema->findProperty(instance.path.className, std::string(name));
    if (declared == nullptr)
        return;
    const bool exact = !broker.sfcb() || (declared->typeCode & (CMPI_ARRAY | CMPI_ENC)) != 0;
    if (exact && datum.type != declared->typeCode)
        throw Refusal{CMPI_RC_ERR_TYPE_MISMATCH};
}

void setProperty(Broker &broker, InstanceBody &instance, const char *given, const CMPIValue *value, CMPIType type) {
    if (given == nullptr)
        throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
    const std::string_view name = given;
    if (!passesFilter(instance, name))
        return;
    Datum datum = toDatum(broker, value, type, "setProperty");
    NamedDatum *present = find(instance.properties, name);
    // The class's own type, or one that a value was admitted with. A NULL is admitted with any.
    const bool known =
        present != nullptr && present->datum.type == datum.type && present->datum.isNull() == (present->place == 0);
    if (!known)
        checkType(broker, instance, name, datum);
    if (present == nullptr) {
        instance.properties.push_back({std::string(name), std::move(datum), ++instance.placesTaken});
        return;
    }
    if (present->place == 0) {
        if (present->name != name)
            present->name = name;
        present->place = ++instance.placesTaken;
    }
    present->datum = std::move(datum);
}

// The answer has the provider's own order, behind what the host put there and nobody set.
std::vector<const NamedDatum *> inPlaces(const InstanceBody &instance) {
    std::vector<const NamedDatum *> items;
    items.reserve(instance.properties.size());
    for (const NamedDatum &item : instance.properties)
        items.push_back(&item);
    const auto before = [](const NamedDatum *a, const NamedDatum *b) { return a->place < b->place; };
    if (!std::is_sorted(items.begin(), items.end(), before))
        std::stable_sort(items.begin(), items.end(), before);
    return items;
}

void addKeyProperties(InstanceBody &instance, const PathBody &path) {
    for (const NamedDatum &key : path.keys) {
        if (!contains(instance.keyNames, key.name))
            instance.keyNames.push_back(key.name);
        if (!passesFilter(instance, key.name))
            continue;
        if (NamedDatum *present = find(instance.properties, key.name))
            present->datum = key.datum;
        else
            instance.properties.push_back({key.name, key.datum});
    }
}

void setFilter(Broker &broker, InstanceBody &instance, const char **properties, const char **keys) {
    if (!broker.sfcb()) {
        instance.filter.reset();
        if (properties != nullptr)
            instance.filter = namesOf(properties);
        return;
    }
    if (properties == nullptr)
        return; // does not lift an earlier filter
    instance.filter = namesOf(properties);
    instance.listedKeys = namesOf(keys);
    const auto dropped = [&](const NamedDatum &item) { return !passesFilter(instance, item.name); };
    instance.properties.erase(std::remove_if(instance.properties.begin(), instance.properties.end(), dropped),
                              instance.properties.end());
}

bool isOwnKey(const InstanceBody &instance, const NamedDatum &item) {
    return contains(instance.keyNames, item.name) && !item.datum.isNull();
}

PathBody pathOf(const Broker &broker, const InstanceBody &instance) {
    PathBody path = instance.path;
    if (!broker.sfcb())
        return path;
    path.keys.clear();
    for (const NamedDatum *item : inPlaces(instance))
        if (isOwnKey(instance, *item))
            path.keys.push_back({item->name, item->datum});
    return path;
}

CMPIData propertyData(Broker &broker, const InstanceBody &instance, const NamedDatum &item) {
    CMPIData data = toData(broker, item.datum);
    if (!broker.sfcb() && contains(instance.keyNames, item.name))
        data.state = static_cast<CMPIValueState>(data.state | CMPI_keyValue);
    return data;
}

void fillProperties(CMPIInstanceFT &ft) {
    ft.getProperty = [](const CMPIInstance *self, const char *name, CMPIStatus *rc) {
        return onObject<InstanceBody>("getProperty", self, rc, [=](Broker &broker, InstanceBody &instance) {
            const NamedDatum *item = find(instance.properties, orEmpty(name));
            if (item == nullptr)
                throw broker.missingItem();
            return propertyData(broker, instance, *item);
        });
    };
    ft.getPropertyAt = [](const CMPIInstance *self, CMPICount index, CMPIString **name, CMPIStatus *rc) {
        return onObject<InstanceBody>("getPropertyAt", self, rc, [=](Broker &broker, InstanceBody &instance) {
            if (index >= instance.properties.size())
                throw broker.missingItem();
            const NamedDatum &item = *inPlaces(instance)[index];
            if (name != nullptr)
                *name = broker.makeString(item.name);
            return propertyData(broker, instance, item);
        });
    };
    ft.getPropertyCount = [](const CMPIInstance *self, CMPIStatus *rc) {
        return onObject<InstanceBody>("getPropertyCount", self, rc, [](Broker &, InstanceBody &instance) {
            return static_cast<CMPICount>(instance.properties.size());
        });
    };
    ft.setProperty = [](const CMPIInstance *self, const char *name, const CMPIValue *value, CMPIType type) {
        return onObject<InstanceBody>("setProperty", self, nullptr, [=](Broker &broker, InstanceBody &instance) {
            setProperty(broker, instance, name, value, type);
        });
    };
}

} // namespace

std::shared_ptr<InstanceBody> newInstanceBody(Broker &broker, const PathBody &path) {
    auto instance = std::make_shared<InstanceBody>();
    instance->path = path;
    instance->properties.reserve(kUsualProperties);
    for (const NamedDatum &key : path.keys)
        instance->keyNames.push_back(key.name);
    if (broker.schema) {
        for (const MofProperty *declared : broker.schema->propertiesOf(path.className)) {
            if (declared->isKey && !contains(instance->keyNames, declared->name))
                instance->keyNames.push_back(declared->name);
            if (broker.sfcb())
                instance->properties.push_back({declared->name, nullDatum(declared->typeCode)});
        }
    }
    if (broker.sfcb())
        addKeyProperties(*instance, path);
    return instance;
}

Instance toInstance(const Broker &broker, const InstanceBody &body) {
    Instance plain;
    plain.nameSpace = body.path.nameSpace;
    plain.className = body.path.className;
    const std::vector<const NamedDatum *> items = inPlaces(body);
    if (!broker.sfcb())
        for (const NamedDatum &key : body.path.keys)
            plain.keys.emplace_back(key.name, toValue(key.datum));
    else
        for (const NamedDatum *item : items)
            if (isOwnKey(body, *item))
                plain.keys.emplace_back(item->name, toValue(item->datum));
    plain.properties.reserve(items.size());
    for (const NamedDatum *item : items) {
        const bool presetOnly = item->place == 0 && item->datum.isNull();
        if (!presetOnly && (!body.filter || contains(*body.filter, item->name)))
            plain.properties.emplace_back(item->name, toValue(item->datum));
    }
    return plain;
}

Instance toInstance(const PathBody &body) {
    Instance plain;
    plain.nameSpace = body.nameSpace;
    plain.className = body.className;
    for (const NamedDatum &key : body.keys)
        plain.keys.emplace_back(key.name, toValue(key.datum));
    return plain;
}

void fillInstances(Tables &tables, const Broker &broker) {
    CMPIInstanceFT &ft = tables.instance;
    fillCommon<InstanceBody>(ft, broker);
    fillProperties(ft);
    ft.getObjectPath = [](const CMPIInstance *self, CMPIStatus *rc) {
        return onObject<InstanceBody>("getObjectPath", self, rc, [](Broker &host, InstanceBody &instance) {
            return host.make(std::make_shared<PathBody>(pathOf(host, instance)));
        });
    };
    ft.setObjectPath = [](CMPIInstance *self, const CMPIObjectPath *op) {
        return onObject<InstanceBody>("setObjectPath", self, nullptr, [=](Broker &host, InstanceBody &instance) {
            instance.path = *host.use<PathBody>(op, "setObjectPath");
            if (host.sfcb())
                addKeyProperties(instance, instance.path);
        });
    };
    ft.setPropertyFilter = [](CMPIInstance *self, const char **properties, const char **keys) {
        return onObject<InstanceBody>("setPropertyFilter", self, nullptr, [=](Broker &host, InstanceBody &instance) {
            setFilter(host, instance, properties, keys);
        });
    };
    if (broker.sfcb())
        return;
    ft.setPropertyWithOrigin = [](const CMPIInstance *self, const char *name, const CMPIValue *value, CMPIType type,
                                  const char *) {
        return onObject<InstanceBody>(
            "setPropertyWithOrigin", self, nullptr,
            [=](Broker &host, InstanceBody &instance) { setProperty(host, instance, name, value, type); });
    };
}

} // namespace oxthost
