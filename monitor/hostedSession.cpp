#include "hostedSession.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <vector>

#include "failure.h"
#include "oxtMof.h"
#include "schema.h"
#include "sharedMemory.h"
#include "values.h"

namespace oxttool {

std::string libraryBeside(const char *buildFolder, const char *installedFolder, const char *name, const char *help) {
    std::error_code ignored;
    const auto bin = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    const auto installed = bin / OXT_MONITOR_BIN_TO_LIB / installedFolder / name;
    for (const auto &candidate : {bin / ".." / buildFolder / name, installed})
        if (std::filesystem::exists(candidate, ignored))
            return candidate.lexically_normal().string();
    throw Failure(Exit::Environment, "the library " + installed.lexically_normal().string() + " is missing.\n" + help);
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

HostedSession::HostedSession(const Hosting &hosting, oxthost::ServiceMode defaultMode)
    : HostedSession(hosting, defaultMode, enterWork(hosting.root)) {}

HostedSession::HostedSession(const Hosting &hosting, oxthost::ServiceMode defaultMode, Workplace place)
    : place_(std::move(place)) {
    checkAgentDirectory(hosting.root);
    if (!hosting.force) {
        if (place_.provider)
            throw Failure(Exit::Environment, describe(*place_.provider));
        if (!place_.lock && place_.lockError == EWOULDBLOCK)
            throw Failure(Exit::Environment, "another oxtfsctl works on " + hosting.root +
                                                 ".\nTry again when it has ended, or repeat with --force.");
        if (!place_.lock)
            throw Failure(Exit::Environment, "no lock can be had in " + hosting.root +
                                                 "work: " + std::strerror(place_.lockError) +
                                                 ".\nMend that, or repeat with --force.");
    }
    // The provider would try dozens of keys, with a line in its log for each, and not say why.
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
    try {
        host_ = std::make_unique<oxthost::Host>(std::move(options));
    } catch (const std::runtime_error &problem) {
        throw Failure(Exit::Environment, problem.what());
    }
}

HostedSession::~HostedSession() {
    try {
        HostedSession::close();
    } catch (const std::exception &problem) {
        if (std::uncaught_exceptions() == 0) // else another failure is on its way to the user
            std::fprintf(stderr, "oxtfsctl: %s\n", problem.what());
    }
}

oxthost::Reply HostedSession::getInstance(const std::string &className, const Keys &keys) {
    return host_->getInstance(className, keys);
}

oxthost::Reply HostedSession::enumInstances(const std::string &className) {
    return host_->enumInstances(className);
}

oxthost::Reply HostedSession::call(const std::string &className, const std::string &method,
                                   const Arguments &arguments) {
    // Only calls need the schema: to read it, and to hold every property against it, would be a tenth of a list.
    const oxthost::Mof schema = oxthost::readMof(kSchema);
    std::vector<oxthost::NamedValue> typed;
    for (const auto &[name, text] : arguments)
        typed.emplace_back(name, oxthost::argumentOf(schema, className, method, name, text));
    return host_->invokeMethod(className, method, typed);
}

void HostedSession::close() {
    if (!host_)
        return;
    auto host = std::move(host_);
    const oxthost::Reply replies[] = {host->cleanupInstance(true), host->cleanupMethod(true)};
    for (const auto &reply : replies)
        if (!reply.ok()) {
            // It keeps what it could not clean up, so its library stays: no destructor of this is called at the exit.
            static auto *kept = new std::vector<std::unique_ptr<oxthost::Host>>;
            kept->push_back(std::move(host));
            throw Failure(Exit::Refused,
                          "the provider failed while it was being unloaded: " + textOrCode(reply.message, reply.rc) +
                              "\nThe last change may not have been saved.");
        }
}

} // namespace oxttool
