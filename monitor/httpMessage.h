// HTTP messages as bytes. Requests and answers come from anybody: what is too large or no HTTP is refused. No sockets.
#ifndef OXT_MONITOR_HTTPMESSAGE_H
#define OXT_MONITOR_HTTPMESSAGE_H

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace oxttool {

struct HttpRequest {
    std::string method, target, host, body; // the target begins with a slash
};

struct HttpResponse {
    int status = 200;
    std::string type = "application/json";
    std::shared_ptr<const std::string> body; // many answers can share it
    std::string nonce;                       // of the scripts and styles that a page may run; empty: none
};

// The response as it goes over the wire, without its body. The connection is closed behind it.
std::string headOf(const HttpResponse &response);

// `text` as a JSON answer {"error": text}.
HttpResponse errorResponse(int status, const std::string &text);

// Collects one message.
class RequestReader {
  public:
    static constexpr std::size_t kMostHead = 8 * 1024;
    static constexpr std::size_t kMostBody = 64 * 1024;
    enum State { Incomplete, Complete, Refused };

    RequestReader();
    ~RequestReader();
    RequestReader(RequestReader &&) noexcept;
    RequestReader &operator=(RequestReader &&) noexcept;
    // Takes the next bytes. After Complete or Refused nothing more is looked at.
    State put(std::string_view bytes);
    const HttpRequest &request() const { return request_; } // when complete
    int refusal() const { return refusal_; }                // when refused: the status to answer with

  private:
    struct Parser;
    State refuse(int status);
    std::unique_ptr<Parser> parser_;
    HttpRequest request_;
    State state_ = Incomplete;
    int refusal_ = 0;
};

// What a client sends and what it gets.
std::string requestText(const std::string &method, const std::string &target, const std::string &body);
struct HttpAnswer {
    int status = 0;
    std::string body;
};
// Nothing when the bytes are no whole answer.
std::optional<HttpAnswer> parseAnswer(std::string_view bytes);

} // namespace oxttool

#endif
