// A machine as a file describes it, in TOML: what a person writes, and what `oxtfsctl record` does.
#ifndef OXT_MACHINE_DESCRIPTION_H
#define OXT_MACHINE_DESCRIPTION_H

#include <stdexcept>
#include <string>

#include "machine.h"

namespace oxtmachine {

// The text begins with the line, and says what would do.
struct Malformed : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// The machine of a file's text. It has nothing that the text does not give it. Throws Malformed.
Machine readMachine(const std::string &text);

// The text of a file for what there is.
std::string writeMachine(const Facts &machine);

} // namespace oxtmachine

#endif
