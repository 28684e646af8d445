#include "hostedMachine.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "description.h"
#include "failure.h"
#include "shownText.h"

namespace oxttool {

namespace {

namespace fs = std::filesystem;

std::string makeDirectory() {
    const auto failure = [](const std::string &where, const std::string &why) {
        return Failure(Exit::Environment, "no directory can be made for the machine" + where + ": " + why +
                                              ".\nName another place: TMPDIR=/var/tmp oxtfsctl ...");
    };
    std::error_code error;
    const fs::path temporary = fs::temp_directory_path(error);
    if (error) // the path is empty then, and the directory would lie where the command was called
        throw failure("", error.message());
    std::string name = (temporary / "oxtfsctl-machine-XXXXXX").string();
    if (mkdtemp(&name[0]) == nullptr)
        throw failure(", " + name, std::strerror(errno));
    for (const char *part : {"data", "work", "log"})
        (void)mkdir((fs::path(name) / part).c_str(), 0700); // what is missing, the session says
    return name + "/";
}

} // namespace

HostedMachine::HostedMachine(oxtmachine::Machine machine)
    : library_(libraryBeside("machine", "oxtfs", "liboxtfsmachine.so",
                             "It comes with oxtfsctl and hosts described machines: install it there.")),
      root_(makeDirectory()) {
    memoryError_ = machine.memoryError;
    machine.library = library_;
    machine.agent = root_;
    machine.begin = std::chrono::steady_clock::now();
    oxtmachine::use(std::make_unique<oxtmachine::Machine>(std::move(machine)));
}

HostedMachine::~HostedMachine() {
    oxtmachine::use(nullptr);
    std::error_code ignored;
    fs::remove_all(root_, ignored);
}

Hosting HostedMachine::over(Hosting hosting) const {
    hosting.library = library_;
    hosting.root = root_;
    hosting.memoryError = memoryError_;
    return hosting;
}

oxtmachine::Machine machineOfFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    if (!file || text.bad())
        throw Failure(Exit::Usage, "the machine's file " + printable(path) + " cannot be read: " +
                                       std::strerror(errno) + ".\n'oxtfsctl record' writes one of this machine.");
    try {
        oxtmachine::Machine machine = oxtmachine::readMachine(text.str());
        if (machine.name.empty())
            machine.name = fs::path(path).stem().string();
        return machine;
    } catch (const oxtmachine::Malformed &problem) {
        throw Failure(Exit::Usage, printable(path + ":" + problem.what()) + "\noxtfs-machine(5) tells the format.");
    }
}

oxtmachine::Machine thisMachine() {
    oxtmachine::Machine machine;
    machine.rest = oxtmachine::Rest::Noted;
    machine.mountsError = machine.driversError = oxtmachine::Machine::kUnasked;
    char name[256] = "";
    gethostname(name, sizeof name - 1);
    machine.name = name;
    return machine;
}

} // namespace oxttool
