#include <poll.h>

#include <algorithm>
#include <cmath>

#include "agentDir.h"
#include "alertFile.h"
#include "monitor.h"
#include "monitorSession.h"
#include "monitorSignals.h"

namespace oxttool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPauseMs = 1000;

View viewOf(const MonitorState &state) {
    View view;
    view.fileSystems = state.fileSystems;
    view.curves.resize(state.fileSystems.size());
    view.cycle = state.cycle;
    view.updated = state.updated;
    view.passes.succeeded = state.passes;
    view.passes.failing = state.failing;
    view.alerts = state.alerts;
    return view;
}

// Those behind the last one that is known; all of them when it is no longer among them.
void showNewAlerts(const View &view, const std::string &last, Audience &audience) {
    const auto known = std::find(view.alerts.rbegin(), view.alerts.rend(), last);
    for (auto line = known.base() == view.alerts.begin() ? view.alerts.begin() : known.base();
         line != view.alerts.end(); ++line)
        if (const auto alert = parseAlert(*line))
            audience.alerted(*alert, &view);
}

} // namespace

Exit followMonitor(std::optional<std::chrono::seconds> duration, Audience &audience) {
    const MonitorSignals signals;
    const auto end = duration ? Clock::now() + *duration : Clock::time_point::max();
    const auto session = MonitorSession::find(agentDirectory());
    if (!session)
        throw Failure(Exit::Environment, "the monitor has ended.");
    double shown = 0;
    std::string failing, lastAlert;
    while (Clock::now() < end) {
        session->askAnew();
        const View view = viewOf(session->state());
        if (shown > 0)
            showNewAlerts(view, lastAlert, audience);
        lastAlert = view.alerts.empty() ? "" : view.alerts.back();
        if (view.passes.failing != failing)
            audience.said(view.passes.failing.empty() ? "passes succeed again."
                                                      : "passes fail: " + view.passes.failing);
        failing = view.passes.failing;
        if (view.updated > shown)
            audience.passed(view);
        shown = std::max(view.updated, shown);
        std::vector<pollfd> polled = {{signals.fd(), POLLIN, 0}};
        audience.addTo(polled);
        if (poll(polled.data(), polled.size(), kPauseMs) < 0)
            continue;
        if (polled[0].revents != 0 || !audience.handle(polled, 1))
            break;
    }
    return Exit::Ok;
}

} // namespace oxttool
