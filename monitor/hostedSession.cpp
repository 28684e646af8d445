#include "hostedSession.h"

#include <cstdio>
#include <exception>
#include <filesystem>

#include "failure.h"
#include "schema.h"
#include "values.h"

namespace oxttool {

namespace {

constexpr const char *kLibraryName = "libOXTFileSystemProvider.so";

std::string defaultLibrary() {
    std::error_code ignored;
    const auto bin = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
    const auto installed = bin / OXT_MONITOR_BIN_TO_LIB / "cmpi" / kLibraryName;
    for (const auto &candidate : {bin / ".." / "provider" / kLibraryName, installed})
        if (std::filesystem::exists(candidate, ignored))
            return candidate.lexically_normal().string();
    throw Failure(Exit::Environment, "the provider's library is not at " + installed.lexically_normal().string() +
                                         ".\nInstall it there, or name it with --library PATH.");
}

} // namespace

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
    : HostedSession(hosting, defaultMode, enterWork(agentDirectory())) {}

HostedSession::HostedSession(const Hosting &hosting, oxthost::ServiceMode defaultMode, Workplace place)
    : place_(std::move(place)) {
    checkAgentDirectory(agentDirectory());
    if (!hosting.force) {
        if (place_.provider)
            throw Failure(Exit::Environment, describe(*place_.provider));
        if (!place_.lock)
            throw Failure(Exit::Environment, "another oxtfsctl is at work on " + agentDirectory() +
                                                 ".\nTry again when it has ended, or go on with --force.");
    }
    oxthost::Options options;
    options.library = hosting.library.empty() ? defaultLibrary() : hosting.library;
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

HostedSession::~HostedSession() {
    try {
        HostedSession::close();
    } catch (const std::exception &problem) {
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
    std::vector<oxthost::NamedValue> typed;
    for (const auto &[name, text] : arguments)
        typed.emplace_back(name, host_->argument(className, method, name, text));
    return host_->invokeMethod(className, method, typed);
}

void HostedSession::close() {
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
