#pragma once
// A scripted stand-in for the Hintwick service: a real HTTP/1.1 server on 127.0.0.1 that
// runs on a thread inside the test process. Tests script replies per route and assert
// exactly what the client sent.
#include <windows.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/handles.h"

namespace qn::test {

// A latch the test opens to let the server go on; lets tests order events without clocks.
class Gate {
 public:
  Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  void Open();
  // True when opened within the time; the server gives up waiting after it.
  bool Wait(DWORD timeout_ms = 10000) const;
  HANDLE native() const { return event_.get(); }

 private:
  UniqueKernelHandle event_;
};

struct RecordedRequest {
  std::string method;
  std::string path;  // as sent on the request line, undecoded
  std::vector<std::pair<std::string, std::string>> headers;  // in order received
  std::string body;
  // Value of the first header with this name (case-insensitive), if any.
  std::optional<std::string> Header(const std::string& name) const;
};

// One piece of a streamed reply.
struct ReplyChunk {
  std::string bytes;
  std::shared_ptr<Gate> wait_for;  // sent only once this gate opens (or its wait times out)
  std::shared_ptr<Gate> opens;     // opened by the server after the chunk has been sent
};

struct ScriptedReply {
  int status = 200;
  std::vector<std::pair<std::string, std::string>> headers;  // beyond Content-Length
  std::string body;                // sent with Content-Length when chunks is empty
  std::vector<ReplyChunk> chunks;  // when set: Transfer-Encoding: chunked, one chunk each
  // False sends the chunks bare, with no length: the body ends when the connection closes.
  bool chunked = true;
  std::optional<std::string> raw;  // when set: these bytes exactly, then the connection closes
  bool never_answer = false;       // read the request, then hold the connection silently
};

struct ServiceState;  // shared with the server's threads

class FakeService {
 public:
  FakeService();  // listens on a free loopback port at once
  ~FakeService();
  FakeService(const FakeService&) = delete;
  FakeService& operator=(const FakeService&) = delete;

  uint16_t port() const { return port_; }
  std::wstring BaseUrl() const;  // L"http://127.0.0.1:<port>"

  // Replies for "METHOD /path" are used in the order scripted; the last one repeats.
  // Unscripted routes get 404 with an empty body.
  void Script(const std::string& method, const std::string& path, ScriptedReply reply);
  std::vector<RecordedRequest> Requests() const;

 private:
  std::shared_ptr<ServiceState> state_;
  uint16_t port_ = 0;
};

// A loopback port with nothing listening on it, for refused connections.
uint16_t UnusedLoopbackPort();

inline ScriptedReply Reply(int status, std::string body = "") {
  ScriptedReply reply;
  reply.status = status;
  reply.body = std::move(body);
  return reply;
}

inline ScriptedReply Raw(std::string bytes) {
  ScriptedReply reply;
  reply.raw = std::move(bytes);
  return reply;
}

// The connection closes before any response: the client sees no answer at all.
inline ScriptedReply NoAnswer() { return Raw(""); }

}  // namespace qn::test
