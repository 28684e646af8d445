#include "api.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "monitorState.h"
#include "packedName.h"
#include "page.h"
#include "prometheus.h"
#include "shownText.h"
#include "viewText.h"

namespace oxttool {

namespace {

using nlohmann::json;

constexpr const char *kJson = "application/json";
constexpr const char *kCall = "/api/v1/call", *kReload = "/api/v1/reload", *kState = "/api/v1/state";

std::string healthText(const View &, bool well) {
    return well ? "ok\n" : "passes fail\n";
}

struct Resource {
    const char *path, *type;
    std::string (*text)(const View &, bool well);
};
const Resource kResources[] = {
    {"/metrics", "text/plain; version=0.0.4; charset=utf-8", metricsText},
    {"/healthz", "text/plain; charset=utf-8", healthText},
    {"/api/v1/filesystems", kJson, [](const View &view, bool) { return fileSystemsText(view); }},
    {"/api/v1/alerts", kJson, [](const View &view, bool) { return alertsText(view); }},
    {kState, kJson, stateText},
};

ProviderWorker::MethodCall callOf(const std::string &body) {
    const json object = json::parse(body);
    ProviderWorker::MethodCall call;
    call.className = unpackedName(object.at("class"));
    call.method = unpackedName(object.at("method"));
    for (const json &argument : object.at("arguments"))
        call.arguments.emplace_back(unpackedName(argument.at(0)), unpackedName(argument.at(1)));
    return call;
}

} // namespace

bool isOwnHost(const std::string &host) {
    std::string name =
        host.substr(0, host.rfind(':') == std::string::npos || host.back() == ']' ? host.size() : host.rfind(':'));
    if (name.size() > 2 && name.front() == '[' && name.back() == ']')
        name = name.substr(1, name.size() - 2);
    unsigned char bytes[sizeof(in6_addr)];
    char machine[256] = "";
    (void)gethostname(machine, sizeof machine - 1);
    return name.empty() || name == machine || name == "localhost" || inet_pton(AF_INET, name.c_str(), bytes) == 1 ||
           inet_pton(AF_INET6, name.c_str(), bytes) == 1;
}

void Api::show(ViewPointer view) {
    view_ = std::move(view);
    rendered_.clear();
}

HttpResponse Api::rendered(const std::string &path) {
    const bool well = view_->passes.areWell(HttpServer::Clock::now(), std::chrono::seconds(view_->cycle.seconds));
    if (well != renderedWell_)
        rendered_.clear();
    renderedWell_ = well;
    if (const auto known = rendered_.find(path); known != rendered_.end())
        return known->second;
    HttpResponse response;
    if (path == "/") {
        response.nonce = freshNonce();
        response.type = "text/html; charset=utf-8";
        response.body = std::make_shared<std::string>(pageText(*view_, well, response.nonce));
    }
    for (const Resource &resource : kResources)
        if (path == resource.path) {
            response.type = resource.type;
            response.body = std::make_shared<std::string>(resource.text(*view_, well));
        }
    if (!response.body)
        return errorResponse(404, "There is no " + printableUtf8(path) + " here.");
    response.status = path == "/healthz" && !well ? 503 : 200;
    return rendered_[path] = response;
}

std::optional<HttpResponse> Api::change(const HttpRequest &request, const std::string &path, HttpServer::Id id) {
    if (path == kReload) {
        orders_.reload(id);
        return std::nullopt;
    }
    try {
        ProviderWorker::MethodCall call = callOf(request.body);
        if (call.method == "StartMonitoringThread" || call.method == "StopMonitoringThread")
            return errorResponse(409, "the monitoring thread is the running monitor itself.\nEnd the monitor: "
                                      "systemctl stop oxtfs-watch, or Ctrl-C where 'oxtfsctl watch' runs.");
        orders_.call(id, std::move(call));
        return std::nullopt;
    } catch (const std::exception &) {
        return errorResponse(400, "the request is no call of a method.");
    }
}

std::optional<HttpResponse> Api::answer(const HttpRequest &request, const Client &client, HttpServer::Id id) {
    const std::string path = request.target.substr(0, request.target.find('?'));
    if (client.overLoopback && !isOwnHost(request.host))
        return errorResponse(421, "This address is asked under a name that is not its own.");
    const bool changes = path == kCall || path == kReload;
    if ((changes || path == kState) && client.overTcp)
        return errorResponse(404, "There is no " + printableUtf8(path) + " here.");
    if (changes && request.method != "POST")
        return errorResponse(405, "Only POST does that.");
    if (changes && !client.mayChange)
        return errorResponse(403, "only root can change what the monitor keeps.\nRun oxtfsctl as root.");
    if (!changes && request.method != "GET" && request.method != "HEAD")
        return errorResponse(405, "Only GET and HEAD do that.");
    if (!view_)
        return errorResponse(503,
                             "the monitor has only just begun: its first look is not over.\nTry again in a moment.");
    return changes ? change(request, path, id) : rendered(path);
}

} // namespace oxttool
