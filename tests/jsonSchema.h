// Whether JSON keeps to docs/oxtfsctl.schema.json, by as much of the JSON-schema language as that file uses.
#ifndef OXT_JSONSCHEMA_H
#define OXT_JSONSCHEMA_H

#include <string>

#include <nlohmann/json.hpp>

#include "agentDirectory.h"

class JsonSchema {
  public:
    JsonSchema() : root_(nlohmann::json::parse(fileContent(OXT_TEST_SOURCE_DIR "../docs/oxtfsctl.schema.json"))) {}

    // What is wrong with the answer of a command; empty when it keeps to the schema.
    std::string problem(const std::string &command, const nlohmann::json &answer) const {
        const auto &definitions = root_.at("$defs");
        return definitions.contains(command) ? problem(answer, definitions.at(command), command) : "no definition";
    }

  private:
    using json = nlohmann::json;

    static bool isOfType(const json &value, const std::string &type) {
        return type == "integer" ? value.is_number_integer() : type == value.type_name();
    }
    std::string problem(const json &value, const json &schema, const std::string &at) const {
        for (const auto &[keyword, rule] : schema.items()) {
            bool good = true;
            if (keyword == "type")
                good = rule.is_array() ? std::any_of(rule.begin(), rule.end(),
                                                     [&value](const json &type) { return isOfType(value, type); })
                                       : isOfType(value, rule);
            else if (keyword == "enum")
                good = std::find(rule.begin(), rule.end(), value) != rule.end();
            else if (keyword == "minimum")
                good = !value.is_number() || value >= rule;
            else if (keyword == "required")
                good = std::all_of(rule.begin(), rule.end(), [&](const json &name) { return value.contains(name); });
            else if (keyword == "additionalProperties")
                good = std::all_of(value.items().begin(), value.items().end(),
                                   [&](const auto &member) { return schema.at("properties").contains(member.key()); });
            else if (keyword != "properties" && keyword != "items" && keyword != "$ref" && keyword != "description")
                return at + ": the test does not know the keyword " + keyword;
            if (!good)
                return at + ": " + value.dump() + " breaks " + keyword + " " + rule.dump();
        }
        return problemInside(value, schema, at);
    }
    std::string problemInside(const json &value, const json &schema, const std::string &at) const {
        std::string found;
        if (schema.contains("$ref"))
            found = problem(value, root_.at(json::json_pointer(schema.at("$ref").get<std::string>().substr(1))), at);
        for (std::size_t i = 0; value.is_array() && schema.contains("items") && found.empty() && i < value.size(); ++i)
            found = problem(value[i], schema.at("items"), at + "[" + std::to_string(i) + "]");
        for (auto member = value.begin(); value.is_object() && found.empty() && member != value.end(); ++member)
            if (schema.contains("properties") && schema.at("properties").contains(member.key()))
                found = problem(member.value(), schema.at("properties").at(member.key()), at + "." + member.key());
        return found;
    }
    json root_;
};

#endif
