#pragma once
// A real hintwick service in the test's process, on a free loopback port, over a real store:
// SQLite in a scratch folder always, and PostgreSQL when the cluster fixture gives its URL.
#include <boost/json/value.hpp>
#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "config/config.h"

namespace hintwick::test {

struct Response {
  int status = 0;  // 0: no response
  std::string body;
  std::string retry_after;
  std::string content_type;
  boost::json::value Json() const;  // null when the body is not JSON
};

// The stores the protocol tests run on: "sqlite", and "postgres" when one is provided.
std::vector<std::string> StoreKinds();
std::string PostgresUrl();  // empty when no cluster runs
// Names each row after its store ("*/postgres"), for ctest's filters.
inline std::string StoreName(const ::testing::TestParamInfo<std::string>& info) { return info.param; }

// A folder removed again with the object.
struct ScratchDir {
  ScratchDir();
  ~ScratchDir();
  std::filesystem::path path;
};

class TestService {
 public:
  // `config` is taken as given, but listens on a free port of 127.0.0.1 and, for
  // "sqlite", keeps its database in a scratch folder.
  TestService(const std::string& store_kind, Config config = FastConfig());
  ~TestService();

  static Config FastConfig();  // trusts X-Forwarded-For, so each test has its own address

  Response Call(const std::string& method, const std::string& path, const std::string& body = "",
                const std::string& bearer = "") const;
  // Raw bytes in, whatever comes back before the peer closes or `wait` passes.
  std::string Raw(const std::string& bytes, std::chrono::milliseconds wait) const;
  void Stop();
  Store& store() const;

  std::uint16_t port = 0;
  std::string address;  // the X-Forwarded-For this service's calls carry
  ScratchDir scratch;
  Config config;

 private:
  struct Parts;
  std::unique_ptr<Parts> parts_;
  std::thread runner_;
};

// Unique per call, so tests sharing one PostgreSQL never meet.
std::string UniqueEmail();
std::string UniqueName(const std::string& prefix);
std::string RandomAddress();  // an IPv4 address in 10/8, for X-Forwarded-For

// A plain client of any service on loopback.
Response CallPort(std::uint16_t port, const std::string& method, const std::string& path,
                  const std::string& body, const std::string& bearer,
                  const std::string& forwarded_for = "");

}  // namespace hintwick::test
