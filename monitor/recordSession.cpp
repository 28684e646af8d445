#include "recordSession.h"

#include <chrono>
#include <utility>

#include "failure.h"
#include "instances.h"
#include "prometheus.h"
#include "values.h"

namespace oxttool {

using oxthost::Reply;

namespace {

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

LiveRecords recordsOf(const ProviderAtWork &provider) {
    try {
        return readSegments(agentDirectory());
    } catch (const Failure &failure) {
        throw Failure(failure.exitCode,
                      "the records of the provider in " + nameOf(provider) + " cannot be shown: " + failure.what());
    }
}

} // namespace

RecordSession::RecordSession(ProviderAtWork provider)
    : provider_(std::move(provider)), records_(recordsOf(provider_)) {}

KnownRecords RecordSession::known() const {
    return {records_.fileSystems, records_.cycle, std::nullopt}; // the records do not tell whether the thread runs
}

Reply RecordSession::enumInstances(const std::string &className) {
    return instancesFrom(known(), className);
}

Reply RecordSession::getInstance(const std::string &className, const Keys &keys) {
    return instanceFrom(known(), className, keys);
}

Reply RecordSession::call(const std::string &, const std::string &, const Arguments &) {
    throw Failure(Exit::Environment, describe(provider_));
}

std::string RecordSession::source() const {
    return sourceOf(records_);
}

std::string sourceOf(const LiveRecords &records) {
    const std::string name = records.process.empty() ? "" : " (" + records.process + ")";
    return "Records of process " + std::to_string(records.pid) + name + ", measured at " +
           utcTime(static_cast<std::time_t>(records.measured)) + ", cycle " + std::to_string(records.cycle.seconds) +
           " s." + (isOverdue(records, now()) ? "\n" + doubtOf(records) : "");
}

std::string doubtOf(const LiveRecords &records) {
    if (!isOverdue(records, now()))
        return {};
    return "Nothing monitors there: the last look was " + std::to_string(static_cast<long>(now() - records.measured)) +
           " s ago, at a cycle of " + std::to_string(records.cycle.seconds) + " s.";
}

std::string metricsOf(const LiveRecords &records) {
    return prometheusText(
        {records.fileSystems, records.cycle.seconds, records.measured, !isOverdue(records, now()), records.measured});
}

} // namespace oxttool
