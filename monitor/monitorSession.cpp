#include "monitorSession.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <nlohmann/json.hpp>

#include "agentDir.h"
#include "failure.h"
#include "instances.h"
#include "packedName.h"
#include "shownText.h"
#include "socketFile.h"
#include "values.h"

namespace oxttool {

namespace {

using nlohmann::json;
using oxthost::Reply;
using oxthost::Value;

Failure silent(const std::string &why) {
    return {Exit::Environment, "the running monitor does not answer: " + why +
                                   ".\nLook at it: systemctl status oxtfs-watch; or go around it with --direct when it "
                                   "has ended."};
}

std::string converse(const Fd &socket, const std::string &request) {
    for (std::size_t sent = 0; sent < request.size();) {
        const ssize_t put = send(socket.get(), request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
        if (put <= 0)
            throw silent(std::strerror(errno));
        sent += static_cast<std::size_t>(put);
    }
    std::string answer;
    char buffer[65536];
    for (ssize_t got; (got = recv(socket.get(), buffer, sizeof buffer, 0)) != 0;) {
        if (got < 0)
            throw silent(errno == EAGAIN ? "it was waited for in vain" : std::strerror(errno));
        answer.append(buffer, static_cast<std::size_t>(got));
    }
    return answer;
}

// The monitor's own words of refusal.
std::string errorOf(const std::string &body) {
    const json object = json::parse(body, nullptr, false);
    const auto found = object.is_object() ? object.find("error") : object.end();
    return object.is_object() && found != object.end() && found->is_string() ? found->get<std::string>()
                                                                             : "no reason was given";
}

} // namespace

std::unique_ptr<MonitorSession> MonitorSession::find(const std::string &root) {
    for (const std::string &directory : socketDirectories(root))
        if (Fd socket = connectTo(directory)) {
            std::unique_ptr<MonitorSession> session(new MonitorSession(directory));
            session->first_ = std::move(socket);
            return session;
        }
    return nullptr;
}

HttpAnswer MonitorSession::ask(const std::string &method, const std::string &target, const std::string &body) {
    const Fd socket = first_ ? std::move(first_) : connectTo(directory_);
    if (!socket)
        throw silent("it has just ended");
    const auto answer = parseAnswer(converse(socket, requestText(method, target, body)));
    if (!answer)
        throw silent("its answer is no HTTP");
    if (answer->status != 200)
        throw Failure(answer->status == 503 ? Exit::Environment : Exit::Refused, errorOf(answer->body));
    return *answer;
}

const MonitorState &MonitorSession::state() {
    if (!state_)
        state_ = parseState(ask("GET", "/api/v1/state", "").body);
    return *state_;
}

KnownRecords MonitorSession::records() {
    return {state().fileSystems, state().cycle, true}; // a monitor without its thread has ended
}

Reply MonitorSession::enumInstances(const std::string &className) {
    return instancesFrom(records(), className);
}

Reply MonitorSession::getInstance(const std::string &className, const Keys &keys) {
    return instanceFrom(records(), className, keys);
}

Reply MonitorSession::call(const std::string &className, const std::string &method, const Arguments &arguments) {
    json body = {{"class", packedName(className)}, {"method", packedName(method)}, {"arguments", json::array()}};
    for (const auto &[name, text] : arguments)
        body["arguments"].push_back({packedName(name), packedName(text)});
    const HttpAnswer answer = ask("POST", "/api/v1/call", body.dump());
    state_.reset();
    const json object = json::parse(answer.body, nullptr, false);
    Reply reply;
    try {
        reply.rc = static_cast<CMPIrc>(object.at("status").get<int>());
        reply.message = unpackedName(object.at("message"));
        if (const json &returned = object.at("returned"); returned.is_object()) {
            Value value;
            value.type = returned.at("type");
            value.number = returned.at("number");
            value.text = unpackedName(returned.at("text"));
            value.null = false;
            reply.returned = value;
        }
    } catch (const std::exception &) {
        throw silent("its answer cannot be understood");
    }
    return reply;
}

std::optional<std::string> MonitorSession::metrics() {
    return ask("GET", "/metrics", "").body;
}

double MonitorSession::measured() const {
    return state_ ? state_->updated : Session::measured();
}

std::string MonitorSession::source() const {
    if (!state_ || state_->failing.empty())
        return {};
    const std::string reason = printableLine(state_->failing); // a sentence, or a line of the trace
    return "From the monitor, process " + std::to_string(state_->process) + ", whose passes fail: " + reason +
           (reason.back() == '.' ? "" : ".") + " Measured at " + utcTime(static_cast<std::time_t>(state_->updated)) +
           ".";
}

void MonitorSession::reload() {
    ask("POST", "/api/v1/reload", "");
    state_.reset();
}

} // namespace oxttool
