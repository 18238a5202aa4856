#include "stream_client.h"

#include <array>
#include <string_view>

#include <boost/beast/core.hpp>

namespace hintwick::bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
using asio::awaitable;
using asio::ip::tcp;
constexpr auto kTuple = asio::as_tuple(asio::use_awaitable);

// Questions that name no stage, so no stream writes to the store, and that the sample pack has
// notes for at its first stage.
constexpr std::array<std::string_view, 4> kQuestions = {
    "how do I light the lantern?", "where do I find lamp oil?", "what should I do first?",
    "how do I get out of the village?"};

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

Outcome FailureOf(const beast::error_code& error) {
  return error == beast::error::timeout ? Outcome::kTimedOut : Outcome::kCutShort;
}

// The reply as it arrives: the status line once, then one event per `data:` line.
class ReplyScan {
 public:
  // False once the reply is not a 200 stream.
  bool Take(std::string_view bytes, StreamSample& sample, Clock::time_point sent, Batch& batch) {
    pending_.append(bytes);
    if (!head_done_) {
      auto end = pending_.find("\r\n\r\n");
      if (end == std::string::npos) return true;
      if (pending_.compare(0, 12, "HTTP/1.1 200") != 0) return false;
      head_done_ = true;
      pending_.erase(0, end + 4);
    }
    for (auto eol = pending_.find('\n'); eol != std::string::npos; eol = pending_.find('\n')) {
      Line(std::string_view(pending_).substr(0, eol), sample, sent, batch);
      pending_.erase(0, eol + 1);
    }
    return true;
  }
  bool done = false;
  bool error_event = false;

 private:
  void Line(std::string_view line, StreamSample& sample, Clock::time_point sent, Batch& batch) {
    if (!line.starts_with("data:")) return;
    bool error = line.find("\"type\":\"error\"") != std::string_view::npos;
    error_event = error_event || error;
    done = done || line.find("\"type\":\"done\"") != std::string_view::npos;
    if (seen_event_) return;
    seen_event_ = true;
    if (!error) sample.first_event_ms = MillisecondsSince(sent);
    ++batch.first_events;
  }

  std::string pending_;
  bool head_done_ = false;
  bool seen_event_ = false;
};

}  // namespace

const char* OutcomeName(Outcome outcome) {
  static constexpr std::array<const char*, kOutcomes> names = {
      "answered", "refused", "error event", "no connection", "timed out", "cut short"};
  return names[static_cast<std::size_t>(outcome)];
}

StreamClient::StreamClient(asio::io_context& io, Target target)
    : io_(io), target_(std::move(target)) {}

std::shared_ptr<Batch> StreamClient::Launch(int count, double per_second,
                                            Clock::time_point deadline) {
  auto batch = std::make_shared<Batch>(count);
  asio::co_spawn(io_, Pace(batch, per_second, deadline), asio::detached);
  return batch;
}

awaitable<void> StreamClient::Pace(std::shared_ptr<Batch> batch, double per_second,
                                   Clock::time_point deadline) {
  asio::steady_timer timer(io_);
  Clock::time_point start = Clock::now();
  for (std::size_t i = 0; i < batch->samples.size(); ++i) {
    if (per_second > 0) {
      timer.expires_at(start + std::chrono::duration_cast<Clock::duration>(
                                   std::chrono::duration<double>(i / per_second)));
      co_await timer.async_wait(kTuple);
    }
    asio::co_spawn(io_, Stream(batch, i, deadline), asio::detached);
  }
}

std::string StreamClient::RequestFor(std::size_t index) const {
  std::string body = "{\"game\":\"" + target_.game + "\",\"message\":\"" +
                     std::string(kQuestions[index % kQuestions.size()]) + "\"}";
  return "POST /v1/chat HTTP/1.1\r\nHost: " + target_.host + "\r\nAuthorization: Bearer " +
         target_.tokens[index % target_.tokens.size()] +
         "\r\nAccept: text/event-stream\r\nContent-Type: application/json\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

awaitable<void> StreamClient::Stream(std::shared_ptr<Batch> batch, std::size_t index,
                                     Clock::time_point deadline) {
  StreamSample& sample = batch->samples[index];
  beast::tcp_stream stream(io_);
  stream.expires_at(deadline);
  tcp::endpoint server(asio::ip::make_address(target_.host), target_.port);
  auto [connect_error] = co_await stream.async_connect(server, kTuple);
  if (connect_error) sample.outcome = Outcome::kNoConnection;
  std::string request = RequestFor(index);
  Clock::time_point sent = Clock::now();
  auto [write_error, written] =
      connect_error ? std::tuple(connect_error, std::size_t{0})
                    : co_await asio::async_write(stream, asio::buffer(request), kTuple);
  if (!connect_error && write_error) sample.outcome = FailureOf(write_error);
  ReplyScan scan;
  std::array<char, 2048> chunk{};
  bool readable = !connect_error && !write_error;
  while (readable) {
    auto [error, bytes] = co_await stream.async_read_some(asio::buffer(chunk), kTuple);
    if (!scan.Take({chunk.data(), bytes}, sample, sent, *batch)) {
      sample.outcome = Outcome::kRefused;
      break;
    }
    if (error == asio::error::eof) {
      sample.outcome = scan.error_event ? Outcome::kErrorEvent
                       : scan.done      ? Outcome::kAnswered
                                        : Outcome::kCutShort;
      break;
    }
    if (error) sample.outcome = FailureOf(error);
    readable = !error;
  }
  ++batch->finished;
}

}  // namespace hintwick::bench
