#include "session.h"

#include <cstdio>
#include <exception>
#include <filesystem>

#include "agentDir.h"
#include "failure.h"
#include "schema.h"
#include "sharedMemory.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr auto kLockPatience = std::chrono::seconds(3);

struct Hint {
    const char *message; // of the provider
    const char *help;
};
constexpr Hint kHints[] = {
    {"ServiceMode But NonThread Failure!!",
     "In service mode only a provider whose monitoring thread runs answers: use 'oxtfsctl watch', or leave "
     "--service-mode off."},
    {"ServiceMode is non-Service FAILED", "The monitoring thread needs --service-mode on."},
    {"Thread is Already Pause FAILED",
     "A monitoring thread lives in the process that started it: end 'oxtfsctl watch' with Ctrl-C."},
    {"NotFound Index", "'oxtfsctl list' shows the file systems and their indexes."},
    {"DriveType not Fixed FAILED", "Only file systems on fixed disks can be monitored."},
    {"FileSystemSize less 100MB FAILED", "Only file systems of at least 100 MiB can be monitored."},
    {"SetValue(WarningThreshold) FAILED", "A threshold is at least 1 MiB and at most the file system's size."},
    {"SetValue(FatalThreshold) FAILED", "A threshold is at least 1 MiB and at most the file system's size."},
    {"SetValue(MonitorCycle) FAILED", "A cycle is 10 to 3600 seconds."},
    {"getArgToInt(MonitorCycle) FAILED", "A cycle is 10 to 3600 seconds."},
};

const char *hintFor(const std::string &message) {
    for (const Hint &hint : kHints)
        if (message == hint.message)
            return hint.help;
    return nullptr;
}

std::string textOrCode(const std::string &message, CMPIrc code) {
    return message.empty() ? "status " + std::to_string(code) + " without a message" : printable(message);
}

} // namespace

std::string libraryBeside(const char *buildFolder, const char *installedFolder, const char *name, const char *help) {
    std::error_code ignored;
    const auto bin = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    const auto installed = bin / OXT_TOOL_BIN_TO_LIB / installedFolder / name;
    for (const auto &candidate : {bin / ".." / buildFolder / name, installed})
        if (std::filesystem::exists(candidate, ignored))
            return candidate.lexically_normal().string();
    throw Failure(Exit::Environment, "the library " + installed.lexically_normal().string() + " is missing.\n" + help);
}

void refuse(CMPIrc code, const std::string &message) {
    const char *const hint = hintFor(message);
    Failure failure(Exit::Refused,
                    "the provider answered: " + textOrCode(message, code) + "\n" +
                        (hint ? hint : "The trace log " + agentDirectory() + "log/oxtfs.log may tell more."));
    failure.unexplained = hint == nullptr;
    throw failure;
}

SignalsHeld::SignalsHeld() {
    sigemptyset(&held_);
    for (const int number : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&held_, number);
    pthread_sigmask(SIG_BLOCK, &held_, &before_);
}

SignalsHeld::~SignalsHeld() {
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

Session::Session(const Hosting &hosting, oxthost::ServiceMode defaultMode)
    : root_(hosting.root.empty() ? agentDirectory() : hosting.root) {
    checkAgentDirectory(root_);
    lock_ = lockWork(root_, kLockPatience);
    if (!hosting.force) {
        if (const auto found = findProviderAtWork(root_))
            throw Failure(Exit::Environment, describe(*found));
        if (!lock_)
            throw Failure(Exit::Environment, "another oxtfsctl is at work on " + root_ +
                                                 ".\nTry again when it has ended, or go on with --force.");
    }
    // The provider would try 65,535 keys, and write as many lines into its log.
    if (const int error = hosting.memoryError ? *hosting.memoryError : sharedMemoryRefusal(1))
        throw noSharedMemory(error);
    oxthost::Options options;
    options.library = hosting.library.empty()
                          ? libraryBeside("provider", "cmpi", "libOXTFileSystemProvider.so",
                                          "Install it there, or name another one with --library PATH.")
                          : hosting.library;
    options.nameSpace = hosting.nameSpace;
    options.serviceMode = hosting.serviceMode.value_or(defaultMode);
    options.flavour = hosting.flavour;
    options.schema = kSchema;
    try {
        host_ = std::make_unique<oxthost::Host>(std::move(options));
    } catch (const std::runtime_error &problem) {
        throw Failure(Exit::Environment, problem.what());
    }
}

Session::~Session() {
    try {
        close();
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "oxtfsctl: %s\n", problem.what());
    }
}

oxthost::Instance Session::get(const std::string &className, const std::vector<oxthost::NamedValue> &keys) {
    oxthost::Reply reply = host_->getInstance(className, keys);
    if (!reply.ok())
        refuse(reply.rc, reply.message);
    if (reply.instances.empty())
        throw Failure(Exit::Refused, "the provider answered without an instance of " + className + ".");
    return std::move(reply.instances.front());
}

std::vector<oxthost::Instance> Session::enumerate(const std::string &className) {
    oxthost::Reply reply = host_->enumInstances(className);
    if (!reply.ok())
        refuse(reply.rc, reply.message);
    return std::move(reply.instances);
}

oxthost::Reply Session::call(const std::string &className, const std::string &method,
                             const std::vector<std::pair<std::string, std::string>> &arguments) {
    std::vector<oxthost::NamedValue> typed;
    for (const auto &[name, text] : arguments)
        typed.emplace_back(name, host_->argument(className, method, name, text));
    return host_->invokeMethod(className, method, typed);
}

void Session::invoke(const std::string &className, const std::string &method,
                     const std::vector<std::pair<std::string, std::string>> &arguments) {
    const oxthost::Reply reply = call(className, method, arguments);
    if (!reply.ok() || (reply.returned && reply.returned->number != 0))
        refuse(reply.rc, reply.message);
}

void Session::close() {
    if (!host_)
        return;
    const auto host = std::move(host_);
    const oxthost::Reply replies[] = {host->cleanupInstance(true), host->cleanupMethod(true)};
    for (const auto &reply : replies)
        if (!reply.ok())
            throw Failure(Exit::Refused, "the provider's clean-up answered: " + textOrCode(reply.message, reply.rc) +
                                             "\nSettings may not have been saved.");
}

} // namespace oxttool
