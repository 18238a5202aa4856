#include "scripted_model.h"

#include <poll.h>

#include <sstream>

namespace hintwick::test {
namespace asio = boost::asio;
using tcp = asio::ip::tcp;

std::string Data(std::string_view json) { return "data: " + std::string(json) + "\n\n"; }

std::string Content(std::string_view text) {
  return Data(R"({"choices":[{"delta":{"content":")" + std::string(text) + R"("}}]})");
}

namespace {

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

std::string RequestBody(tcp::socket& socket) {
  std::string request;
  boost::system::error_code ec;
  asio::read_until(socket, asio::dynamic_buffer(request), "\r\n\r\n", ec);
  const std::size_t head = request.find("\r\n\r\n") + 4, length_at = request.find("Content-Length: ");
  if (ec || length_at == std::string::npos) return "";
  const std::size_t length = std::stoul(request.substr(length_at + 16));
  if (request.size() < head + length)
    asio::read(socket, asio::dynamic_buffer(request), asio::transfer_exactly(head + length - request.size()), ec);
  return request.substr(head);
}

void Chunk(tcp::socket& socket, const std::string& bytes, boost::system::error_code& ec) {
  std::ostringstream chunk;
  chunk << std::hex << bytes.size() << "\r\n" << bytes << "\r\n";
  if (!ec) asio::write(socket, asio::buffer(chunk.str()), ec);
}

}  // namespace

ScriptedModel::ScriptedModel(std::vector<Script> scripts)
    : scripts_(std::move(scripts)),
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

std::vector<std::string> ScriptedModel::Requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
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
  const Script& script = scripts_[std::min<std::size_t>(answer, scripts_.size()) - 1];
  std::string body = RequestBody(socket);
  {
    const std::lock_guard lock(mutex_);
    requests_.push_back(std::move(body));
  }
  boost::system::error_code ec;
  asio::write(socket,
              asio::buffer("HTTP/1.1 " + script.status +
                           "\r\nContent-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n\r\n"),
              ec);
  for (const Step& step : script.steps) {
    std::this_thread::sleep_for(step.pause);
    Chunk(socket, step.bytes, ec);
  }
  while (!ec && !stopping_ && script.held && (script.rest.empty() || released_ < answer)) {
    if (PeerClosed(socket, 10)) return;
  }
  if (!script.rest.empty()) Chunk(socket, script.rest, ec);
  if (!ec && !stopping_) asio::write(socket, asio::buffer(std::string("0\r\n\r\n")), ec);
}

}  // namespace hintwick::test
