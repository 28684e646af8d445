// What the monitor answers over HTTP: one table of resources. Reading is everybody's; over TCP there is nothing else.
#ifndef OXT_MONITOR_API_H
#define OXT_MONITOR_API_H

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "httpServer.h"
#include "providerWorker.h"
#include "view.h"

namespace oxttool {

class Api {
  public:
    // Orders that are answered later.
    struct Orders {
        std::function<void(HttpServer::Id, ProviderWorker::MethodCall)> call;
        std::function<void(HttpServer::Id)> reload;
    };
    explicit Api(Orders orders) : orders_(std::move(orders)) {}

    void show(ViewPointer view); // what is answered from now on
    std::optional<HttpResponse> answer(const HttpRequest &request, const Client &client, HttpServer::Id id);

  private:
    HttpResponse rendered(const std::string &path);
    std::optional<HttpResponse> change(const HttpRequest &request, const std::string &path, HttpServer::Id id);

    Orders orders_;
    ViewPointer view_;
    std::map<std::string, HttpResponse> rendered_; // of this view; many clients share one
    bool renderedWell_ = false;                    // whether all was well when they were
};

// Whether a name in a request's "Host" may be this machine's: over loopback, a web page of somebody else could
// ask under a name of its own that leads here.
bool isOwnHost(const std::string &host);

} // namespace oxttool

#endif
