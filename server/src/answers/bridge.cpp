#include "answers/bridge.h"

#include <array>
#include <memory>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

namespace hintwick {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::awaitable;
using asio::ip::tcp;
using Clock = std::chrono::steady_clock;
constexpr auto kTuple = asio::as_tuple(asio::use_awaitable);
constexpr std::size_t kReadBytes = 4096;
constexpr std::size_t kErrorBodyBytes = 16384;

// Shared with the cancellation hook, which may close it after the bridge has let go.
struct Upstream {
  explicit Upstream(const asio::any_io_executor& executor) : resolver(executor), stream(executor) {}
  void Close() {
    resolver.cancel();
    beast::error_code ignored;
    stream.socket().shutdown(tcp::socket::shutdown_both, ignored);
    stream.close();
  }
  tcp::resolver resolver;
  beast::tcp_stream stream;
};

// Clears the cancellation hook on every way out, before the connection is released.
struct HookScope {
  explicit HookScope(Cancellation& cancel, const std::shared_ptr<Upstream>& upstream)
      : cancel(cancel) {
    cancel.SetHook([upstream] {
      asio::post(upstream->stream.get_executor(), [upstream] { upstream->Close(); });
    });
  }
  ~HookScope() { cancel.SetHook({}); }
  HookScope(const HookScope&) = delete;
  HookScope& operator=(const HookScope&) = delete;
  Cancellation& cancel;
};

AnswerResult Failed(std::string message) { return {AnswerEnd::kFailed, std::move(message)}; }

std::string Seconds(std::chrono::milliseconds duration) {
  return std::to_string((duration.count() + 999) / 1000);
}

const std::string kUnreachable =
    "Could not reach the answer model. Try again in a moment; if it keeps failing, whoever runs "
    "this service needs to check that the model server is running.";

awaitable<std::optional<AnswerResult>> Connect(Upstream& upstream, const ModelAddress& address,
                                               const ModelTimeouts& timeouts) {
  auto [resolve_error, results] =
      co_await upstream.resolver.async_resolve(address.host, address.port, kTuple);
  if (resolve_error) co_return Failed(kUnreachable);
  upstream.stream.expires_after(timeouts.connect);
  auto [connect_error, endpoint] = co_await upstream.stream.async_connect(results, kTuple);
  if (connect_error) co_return Failed(kUnreachable);
  co_return std::nullopt;
}

http::request<http::string_body> CompletionRequest(const ModelEndpoint& endpoint,
                                                   const ModelAddress& address, std::string body) {
  http::request<http::string_body> request{http::verb::post, address.target, 11};
  request.set(http::field::host, address.host + ':' + address.port);
  request.set(http::field::content_type, "application/json");
  request.set(http::field::accept, "text/event-stream");
  request.set(http::field::user_agent, "hintwick-server");
  if (!endpoint.api_key.empty())
    request.set(http::field::authorization, "Bearer " + endpoint.api_key);
  request.body() = std::move(body);
  request.prepare_payload();
  return request;
}

// The words for a read that failed: which time-out ran out, or a connection that broke.
std::string ReadFailure(const beast::error_code& error, bool answering,
                        const ModelTimeouts& timeouts) {
  if (error != beast::error::timeout) {
    return "The connection to the answer model broke off. Try asking again.";
  }
  if (answering) return "The answer model stopped in the middle of the answer. Try asking again.";
  return "The answer model did not start answering within " + Seconds(timeouts.first_byte) +
         " seconds; it may be busy or still loading. Try again in a moment.";
}

using Parser = http::response_parser<http::buffer_body>;

// One read of the reply's body into `chunk`; the bytes read, or the error.
awaitable<std::pair<beast::error_code, std::size_t>> ReadBody(Upstream& upstream,
                                                              beast::flat_buffer& buffer,
                                                              Parser& parser,
                                                              std::array<char, kReadBytes>& chunk) {
  parser.get().body().data = chunk.data();
  parser.get().body().size = chunk.size();
  auto [error, ignored] = co_await http::async_read_some(upstream.stream, buffer, parser, kTuple);
  if (error == http::error::need_buffer) error = {};
  co_return std::pair(error, chunk.size() - parser.get().body().size);
}

awaitable<AnswerResult> ReadErrorReply(Upstream& upstream, beast::flat_buffer& buffer,
                                       Parser& parser) {
  std::string body;
  std::array<char, kReadBytes> chunk{};
  while (!parser.is_done() && body.size() < kErrorBodyBytes) {
    auto [error, bytes] = co_await ReadBody(upstream, buffer, parser, chunk);
    body.append(chunk.data(), bytes);
    if (error) break;
  }
  co_return Failed(UpstreamStatusMessage(parser.get().result_int(), body));
}

// The lines of the event stream, each piece of content handed on as its line completes.
class ReplyReader {
 public:
  ReplyReader(const PieceSink& sink, Cancellation& cancel) : sink_(sink), cancel_(cancel) {}

