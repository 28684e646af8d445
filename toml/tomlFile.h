// TOML as anybody may have written it. toml++ takes two things for granted that a malformed file breaks: that no zero
// byte comes, and which characters beyond ASCII can stand outside a text. It is shown neither.
#ifndef OXT_TOML_TOMLFILE_H
#define OXT_TOML_TOMLFILE_H

#include <stdexcept>
#include <string>
#include <string_view>

#include <toml++/toml.h>

namespace oxttoml {

struct NotToml : std::runtime_error { // what is wrong, one sentence without a point
    NotToml(const std::string &problem, unsigned long at) : std::runtime_error(problem), line(at) {}
    unsigned long line; // from 1
};

// The file's table. A text or a key in it is read through textOf(). Throws NotToml.
toml::table parse(const std::string &file);

// The bytes that the file has for a text or a key of the table; nothing but ASCII has to be UTF-8.
std::string textOf(std::string_view parsed);

} // namespace oxttoml

#endif
