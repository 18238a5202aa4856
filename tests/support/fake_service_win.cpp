#include <windows.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <iterator>
#include <map>
#include <mutex>
#include <string_view>
#include <thread>

#include "support/fake_service.h"

namespace qn::test {
namespace {

struct InvalidSocketIsInvalid {
  template <typename H>
  static H Invalid() noexcept {
    return INVALID_SOCKET;
  }
};
using UniqueSocket = UniqueHandle<SOCKET, &closesocket, InvalidSocketIsInvalid>;

// Every socket wait wakes up this often to notice that the service is stopping, so that no
// connection (however silent its peer) can hold up the destructor.
constexpr long kPollMicroseconds = 20 * 1000;
constexpr DWORD kGateGiveUpMs = 10000;
constexpr size_t kMaxRequestHead = 64 * 1024;
constexpr size_t kSendPiece = 64 * 1024;

// Once for the whole test program and never undone: a service's sockets may close after any
// one scope that would pair a WSACleanup with its start.
void StartWinsock() {
  static WSADATA data{};
  static const int started = WSAStartup(MAKEWORD(2, 2), &data);
  (void)started;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

}  // namespace

struct ServiceState {
  UniqueSocket listener;
  UniqueKernelHandle stop{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  mutable std::mutex mutex;
  std::map<std::string, std::vector<ScriptedReply>> routes;
  std::vector<RecordedRequest> requests;
  std::vector<std::thread> connections;
  std::thread acceptor;

  bool Stopping() const { return WaitForSingleObject(stop.get(), 0) == WAIT_OBJECT_0; }
  ScriptedReply Record(RecordedRequest request);
};

namespace {

using State = ServiceState;

// True when the socket is ready (or in error, which the next call reports); false once
// the service stops.
bool WaitReady(const State& state, SOCKET socket, bool for_write) {
  while (!state.Stopping()) {
    fd_set set;
    FD_ZERO(&set);
    FD_SET(socket, &set);
    timeval wait{0, kPollMicroseconds};
    const int ready =
        select(0, for_write ? nullptr : &set, for_write ? &set : nullptr, nullptr, &wait);
    if (ready != 0) return true;
  }
  return false;
}

// Appends what arrives; false when the peer has closed or failed, or the service stops.
bool ReceiveSome(const State& state, SOCKET socket, std::string& data) {
  if (!WaitReady(state, socket, false)) return false;
  char buffer[16 * 1024];
  const int got = recv(socket, buffer, static_cast<int>(sizeof(buffer)), 0);
  if (got == SOCKET_ERROR) return WSAGetLastError() == WSAEWOULDBLOCK;
  data.append(buffer, static_cast<size_t>(got));
  return got > 0;
}

void HoldUntilPeerCloses(const State& state, SOCKET socket) {
  std::string ignored;
  while (ReceiveSome(state, socket, ignored)) ignored.clear();
}

bool SendAll(const State& state, SOCKET socket, std::string_view bytes) {
  while (!bytes.empty()) {
    if (!WaitReady(state, socket, true)) return false;
    const int piece = static_cast<int>(std::min(bytes.size(), kSendPiece));
    const int sent = send(socket, bytes.data(), piece, 0);
    if (sent == SOCKET_ERROR) {
      if (WSAGetLastError() == WSAEWOULDBLOCK) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// Gives up after a while so that a test that never opens its gate fails instead of hanging.
bool WaitGate(const State& state, const Gate& gate) {
  const HANDLE handles[] = {gate.native(), state.stop.get()};
  return WaitForMultipleObjects(2, handles, FALSE, kGateGiveUpMs) != WAIT_OBJECT_0 + 1;
}

std::string ReplyHead(const ScriptedReply& reply) {
  // The client reads only the code; the phrase is there because HTTP asks for one.
  std::string head =
      "HTTP/1.1 " + std::to_string(reply.status) + (reply.status < 400 ? " OK\r\n" : " Error\r\n");
  for (const auto& [name, value] : reply.headers) head += name + ": " + value + "\r\n";
  if (reply.chunks.empty()) {
    head += "Content-Length: " + std::to_string(reply.body.size()) + "\r\n";
  } else if (reply.chunked) {
    head += "Transfer-Encoding: chunked\r\n";
  }
  return head + "Connection: close\r\n\r\n";
}

std::string ChunkSizeLine(size_t size) {
  char digits[32];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), size, 16).ptr;
  return std::string(digits, end) + "\r\n";
}

bool WriteChunks(const State& state, SOCKET socket, const ScriptedReply& reply) {
  for (const ReplyChunk& chunk : reply.chunks) {
    if (chunk.wait_for && !WaitGate(state, *chunk.wait_for)) return false;
    std::string bytes = chunk.bytes;
    // An empty frame would end the body early.
    if (reply.chunked && !bytes.empty()) bytes = ChunkSizeLine(bytes.size()) + bytes + "\r\n";
    if (!SendAll(state, socket, bytes)) return false;
    if (chunk.opens) chunk.opens->Open();
  }
  return !reply.chunked || SendAll(state, socket, "0\r\n\r\n");
}

void WriteReply(const State& state, SOCKET socket, const ScriptedReply& reply) {
  if (reply.raw) {
    SendAll(state, socket, *reply.raw);
  } else if (SendAll(state, socket, ReplyHead(reply))) {
    if (reply.chunks.empty()) {
      SendAll(state, socket, reply.body);
    } else {
      WriteChunks(state, socket, reply);
    }
  }
}

RecordedRequest ParseHead(std::string_view head) {
  RecordedRequest request;
  size_t end = head.find("\r\n");
  const std::string_view line = head.substr(0, end);
  const size_t first = line.find(' ');
  const size_t second = line.find(' ', first == line.npos ? line.size() : first + 1);
  request.method = line.substr(0, first);
  if (first != line.npos) request.path = line.substr(first + 1, second - first - 1);
  while (end != head.npos) {
    const size_t start = end + 2;
    end = head.find("\r\n", start);
    const std::string_view field = head.substr(start, end - start);
    const size_t colon = field.find(':');
    if (colon == field.npos) continue;
    request.headers.emplace_back(Trim(field.substr(0, colon)), Trim(field.substr(colon + 1)));
  }
  return request;
}

// Reads one request; nothing when the peer goes away first or the head is absurd.
std::optional<RecordedRequest> ReadRequest(const State& state, SOCKET socket) {
  std::string data;
  size_t head_end = 0;
  while ((head_end = data.find("\r\n\r\n")) == std::string::npos) {
    if (data.size() > kMaxRequestHead || !ReceiveSome(state, socket, data)) return std::nullopt;
  }
  RecordedRequest request = ParseHead(std::string_view(data).substr(0, head_end));
  std::string body = data.substr(head_end + 4);
  // Chunked request bodies are not used by the client; such a body is recorded as empty.
  const size_t length = std::stoul(request.Header("Content-Length").value_or("0"));
  while (body.size() < length) {
    if (!ReceiveSome(state, socket, body)) break;
  }
  request.body = body.substr(0, length);
  return request;
}

void Serve(const std::shared_ptr<State>& state, SOCKET socket) {
  u_long nonblocking = 1;
  ioctlsocket(socket, FIONBIO, &nonblocking);
  std::optional<RecordedRequest> request = ReadRequest(*state, socket);
  if (!request) return;
  const ScriptedReply reply = state->Record(std::move(*request));
  if (!reply.never_answer) {
    WriteReply(*state, socket, reply);
    shutdown(socket, SD_SEND);
  }
  // Closing before the client has read everything could reset the connection under it.
  HoldUntilPeerCloses(*state, socket);
}

void ServeThread(std::shared_ptr<State> state, UniqueSocket socket) noexcept {
  // Nothing may escape a thread; a failure here shows in the test as a wrong or missing reply.
  try {
    Serve(state, socket.get());
  } catch (...) {
  }
}

void AcceptThread(std::shared_ptr<State> state) noexcept {
  try {
    while (WaitReady(*state, state->listener.get(), false)) {
      UniqueSocket peer(accept(state->listener.get(), nullptr, nullptr));
      if (!peer) continue;
      std::lock_guard lock(state->mutex);
      state->connections.emplace_back(ServeThread, state, std::move(peer));
    }
  } catch (...) {
  }
}

}  // namespace

ScriptedReply ServiceState::Record(RecordedRequest request) {
  std::lock_guard lock(mutex);
  const std::string route = request.method + " " + request.path;
  requests.push_back(std::move(request));
  const auto found = routes.find(route);
  if (found == routes.end() || found->second.empty()) {
    ScriptedReply missing;
    missing.status = 404;
    return missing;
  }
  std::vector<ScriptedReply>& queue = found->second;
  ScriptedReply reply = queue.front();
  if (queue.size() > 1) queue.erase(queue.begin());
  return reply;
}

Gate::Gate() : event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

void Gate::Open() { SetEvent(event_.get()); }

bool Gate::Wait(DWORD timeout_ms) const {
  return WaitForSingleObject(event_.get(), timeout_ms) == WAIT_OBJECT_0;
}

std::optional<std::string> RecordedRequest::Header(const std::string& name) const {
  for (const auto& [key, value] : headers) {
    if (_stricmp(key.c_str(), name.c_str()) == 0) return value;
  }
  return std::nullopt;
}

FakeService::FakeService() : state_(std::make_shared<ServiceState>()) {
  StartWinsock();
  state_->listener.reset(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int size = sizeof(address);
  u_long nonblocking = 1;
  if (bind(state_->listener.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(state_->listener.get(), SOMAXCONN) != 0 ||
      getsockname(state_->listener.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
      ioctlsocket(state_->listener.get(), FIONBIO, &nonblocking) != 0) {
    ADD_FAILURE() << "fake service could not listen: " << WSAGetLastError();
    return;
  }
  port_ = ntohs(address.sin_port);
  state_->acceptor = std::thread(AcceptThread, state_);
}

FakeService::~FakeService() {
  SetEvent(state_->stop.get());
  if (state_->acceptor.joinable()) state_->acceptor.join();
  std::vector<std::thread> connections;
  {
    std::lock_guard lock(state_->mutex);
    connections.swap(state_->connections);
  }
  for (std::thread& connection : connections) connection.join();
}

std::wstring FakeService::BaseUrl() const { return L"http://127.0.0.1:" + std::to_wstring(port_); }

void FakeService::Script(const std::string& method, const std::string& path, ScriptedReply reply) {
  std::lock_guard lock(state_->mutex);
  state_->routes[method + " " + path].push_back(std::move(reply));
}

std::vector<RecordedRequest> FakeService::Requests() const {
  std::lock_guard lock(state_->mutex);
  return state_->requests;
}

uint16_t UnusedLoopbackPort() {
  StartWinsock();
  const UniqueSocket probe(socket(AF_INET, SOCK_STREAM, IPPROTO_TCP));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int size = sizeof(address);
  if (bind(probe.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      getsockname(probe.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return 0;
  }
  return ntohs(address.sin_port);  // free again once the probe closes
}

}  // namespace qn::test
