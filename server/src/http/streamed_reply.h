#pragma once
// One streamed reply on a connection, for server.cpp alone: the head, then the body's writes
// with `:` keep-alives in the quiet between them, while a read on the socket notices a client
// that leaves. Everything here runs on the I/O thread, so plain flags order the three
// coroutines; one write is on the socket at a time, so a keep-alive never lands inside an event.
#include <array>
#include <chrono>
#include <exception>
#include <string>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

#include "http/message.h"
#include "ops/log.h"

namespace hintwick::detail {

template <class Stream>
class StreamedReply {
 public:
  using Head = boost::beast::http::response<boost::beast::http::empty_body>;
  using SteadyClock = std::chrono::steady_clock;

  // A write the client has not taken within `write_timeout` counts as the client gone.
  StreamedReply(Stream& stream, StreamBody& body, std::chrono::milliseconds keepalive,
                std::chrono::milliseconds write_timeout)
      : stream_(stream),
        body_(body),
        keepalive_(keepalive),
        write_timeout_(write_timeout),
        wake_(stream.get_executor()),
        tick_(stream.get_executor()) {}

  // False when the client left before the body ended.
  boost::asio::awaitable<bool> Send(Head head) {
    namespace http = boost::beast::http;
    auto& transport = boost::beast::get_lowest_layer(stream_);
    transport.expires_never();  // the quiet of an answer is the keep-alive's to fill
    boost::system::error_code ignored;
    transport.socket().set_option(boost::asio::ip::tcp::no_delay(true), ignored);
    http::response_serializer<http::empty_body> serializer(head);
    auto [error, bytes] = co_await http::async_write_header(stream_, serializer, kTuple);
    if (error) co_return false;
    last_write_ = SteadyClock::now();
    Spawn(WatchClient());
    Spawn(KeepAlive());
    co_await RunBody();
    finished_ = true;
    transport.cancel();  // ends the watch's read
    tick_.cancel();
    while (helpers_ > 0) co_await Wait();
    co_return !gone_;
  }

 private:
  static constexpr auto kTuple = boost::asio::as_tuple(boost::asio::use_awaitable);

  boost::asio::awaitable<void> RunBody() {
    StreamWrite write = [this](std::string bytes) { return Write(std::move(bytes)); };
    try {
      co_await body_.Run(write);
    } catch (const std::exception& e) {
      LogLine(std::string("streamed reply failed: ") + e.what());
    }
  }

  void Spawn(boost::asio::awaitable<void> helper) {
    ++helpers_;
    boost::asio::co_spawn(stream_.get_executor(), std::move(helper),
                          [this](std::exception_ptr failure) {
                            if (failure) LogLine("a streamed reply's helper ended on an exception");
                            --helpers_;
                            wake_.cancel();
                          });
  }

  boost::asio::awaitable<void> Wait() {
    wake_.expires_at(SteadyClock::time_point::max());
    co_await wake_.async_wait(kTuple);
  }

  void Gone() {
    if (gone_) return;
    gone_ = true;
    body_.Cancel();
    boost::beast::get_lowest_layer(stream_).cancel();
    wake_.cancel();
  }

  boost::asio::awaitable<bool> Write(std::string bytes) {
    while (writing_ && !gone_) co_await Wait();
    if (gone_) co_return false;
    writing_ = true;
    write_started_ = SteadyClock::now();
    auto [error, written] =
        co_await boost::asio::async_write(stream_, boost::asio::buffer(bytes), kTuple);
    writing_ = false;
    last_write_ = SteadyClock::now();
    wake_.cancel();
    if (error) Gone();
    co_return !gone_;
  }

  // Bytes from the client are not expected while it reads the stream; only the end of its
  // side (or an error) means anything.
  boost::asio::awaitable<void> WatchClient() {
    std::array<char, 256> scratch{};
    while (!finished_ && !gone_) {
      auto [error, bytes] = co_await stream_.async_read_some(boost::asio::buffer(scratch), kTuple);
      if (error) break;
    }
    if (!finished_) Gone();
  }

  boost::asio::awaitable<void> KeepAlive() {
    while (!finished_ && !gone_) {
      tick_.expires_at((writing_ ? write_started_ + write_timeout_ : last_write_ + keepalive_));
      co_await tick_.async_wait(kTuple);
      if (finished_ || gone_) break;
      SteadyClock::time_point now = SteadyClock::now();
      if (writing_ && now - write_started_ >= write_timeout_) Gone();
      if (!writing_ && now - last_write_ >= keepalive_) co_await Write(":\n");
    }
  }

  Stream& stream_;
  StreamBody& body_;
  std::chrono::milliseconds keepalive_;
  std::chrono::milliseconds write_timeout_;
  boost::asio::steady_timer wake_;  // cancelled whenever a write or a helper ends
  boost::asio::steady_timer tick_;
  SteadyClock::time_point last_write_{};
  SteadyClock::time_point write_started_{};
  int helpers_ = 0;
  bool writing_ = false;
  bool finished_ = false;
  bool gone_ = false;
};

}  // namespace hintwick::detail
