#pragma once
// A stand-in for an OpenAI-compatible model server, on loopback in the bench's own process:
// every streamed completion starts after the same fixed delay, so whatever else the first
// event of a chat waited for was added by the service. While held, each completion stops
// after its first piece and stays open, so the service carries every stream of a round at the
// moment its memory is read.
#include <atomic>
#include <chrono>
#include <cstdint>

#include <boost/asio.hpp>

namespace hintwick::bench {

class ScriptedModel {
 public:
  // Listens on 127.0.0.1 at a free port; serves on `io`'s thread.
  explicit ScriptedModel(boost::asio::io_context& io);
  std::uint16_t Port() const;
  void Start();

  // Safe from any thread. The delay applies to completions that arrive from now on.
  void SetDelay(std::chrono::milliseconds delay) { delay_ms_ = delay.count(); }
  void Hold();
  void Release();
  long Completions() const { return completions_; }

 private:
  boost::asio::awaitable<void> Accept();
  boost::asio::awaitable<void> Serve(boost::asio::ip::tcp::socket socket);
  boost::asio::awaitable<bool> AwaitRelease(boost::asio::ip::tcp::socket& socket);
  boost::asio::awaitable<void> Pulse();

  boost::asio::io_context& io_;
  boost::asio::ip::tcp::acceptor acceptor_;
  // Never expires; cancelling it wakes every held completion at once.
  boost::asio::steady_timer gate_;
  boost::asio::steady_timer pulse_;
  bool held_ = false;  // the I/O thread's alone
  std::atomic<long> delay_ms_{200};
  std::atomic<long> completions_{0};
};

}  // namespace hintwick::bench
