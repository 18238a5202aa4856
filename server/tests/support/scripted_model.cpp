#include "scripted_model.h"

#include <poll.h>

namespace hintwick::test {
namespace asio = boost::asio;
using tcp = asio::ip::tcp;

namespace {

std::string Piece(const std::string& text) {
  return "data: {\"choices\":[{\"delta\":{\"content\":\"" + text + "\"}}]}\n\n";
}

// Whether the peer closed (or broke) the connection within `wait`; reading discards nothing
// the bridge would need, as it sends only its request.
bool PeerClosed(tcp::socket& socket, int wait_ms) {
  pollfd watched{socket.native_handle(), POLLIN, 0};
  if (::poll(&watched, 1, wait_ms) <= 0) return false;
  char byte;
  boost::system::error_code ec;
  socket.read_some(asio::buffer(&byte, 1), ec);
  return static_cast<bool>(ec);
}

}  // namespace

ScriptedModel::ScriptedModel(std::string first, std::string rest)
    : first_(std::move(first)),
      rest_(std::move(rest)),
      acceptor_(io_, {asio::ip::make_address("127.0.0.1"), 0}),
      thread_([this] { Serve(); }) {}

ScriptedModel::~ScriptedModel() {
  stopping_ = true;
  boost::system::error_code ignored;
  tcp::socket(io_).connect(acceptor_.local_endpoint(), ignored);  // wakes the accept
  thread_.join();
}

std::string ScriptedModel::Url() const {
  return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port());
}

void ScriptedModel::Serve() {
  boost::system::error_code ec;
  for (int answer = 1; !ec && !stopping_; ++answer) {
    tcp::socket socket(io_);
    acceptor_.accept(socket, ec);
    if (!ec && !stopping_) Answer(socket, answer);
    ++closed_;
  }
}

void ScriptedModel::Answer(tcp::socket& socket, int answer) {
  boost::system::error_code ec;
  std::string request;
  asio::read_until(socket, asio::dynamic_buffer(request), "\r\n\r\n", ec);
  asio::write(
      socket,
      asio::buffer("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n" + Piece(first_)),
      ec);
  while (!ec && !stopping_ && (rest_.empty() || released_ < answer)) {
    if (PeerClosed(socket, 10)) return;
  }
  if (!ec && !stopping_) asio::write(socket, asio::buffer(Piece(rest_) + "data: [DONE]\n\n"), ec);
}

}  // namespace hintwick::test
