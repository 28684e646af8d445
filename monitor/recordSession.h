// What the provider of another process keeps in shared memory, asked as if it were the provider: it answers what its
// records tell. They are read once, when the session begins.
#ifndef OXT_MONITOR_RECORDSESSION_H
#define OXT_MONITOR_RECORDSESSION_H

#include "agentDir.h"
#include "instances.h"
#include "segments.h"
#include "session.h"

namespace oxttool {

// A sentence for people about where they come from and how old they are.
std::string sourceOf(const LiveRecords &records);
// A sentence about why they are no longer what the machine is like; empty when nothing says so.
std::string doubtOf(const LiveRecords &records);
std::string metricsOf(const LiveRecords &records);

class RecordSession : public Session {
  public:
    // Throws an environment failure when the records cannot be had.
    explicit RecordSession(ProviderAtWork provider);

    oxthost::Reply getInstance(const std::string &className, const Keys &keys) override;
    oxthost::Reply enumInstances(const std::string &className) override;
    // A change is up to the provider itself: throws an environment failure that says so.
    oxthost::Reply call(const std::string &className, const std::string &method, const Arguments &arguments) override;
    double measured() const override { return records_.measured; }
    std::optional<std::string> metrics() override { return metricsOf(records_); }
    std::string source() const override;
    std::string doubt() const override { return doubtOf(records_); }
    bool isAnothers() const override { return true; }

  private:
    KnownRecords known() const;

    ProviderAtWork provider_;
    LiveRecords records_;
};

} // namespace oxttool

#endif