  // nullopt while the stream goes on.
  awaitable<std::optional<AnswerResult>> Take(std::string_view bytes) {
    std::vector<std::string> lines;
    if (!splitter_.Feed(bytes, lines)) {
      co_return Failed("The answer model sent a reply this service cannot read. Try asking again.");
    }
    for (const std::string& line : lines) {
      UpstreamLine read = ReadUpstreamLine(line);
      if (read.kind == UpstreamLine::kDone) co_return AnswerResult{};
      if (read.kind == UpstreamLine::kError) co_return Failed(std::move(read.text));
      if (read.kind != UpstreamLine::kContent) continue;
      bool more = co_await sink_(read.text);
      if (cancel_.Cancelled()) co_return AnswerResult{AnswerEnd::kCancelled, ""};
      if (!more) co_return AnswerResult{AnswerEnd::kStopped, ""};
    }
    co_return std::nullopt;
  }

 private:
  const PieceSink& sink_;
  Cancellation& cancel_;
  LineSplitter splitter_;
};

awaitable<AnswerResult> ReadStream(Upstream& upstream, beast::flat_buffer& buffer, Parser& parser,
                                   const ModelTimeouts& timeouts, ReplyReader& reader,
                                   Cancellation& cancel) {
  std::array<char, kReadBytes> chunk{};
  bool answering = false;
  // A reply whose body ends without [DONE] ended as its server meant it to.
  while (!parser.is_done()) {
    if (answering) upstream.stream.expires_after(timeouts.stall);
    auto [error, bytes] = co_await ReadBody(upstream, buffer, parser, chunk);
    if (cancel.Cancelled()) co_return AnswerResult{AnswerEnd::kCancelled, ""};
    if (error) co_return Failed(ReadFailure(error, answering, timeouts));
    answering = answering || bytes > 0;
    auto end = co_await reader.Take({chunk.data(), bytes});
    if (end) co_return *end;
  }
  co_return AnswerResult{};
}

awaitable<AnswerResult> Exchange(Upstream& upstream, const ModelEndpoint& endpoint,
                                 const ModelAddress& address, std::string body,
                                 const PieceSink& sink, Cancellation& cancel) {
  if (auto failed = co_await Connect(upstream, address, endpoint.timeouts)) co_return *failed;
  // Until the first byte of the body, one deadline covers the request and the reply's head.
  upstream.stream.expires_at(Clock::now() + endpoint.timeouts.first_byte);
  auto request = CompletionRequest(endpoint, address, std::move(body));
  auto [write_error, written] = co_await http::async_write(upstream.stream, request, kTuple);
  if (cancel.Cancelled()) co_return AnswerResult{AnswerEnd::kCancelled, ""};
  if (write_error) co_return Failed(kUnreachable);
  beast::flat_buffer buffer;
  Parser parser;
  parser.body_limit(boost::none);  // bounded per line by the splitter instead
  auto [head_error, head_bytes] =
      co_await http::async_read_header(upstream.stream, buffer, parser, kTuple);
  if (cancel.Cancelled()) co_return AnswerResult{AnswerEnd::kCancelled, ""};
  if (head_error) co_return Failed(ReadFailure(head_error, false, endpoint.timeouts));
  if (parser.get().result_int() != 200) co_return co_await ReadErrorReply(upstream, buffer, parser);
  ReplyReader reader(sink, cancel);
  co_return co_await ReadStream(upstream, buffer, parser, endpoint.timeouts, reader, cancel);
}

}  // namespace

awaitable<AnswerResult> StreamCompletion(const ModelEndpoint& endpoint, std::string body,
                                         const PieceSink& sink, Cancellation& cancel) {
  std::optional<ModelAddress> address = ParseModelUrl(endpoint.url);
  if (!address) {
    co_return Failed(
        "The answer model's address is not a plain http:// URL; whoever runs this "
        "service needs to correct it.");
  }
  auto upstream = std::make_shared<Upstream>(co_await asio::this_coro::executor);
  HookScope hook(cancel, upstream);
  if (cancel.Cancelled()) co_return AnswerResult{AnswerEnd::kCancelled, ""};
  AnswerResult result =
      co_await Exchange(*upstream, endpoint, *address, std::move(body), sink, cancel);
  if (cancel.Cancelled()) result = {AnswerEnd::kCancelled, ""};
  upstream->Close();
  co_return result;
}

}  // namespace hintwick
