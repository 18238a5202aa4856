#pragma once
// A request as the handlers see it and the reply they give, free of the HTTP library so that
// handlers stay plain functions that run on a worker pool.
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <boost/asio/awaitable.hpp>

namespace hintwick {

struct Request {
  std::string method;  // "GET", "POST", ...
  std::string path;    // the target without its query
  std::string bearer;  // the token of "Authorization: Bearer ...", empty when none
  std::string body;
  std::string peer;    // the client's address, for rate limits
  std::string host;    // the Host header, for absolute links
  bool secure = false; // arrived over TLS
};

// Writes and flushes one piece of a streamed reply; false once the client is gone.
using StreamWrite = std::function<boost::asio::awaitable<bool>(std::string bytes)>;

// A reply made while it is sent (an event stream): the handler does its blocking work on its
// pool and leaves this to run on the I/O thread after the head has gone out.
class StreamBody {
 public:
  virtual ~StreamBody() = default;
  virtual boost::asio::awaitable<void> Run(const StreamWrite& write) = 0;
  // The client went away: Run should end soon. Called on the I/O thread while Run waits.
  virtual void Cancel() = 0;
};

struct Reply {
  int status = 200;
  std::string body;
  std::string content_type = "application/json";
  std::optional<int> retry_after;  // seconds, for 429 and 503
  std::shared_ptr<StreamBody> stream;  // set: `body` is ignored and the connection closes after
};

// {"error": message}. The message is fixed text chosen by the caller, never the request's data.
Reply ErrorReply(int status, std::string_view message);
Reply JsonReply(int status, std::string body);

// Which pool a request runs on: the I/O thread itself for answers that touch nothing that
// blocks, the store's pool, or the password hashing pool.
enum class Lane { kInline, kStore, kHash };

struct RouteInfo {
  Lane lane = Lane::kInline;
  std::string_view name;  // the route's pattern, a bounded label for metrics and the log
};

// The service's answers, as the HTTP layer needs them. Handle runs on the lane's pool and
// must not throw.
class Handler {
 public:
  virtual ~Handler() = default;
  virtual RouteInfo Classify(const Request& request) const = 0;
  virtual Reply Handle(const Request& request) = 0;
};

}  // namespace hintwick
