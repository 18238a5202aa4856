#pragma once
// The HTTP/1.1 listener: one I/O thread runs every connection as a coroutine; handlers run on
// two bounded pools (the store's, and a smaller one for password hashing) and the coroutine
// resumes with their reply. Stopping closes the listener, ends idle connections and lets the
// requests in flight finish, up to the drain time-out.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "http/message.h"
#include "http/parse.h"

namespace hintwick {

class Metrics;

struct ServerOptions {
  std::string host = "127.0.0.1";
  std::uint16_t port = 8080;  // 0: any free port, see Port()
  WireLimits limits;
  std::chrono::seconds read_timeout{10};
  std::chrono::seconds idle_timeout{60};
  std::chrono::seconds drain_timeout{30};
  std::chrono::milliseconds keepalive{15000};  // the longest quiet in a streamed reply
  std::string tls_cert, tls_key;  // PEM files; empty: plain HTTP
  bool trust_forwarded_for = false;
  int store_threads = 4;
  int hash_threads = 2;
  int hash_queue = 64;
};

class Server {
 public:
  Server(ServerOptions options, Handler& handler, Metrics& metrics);
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Opens the listening socket (and reads the TLS files); the words of the failure if not.
  std::optional<std::string> Bind();
  std::uint16_t Port() const;
  std::string BaseUrl() const;
  // From now on SIGTERM and SIGINT stop the server (call before announcing it).
  void StopOnSignals();
  // Runs `job` on the store's pool every `interval` while serving, the first time one interval
  // after Run starts. Call before Run.
  void Every(std::chrono::seconds interval, std::function<void()> job);
  // Serves until Stop (or a signal); returns once drained.
  void Run();
  // Safe from any thread.
  void Stop();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace hintwick
