#pragma once
// A real hintwick service in the test's process, on a free loopback port, over a real store:
// SQLite in a scratch folder always, and PostgreSQL when the cluster fixture gives its URL.
#include <boost/asio.hpp>
#include <boost/json/value.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "service.h"

namespace hintwick::test {

struct Response {
  int status = 0;  // 0: no response
  std::string body;
  std::string retry_after;
  boost::json::value Json() const;  // null when the body is not JSON
  std::string Member(const char* key) const;  // a string member of the body, or empty
};

std::string PostgresUrl();  // empty when no cluster runs
std::vector<std::string> StoreKinds();  // "sqlite", and "postgres" when one runs
inline std::string StoreName(const ::testing::TestParamInfo<std::string>& info) { return info.param; }

struct ScratchDir {
  ScratchDir();
  ~ScratchDir();
  std::filesystem::path path;
};

// Unique per call, so that tests sharing one PostgreSQL never meet.
std::string UniqueName(const std::string& prefix);
std::string UniqueEmail();
std::string RandomAddress();  // in 10/8, sent as X-Forwarded-For

std::string ReadFile(const std::string& path);  // empty when it cannot be read

// The stand-in game of server/packs, whose pack the chat tests import.
inline constexpr const char* kGame = "hintwick_test_game";
void ImportSamplePack(Store& store);
// A question as the program asks it, raw, welcoming gzip as a browser-like client would.
std::string ChatRequest(const std::string& token, const std::string& message);

Response CallPort(std::uint16_t port, const std::string& method, const std::string& path,
                  const std::string& body, const std::string& bearer,
                  const std::string& forwarded_for = "");
// Raw bytes in; what comes back before the service closes or `wait` passes.
std::string RawExchange(std::uint16_t port, const std::string& bytes,
                        std::chrono::milliseconds wait);

// A player's connection, read as the bytes come.
struct Player {
  // From `source`, any address of the loopback network, so that a proxy's own differs.
  Player(std::uint16_t port, const std::string& request, const char* source = "127.0.0.1") {
    boost::system::error_code ec;
    socket.open(boost::asio::ip::tcp::v4(), ec);
    socket.bind({boost::asio::ip::make_address(source), 0}, ec);
    socket.connect({boost::asio::ip::make_address("127.0.0.1"), port}, ec);
    boost::asio::write(socket, boost::asio::buffer(request), ec);
  }
  // Whether `wanted` has arrived within `wait`; false as soon as the peer closes without it.
  bool Receives(const std::string& wanted, std::chrono::milliseconds wait) {
    const auto end = std::chrono::steady_clock::now() + wait;
    while (received.find(wanted) == std::string::npos) {
      boost::system::error_code ec;
      if (std::chrono::steady_clock::now() > end) return false;
      if (socket.available(ec) == 0 && !ec) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        continue;
      }
      char chunk[4096];
      const std::size_t got = socket.read_some(boost::asio::buffer(chunk), ec);
      if (ec) return false;
      received.append(chunk, got);
    }
    return true;
  }
  std::string Head() const { return received.substr(0, received.find("\r\n\r\n")); }

  boost::asio::io_context io;
  boost::asio::ip::tcp::socket socket{io};
  std::string received;
};

class TestService {
 public:
  // Trusts X-Forwarded-For, so that each test is an address of its own to the rate limits.
  explicit TestService(const std::string& store_kind, Config config = {});
  ~TestService() { Stop(); }

  Response Call(const std::string& method, const std::string& path, const std::string& body = "",
                const std::string& bearer = "") const {
    return CallPort(port, method, path, body, bearer, address);
  }
  std::string Raw(const std::string& bytes, std::chrono::milliseconds wait) const {
    return RawExchange(port, bytes, wait);
  }
  void Stop();
  Store& store() { return service_->store(); }
  // A new account's tokens, as the registration answered.
  struct Tokens {
    std::string access, refresh;
  };
  Tokens SignUp(const std::string& email = UniqueEmail()) const;

  ScratchDir scratch;
  Config config;
  std::uint16_t port = 0;
  std::string address = RandomAddress();

 private:
  std::unique_ptr<Service> service_;
  std::thread runner_;
};

}  // namespace hintwick::test
