// Object paths.
#include <utility>

#include "oxtHostData.h"
#include "oxtHostSlot.h"

namespace oxthost {
namespace {

template <std::string PathBody::*Member> CMPIStatus setText(const char *slot, CMPIObjectPath *self, const char *text) {
    return onObject<PathBody>(slot, self, nullptr, [text](Broker &, PathBody &path) { path.*Member = orEmpty(text); });
}

template <std::string PathBody::*Member>
CMPIString *getText(const char *slot, const CMPIObjectPath *self, CMPIStatus *rc) {
    return onObject<PathBody>(slot, self, rc, [](Broker &broker, PathBody &path) {
        const std::string &text = path.*Member;
        // SFCB keeps an empty text as none, and gives a string without characters.
        return text.empty() && broker.sfcb() ? broker.makeNullString() : broker.makeString(text);
    });
}

CMPIData keyData(Broker &broker, const NamedDatum &key) {
    CMPIData data = toData(broker, key.datum);
    if (!broker.sfcb())
        data.state = static_cast<CMPIValueState>(data.state | CMPI_keyValue);
    return data;
}

// Takes over the namespace, and the host name when asked. By the standard the class name, too; SFCB leaves it.
CMPIStatus copyNames(const char *slot, CMPIObjectPath *self, const CMPIObjectPath *src, bool withHost) {
    return onObject<PathBody>(slot, self, nullptr, [=](Broker &broker, PathBody &path) {
        const auto source = broker.use<PathBody>(src, slot);
        path.nameSpace = source->nameSpace;
        if (withHost)
            path.hostName = source->hostName;
        if (!broker.sfcb())
            path.className = source->className;
    });
}

void fillKeys(CMPIObjectPathFT &ft) {
    ft.addKey = [](CMPIObjectPath *self, const char *name, const CMPIValue *value, CMPIType type) {
        return onObject<PathBody>("addKey", self, nullptr, [=](Broker &broker, PathBody &path) {
            if (name == nullptr || (value == nullptr && !broker.sfcb()))
                throw Refusal{CMPI_RC_ERR_INVALID_PARAMETER};
            put(path.keys, name, toDatum(broker, value, type, "addKey"));
        });
    };
    ft.getKey = [](const CMPIObjectPath *self, const char *name, CMPIStatus *rc) {
        return onObject<PathBody>("getKey", self, rc, [=](Broker &broker, PathBody &path) {
            const NamedDatum *key = find(path.keys, orEmpty(name));
            if (key == nullptr)
                throw broker.missingItem();
            return keyData(broker, *key);
        });
    };
    ft.getKeyAt = [](const CMPIObjectPath *self, CMPICount index, CMPIString **name, CMPIStatus *rc) {
        return onObject<PathBody>("getKeyAt", self, rc, [=](Broker &broker, PathBody &path) {
            if (index >= path.keys.size())
                throw broker.missingItem();
            const NamedDatum &key = path.keys[index];
            if (name != nullptr)
                *name = broker.makeString(key.name);
            return keyData(broker, key);
        });
    };
    ft.getKeyCount = [](const CMPIObjectPath *self, CMPIStatus *rc) {
        return onObject<PathBody>("getKeyCount", self, rc,
                                  [](Broker &, PathBody &path) { return static_cast<CMPICount>(path.keys.size()); });
    };
}

// Qualifier getters may be NULL; where they are not, this host has no qualifiers to give.
template <class... Names> CMPIData noQualifier(const CMPIObjectPath *self, Names..., CMPIStatus *rc) {
    return onObject<PathBody>("getQualifier", self, rc, [](Broker &, PathBody &) -> CMPIData {
        throw Refusal{CMPI_RC_ERR_NOT_SUPPORTED, CMPI_notFound};
    });
}

} // namespace

std::string PathBody::text() const {
    std::string all = nameSpace + ":" + className;
    const char *separator = ".";
    for (const NamedDatum &key : keys) {
        all += separator + key.name + "=" + toText(key.datum);
        separator = ",";
    }
    return all;
}

void fillPaths(Tables &tables, const Broker &broker) {
    CMPIObjectPathFT &ft = tables.path;
    fillCommon<PathBody>(ft, broker);
    ft.setNameSpace = [](CMPIObjectPath *self, const char *text) {
        return setText<&PathBody::nameSpace>("setNameSpace", self, text);
    };
    ft.setHostname = [](CMPIObjectPath *self, const char *text) {
        return setText<&PathBody::hostName>("setHostname", self, text);
    };
    ft.setClassName = [](CMPIObjectPath *self, const char *text) {
        return setText<&PathBody::className>("setClassName", self, text);
    };
    ft.getNameSpace = [](const CMPIObjectPath *self, CMPIStatus *rc) {
        return getText<&PathBody::nameSpace>("getNameSpace", self, rc);
    };
    ft.getHostname = [](const CMPIObjectPath *self, CMPIStatus *rc) {
        return getText<&PathBody::hostName>("getHostname", self, rc);
    };
    ft.getClassName = [](const CMPIObjectPath *self, CMPIStatus *rc) {
        return getText<&PathBody::className>("getClassName", self, rc);
    };
    ft.setNameSpaceFromObjectPath = [](CMPIObjectPath *self, const CMPIObjectPath *src) {
        return copyNames("setNameSpaceFromObjectPath", self, src, false);
    };
    ft.setHostAndNameSpaceFromObjectPath = [](CMPIObjectPath *self, const CMPIObjectPath *src) {
        return copyNames("setHostAndNameSpaceFromObjectPath", self, src, true);
    };
    ft.toString = [](const CMPIObjectPath *self, CMPIStatus *rc) {
        return onObject<PathBody>("toString", self, rc,
                                  [](Broker &host, PathBody &path) { return host.makeString(path.text()); });
    };
    fillKeys(ft);
    if (broker.sfcb())
        return;
    ft.getClassQualifier = noQualifier<const char *>;
    ft.getPropertyQualifier = noQualifier<const char *, const char *>;
    ft.getMethodQualifier = noQualifier<const char *, const char *>;
    ft.getParameterQualifier = noQualifier<const char *, const char *, const char *>;
}

} // namespace oxthost
