#include "httpMessage.h"

#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include <nlohmann/json.hpp>

namespace oxttool {

namespace {

namespace http = boost::beast::http;

constexpr std::size_t kMostAnswer = 256 * 1024 * 1024; // 65,535 file systems, from a monitor that we trust

std::string textOf(boost::beast::string_view view) {
    return std::string(view.data(), view.size());
}

} // namespace

struct RequestReader::Parser {
    http::request_parser<http::string_body> http;
    std::string waiting; // bytes that the parser has not consumed
};

RequestReader::RequestReader() : parser_(std::make_unique<Parser>()) {
    parser_->http.header_limit(kMostHead);
    parser_->http.body_limit(kMostBody);
    parser_->http.eager(true);
}

RequestReader::~RequestReader() = default;
RequestReader::RequestReader(RequestReader &&) noexcept = default;
RequestReader &RequestReader::operator=(RequestReader &&) noexcept = default;

RequestReader::State RequestReader::refuse(int status) {
    refusal_ = status;
    return state_ = Refused;
}

RequestReader::State RequestReader::put(std::string_view bytes) {
    if (state_ != Incomplete)
        return state_;
    std::string &waiting = parser_->waiting;
    waiting.append(bytes);
    while (!waiting.empty() && !parser_->http.is_done()) {
        boost::system::error_code error;
        const std::size_t taken = parser_->http.put(boost::asio::buffer(waiting), error);
        waiting.erase(0, taken);
        if (error == http::error::need_more || (!error && taken == 0))
            break;
        if (error == http::error::header_limit)
            return refuse(431);
        if (error == http::error::body_limit)
            return refuse(413);
        if (error)
            return refuse(400);
    }
    if (!parser_->http.is_done())
        return state_;
    const auto &message = parser_->http.get();
    request_ = {textOf(message.method_string()), textOf(message.target()), textOf(message[http::field::host]),
                message.body()};
    // The absolute form is for proxies, the asterisk for servers with options.
    return request_.target.rfind('/', 0) == 0 ? state_ = Complete : refuse(400);
}

std::string headOf(const HttpResponse &response) {
    const auto status = static_cast<http::status>(response.status);
    std::string head = "HTTP/1.1 " + std::to_string(response.status) + " " + textOf(http::obsolete_reason(status)) +
                       "\r\nContent-Type: " + response.type +
                       "\r\nContent-Length: " + std::to_string(response.body ? response.body->size() : 0) +
                       "\r\nConnection: close\r\nCache-Control: no-store\r\nX-Content-Type-Options: nosniff"
                       "\r\nCross-Origin-Resource-Policy: same-origin\r\nReferrer-Policy: no-referrer"
                       "\r\nContent-Security-Policy: default-src 'none'; frame-ancestors 'none'; base-uri 'none'";
    if (!response.nonce.empty())
        head +=
            "; connect-src 'self'; script-src 'nonce-" + response.nonce + "'; style-src 'nonce-" + response.nonce + "'";
    return head + "\r\n\r\n";
}

HttpResponse errorResponse(int status, const std::string &text) {
    HttpResponse response;
    response.status = status;
    const nlohmann::json body = {{"error", text}};
    response.body =
        std::make_shared<std::string>(body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
    return response;
}

std::string requestText(const std::string &method, const std::string &target, const std::string &body) {
    return method + " " + target +
           " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\n\r\n" + body;
}

std::optional<HttpAnswer> parseAnswer(std::string_view bytes) {
    http::response_parser<http::string_body> parser;
    parser.body_limit(kMostAnswer);
    parser.eager(true);
    boost::system::error_code error;
    while (!bytes.empty() && !parser.is_done()) {
        const std::size_t taken = parser.put(boost::asio::buffer(bytes.data(), bytes.size()), error);
        if (error || taken == 0)
            return std::nullopt;
        bytes.remove_prefix(taken);
    }
    if (!parser.is_done())
        return std::nullopt;
    return HttpAnswer{static_cast<int>(parser.get().result_int()), parser.get().body()};
}

} // namespace oxttool
