#pragma once
// nginx in front of a test's service, from a configuration the test writes: one process (no
// workers to leave behind) in a scratch folder, run as whoever runs the test, on a free
// loopback port.
#include <sys/types.h>

#include <cstdint>
#include <filesystem>
#include <string>

namespace hintwick::test {

// The block of `markdown` between the line holding `begin` and the next line holding `end`,
// without its ``` fence lines; empty when either marker is missing.
std::string FencedBlock(const std::string& markdown, const std::string& begin,
                        const std::string& end);

// Every `from` in `text` made `to`.
std::string Replaced(std::string text, const std::string& from, const std::string& to);

class Nginx {
 public:
  // `http_block` is the inside of the http { } block, with "{port}" where the server listens.
  // A port another process takes first makes nginx fail to bind; it is then started again on
  // another port, a few times.
  Nginx(const std::string& program, const std::filesystem::path& folder,
        const std::string& http_block);
  ~Nginx();
  Nginx(const Nginx&) = delete;
  Nginx& operator=(const Nginx&) = delete;

  bool Running() const { return pid_ > 0; }
  // Why it is not running: nginx's own words.
  const std::string& failure() const { return failure_; }
  std::uint16_t port() const { return port_; }

 private:
  bool Start(const std::string& program, const std::string& http_block);
  void Stop();

  std::filesystem::path folder_;
  pid_t pid_ = -1;
  std::uint16_t port_ = 0;
  std::string failure_;
};

}  // namespace hintwick::test
