// A schema in the Managed Object Format: classes with their properties, methods and qualifiers, and static instances.
//
// The reader takes the part of the format that a provider's schema uses: qualifier declarations, #pragma (skipped),
// classes, `instance of` blocks and comments. Once a text declares qualifiers it may use only those, as a schema
// compiler wants it. A Mof is plain data; nothing here is locked.
#ifndef OXT_MOF_H
#define OXT_MOF_H

#include <string>
#include <utility>
#include <vector>

namespace oxthost {

using MofTexts = std::vector<std::pair<std::string, std::string>>; // name and text; an array's texts joined by ", "

struct MofProperty {
    std::string name;
    std::string type; // "uint16", "string", "OXT_Some ref", ...
    bool isKey = false;
    bool isArray = false;
    std::string defaultText; // empty without one
    MofTexts qualifiers;
    unsigned short typeCode = 0; // what CMPI calls the type; 0 for one that it does not know
};

struct MofParameter {
    std::string name;
    std::string type;
    bool isArray = false;
    bool in = true; // unless it says In(false)
    bool out = false;
    MofTexts qualifiers;
};

struct MofMethod {
    std::string name;
    std::string returnType;
    std::vector<MofParameter> parameters;
    MofTexts qualifiers;
    const MofParameter *findParameter(const std::string &parameter) const; // nullptr when undeclared
};

struct MofClass {
    std::string name;
    std::string superClass; // empty without one
    std::vector<MofProperty> properties;
    std::vector<MofMethod> methods;
    MofTexts qualifiers;
};

struct MofInstance {
    std::string className;
    MofTexts values;
};

// Names are found without regard to case, properties and methods in the superclasses too; nullptr when undeclared.
struct Mof {
    std::vector<std::string> qualifiers; // the declared ones
    std::vector<MofClass> classes;
    std::vector<MofInstance> instances;

    const MofClass *findClass(const std::string &name) const;
    const MofProperty *findProperty(const std::string &className, const std::string &property) const;
    const MofMethod *findMethod(const std::string &className, const std::string &method) const;
    std::vector<const MofProperty *> propertiesOf(const std::string &className) const; // superclasses' first
    bool isA(const std::string &className, const std::string &ancestor) const;
};

// Throws std::runtime_error with "line L, column C: what is wrong".
Mof readMof(const std::string &text);

} // namespace oxthost

#endif
