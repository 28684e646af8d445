// A running monitor, asked over its socket. It answers reads from what its last pass found, and makes changes through
// the provider that it hosts, for root alone.
#ifndef OXT_MONITOR_MONITORSESSION_H
#define OXT_MONITOR_MONITORSESSION_H

#include <memory>
#include <optional>
#include <string>

#include "fd.h"
#include "httpMessage.h"
#include "instances.h"
#include "monitorState.h"
#include "session.h"

namespace oxttool {

class MonitorSession : public Session {
  public:
    // The monitor that works in `root`; null when none answers.
    static std::unique_ptr<MonitorSession> find(const std::string &root);

    oxthost::Reply getInstance(const std::string &className, const Keys &keys) override;
    oxthost::Reply enumInstances(const std::string &className) override;
    oxthost::Reply call(const std::string &className, const std::string &method, const Arguments &arguments) override;

    void reload() override;
    std::optional<std::string> metrics() override;
    double measured() const override;
    std::string source() const override; // when its passes fail
    std::string doubt() const override { return source(); }
    bool isAnothers() const override { return true; }

    const MonitorState &state(); // asked for when it is not known, or a change may have changed it
    void askAnew() { state_.reset(); }

  private:
    explicit MonitorSession(std::string directory) : directory_(std::move(directory)) {}
    // Throws an environment failure when the monitor does not answer, and a refusal when it refuses.
    KnownRecords records();
    HttpAnswer ask(const std::string &method, const std::string &target, const std::string &body);

    std::string directory_;
    Fd first_; // the connection by which it was found
    std::optional<MonitorState> state_;
};

} // namespace oxttool

#endif
