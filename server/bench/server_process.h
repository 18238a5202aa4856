#pragma once
// hintwick-server as a child of the bench: started with the flags the bench was given plus
// the scripted model's address, read through /proc while it serves, stopped with SIGTERM.
#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace hintwick::bench {

class ServerProcess {
 public:
  // `command` is the executable and its flags; its output goes to `log`.
  ServerProcess(std::vector<std::string> command, std::string log);
  ~ServerProcess() { Stop(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;

  // The port it announced, once it listens; nothing if it did not start within 10 s.
  std::optional<std::uint16_t> Start();
  void Stop();

  long ResidentKiB() const;   // VmRSS
  double CpuSeconds() const;  // user and system time so far

 private:
  std::vector<std::string> command_;
  std::string log_;
  pid_t pid_ = -1;
};

// A bearer token for `email`: registered, or signed in when the account exists already.
std::optional<std::string> AccessToken(std::uint16_t port, const std::string& email);

}  // namespace hintwick::bench
