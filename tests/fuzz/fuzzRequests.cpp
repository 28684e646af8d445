// A client sends anything, in two pieces; the first byte says where the first one ends and who the client is.
#include "api.h"
#include "promise.h"

using namespace oxttool;

namespace {

Api &api() {
    static Api *const made = [] {
        auto *const fresh = new Api({[](HttpServer::Id, ProviderWorker::MethodCall) {}, [](HttpServer::Id) {}});
        auto view = std::make_shared<View>();
        view->fileSystems.resize(2);
        view->curves.resize(2);
        fresh->show(view);
        return fresh;
    }();
    return *made;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char *data, size_t size) {
    if (size == 0)
        return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const Client client{(data[0] & 1) != 0, (data[0] & 2) != 0, (data[0] & 4) != 0};
    const std::size_t cut = std::min<std::size_t>(data[0] & 0xF8, text.size());
    RequestReader reader;
    RequestReader::State state = reader.put(text.substr(0, cut));
    if (state == RequestReader::Incomplete)
        state = reader.put(text.substr(cut));
    if (state == RequestReader::Refused)
        PROMISE(reader.refusal() == 400 || reader.refusal() == 413 || reader.refusal() == 431);
    if (state != RequestReader::Complete)
        return 0;
    PROMISE(reader.request().body.size() <= RequestReader::kMostBody);
    PROMISE(reader.request().target.size() <= RequestReader::kMostHead);
    const auto response = api().answer(reader.request(), client, 1);
    PROMISE(response || (client.mayChange && !client.overTcp && reader.request().method == "POST"));
    if (response)
        PROMISE(headOf(*response).find('\0') == std::string::npos && response->body);
    return 0;
}
