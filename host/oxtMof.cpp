#include "oxtMof.h"

#include <algorithm>

#include "oxtHostObjects.h"

namespace oxthost {
namespace {

template <class T> const T *named(const std::vector<T> &items, const std::string &name) {
    const auto item = std::find_if(items.begin(), items.end(), [&](const T &i) { return sameName(i.name, name); });
    return item != items.end() ? &*item : nullptr;
}

// The class and its superclasses, itself first. The reader admits no superclass that is not declared before.
std::vector<const MofClass *> lineage(const Mof &mof, const std::string &name) {
    std::vector<const MofClass *> line;
    for (const MofClass *c = mof.findClass(name); c != nullptr; c = mof.findClass(c->superClass))
        line.push_back(c);
    return line;
}

} // namespace

const MofParameter *MofMethod::findParameter(const std::string &parameter) const {
    return named(parameters, parameter);
}

const MofClass *Mof::findClass(const std::string &name) const {
    return named(classes, name);
}

const MofProperty *Mof::findProperty(const std::string &className, const std::string &property) const {
    for (const MofClass *c = findClass(className); c != nullptr; c = findClass(c->superClass))
        if (const MofProperty *found = named(c->properties, property))
            return found;
    return nullptr;
}

const MofMethod *Mof::findMethod(const std::string &className, const std::string &method) const {
    for (const MofClass *c : lineage(*this, className))
        if (const MofMethod *found = named(c->methods, method))
            return found;
    return nullptr;
}

std::vector<const MofProperty *> Mof::propertiesOf(const std::string &className) const {
    std::vector<const MofProperty *> all;
    const auto line = lineage(*this, className);
    for (auto c = line.rbegin(); c != line.rend(); ++c)
        for (const MofProperty &property : (*c)->properties)
            all.push_back(&property);
    return all;
}

bool Mof::isA(const std::string &className, const std::string &ancestor) const {
    const auto line = lineage(*this, className);
    return sameName(className, ancestor) ||
           std::any_of(line.begin(), line.end(), [&](const MofClass *c) { return sameName(c->name, ancestor); });
}

} // namespace oxthost
