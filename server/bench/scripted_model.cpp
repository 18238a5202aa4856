#include "scripted_model.h"

#include <array>
#include <string>
#include <string_view>

#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>

namespace hintwick::bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using asio::awaitable;
using asio::ip::tcp;
constexpr auto kTuple = asio::as_tuple(asio::use_awaitable);

// The bridge gives up on a completion quiet for 30 s; a held one says something well before.
constexpr std::chrono::seconds kPulse{5};

// Spoiler-free for the sample pack, and the first piece longer than the spoiler guard's
// hold-back, so the first piece alone already makes a token event.
constexpr std::array<std::string_view, 4> kPieces = {
    "Walk the shore path east until the lamps start and look for the door with the gull. ",
    "Knock twice, ",
    "then wait for the tide bell. ",
    "That is all it takes."};

std::string DataLine(std::string_view text) {
  return "data: {\"choices\":[{\"delta\":{\"content\":\"" + std::string(text) + "\"}}]}\n\n";
}

// Close-delimited, as many model servers stream.
const std::string kHead =
    "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nCache-Control: no-cache\r\n"
    "Connection: close\r\n\r\n";

}  // namespace

ScriptedModel::ScriptedModel(asio::io_context& io)
    : io_(io), acceptor_(io, tcp::endpoint(asio::ip::make_address("127.0.0.1"), 0)),
      gate_(io, asio::steady_timer::time_point::max()), pulse_(io) {}

std::uint16_t ScriptedModel::Port() const { return acceptor_.local_endpoint().port(); }

void ScriptedModel::Start() {
  acceptor_.listen(asio::socket_base::max_listen_connections);
  asio::co_spawn(io_, Accept(), asio::detached);
  asio::co_spawn(io_, Pulse(), asio::detached);
}

void ScriptedModel::Hold() {
  asio::post(io_, [this] { held_ = true; });
}

void ScriptedModel::Release() {
  asio::post(io_, [this] {
    held_ = false;
    gate_.cancel();
  });
}

awaitable<void> ScriptedModel::Accept() {
  for (;;) {
    auto [error, socket] = co_await acceptor_.async_accept(kTuple);
    if (error == asio::error::operation_aborted) co_return;
    if (error) continue;  // out of descriptors: the service sees a failed model, which counts
    asio::co_spawn(io_, Serve(std::move(socket)), asio::detached);
  }
}

awaitable<void> ScriptedModel::Pulse() {
  for (;;) {
    pulse_.expires_after(kPulse);
    auto [error] = co_await pulse_.async_wait(kTuple);
    if (error) co_return;
    if (held_) gate_.cancel();
  }
}

// False when the service went away while the completion was held.
awaitable<bool> ScriptedModel::AwaitRelease(tcp::socket& socket) {
  while (held_) {
    co_await gate_.async_wait(kTuple);
    if (!held_) break;
    auto [error, bytes] = co_await asio::async_write(socket, asio::buffer(": held\n\n", 8), kTuple);
    if (error) co_return false;
  }
  co_return true;
}

awaitable<void> ScriptedModel::Serve(tcp::socket socket) {
  beast::flat_buffer buffer;
  http::request<http::string_body> request;
  auto [read_error, read] = co_await http::async_read(socket, buffer, request, kTuple);
  if (read_error) co_return;
  ++completions_;
  asio::steady_timer delay(io_, std::chrono::milliseconds(delay_ms_.load()));
  co_await delay.async_wait(kTuple);
  std::string first = kHead + DataLine(kPieces[0]);
  auto [head_error, head] = co_await asio::async_write(socket, asio::buffer(first), kTuple);
  if (head_error || !co_await AwaitRelease(socket)) co_return;
  std::string rest;
  for (std::size_t i = 1; i < kPieces.size(); ++i) rest += DataLine(kPieces[i]);
  rest += "data: [DONE]\n\n";
  co_await asio::async_write(socket, asio::buffer(rest), kTuple);
  boost::system::error_code ignored;
  socket.shutdown(tcp::socket::shutdown_send, ignored);
}

}  // namespace hintwick::bench
