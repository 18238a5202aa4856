#include "service_fixture.h"

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/json.hpp>
#include <gtest/gtest.h>
#include <sodium.h>

#include <atomic>
#include <cstdlib>

#include "api/api.h"
#include "api/release.h"
#include "http/server.h"
#include "ops/metrics.h"

namespace hintwick::test {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

namespace {

std::string RandomHex(std::size_t bytes) {
  std::string raw(bytes, '\0');
  randombytes_buf(raw.data(), raw.size());
  std::string hex(bytes * 2 + 1, '\0');
  sodium_bin2hex(hex.data(), hex.size(), reinterpret_cast<unsigned char*>(raw.data()), bytes);
  hex.pop_back();
  return hex;
}

}  // namespace

boost::json::value Response::Json() const {
  boost::system::error_code ec;
  auto value = boost::json::parse(body, ec);
  return ec ? boost::json::value() : value;
}

std::string PostgresUrl() {
  const char* url = std::getenv("HINTWICK_TEST_POSTGRES_URL");
  return url ? url : "";
}

std::vector<std::string> StoreKinds() {
  std::vector<std::string> kinds{"sqlite"};
  if (!PostgresUrl().empty()) kinds.push_back("postgres");
  return kinds;
}

ScratchDir::ScratchDir() {
  path = std::filesystem::temp_directory_path() / UniqueName("hintwick-test-");
  std::filesystem::create_directories(path);
}

ScratchDir::~ScratchDir() {
  std::error_code ec;
  std::filesystem::remove_all(path, ec);
}

std::string UniqueName(const std::string& prefix) {
  if (sodium_init() < 0) return prefix;
  return prefix + RandomHex(6);
}

std::string RandomAddress() {
  if (sodium_init() < 0) return "10.0.0.1";
  auto octet = [] { return std::to_string(randombytes_uniform(250) + 1); };
  return "10." + octet() + "." + octet() + "." + octet();
}

std::string UniqueEmail() { return UniqueName("player-") + "@example.org"; }

struct TestService::Parts {
  std::unique_ptr<Store> store;
  std::unique_ptr<PasswordHasher> hasher;
  std::unique_ptr<Accounts> accounts;
  Metrics metrics;
  std::unique_ptr<Release> release;
  std::unique_ptr<Api> api;
  std::unique_ptr<Server> server;
};

Config TestService::FastConfig() {
  Config config;
  config.trust_forwarded_for = true;
  config.listen_port = 0;
  return config;
}

TestService::TestService(const std::string& store_kind, Config given)
    : config(std::move(given)), parts_(std::make_unique<Parts>()) {
  config.listen_host = "127.0.0.1";
  config.data_dir = scratch.path.string();
  config.database_url = store_kind == "postgres" ? PostgresUrl() : "";
  address = RandomAddress();
  auto opened = OpenStore(config.DatabaseUrl(), config.store_threads + config.hash_threads);
  if (auto* error = std::get_if<StoreError>(&opened)) {
    ADD_FAILURE() << "cannot open the store: " << error->text;
    return;
  }
  Parts& p = *parts_;
  p.store = std::move(std::get<std::unique_ptr<Store>>(opened));
  p.hasher = std::make_unique<PasswordHasher>(
      HashCost{static_cast<unsigned long long>(config.argon2_passes),
               static_cast<std::size_t>(config.argon2_mib) << 20});
  p.accounts = std::make_unique<Accounts>(*p.store, *p.hasher, config.tokens);
  p.release = std::make_unique<Release>(config.ReleaseDir());
  p.api = std::make_unique<Api>(Services{config, *p.store, *p.accounts, p.metrics, *p.release});
  ServerOptions options;
  options.port = 0;
  options.limits = {config.body_limit, config.header_limit};
  options.read_timeout = config.read_timeout;
  options.idle_timeout = config.idle_timeout;
  options.drain_timeout = config.drain_timeout;
  options.trust_forwarded_for = config.trust_forwarded_for;
  options.hash_threads = config.hash_threads;
  options.hash_queue = config.hash_queue;
  p.server = std::make_unique<Server>(options, *p.api, p.metrics);
  if (auto error = p.server->Bind()) {
    ADD_FAILURE() << *error;
    return;
  }
  port = p.server->Port();
  runner_ = std::thread([server = p.server.get()] { server->Run(false); });
}

TestService::~TestService() { Stop(); }

Store& TestService::store() const { return *parts_->store; }

void TestService::Stop() {
  if (!runner_.joinable()) return;
  parts_->server->Stop();
  runner_.join();
}

Response TestService::Call(const std::string& method, const std::string& path,
                           const std::string& body, const std::string& bearer) const {
  return CallPort(port, method, path, body, bearer, address);
}

Response CallPort(std::uint16_t port, const std::string& method, const std::string& path,
                  const std::string& body, const std::string& bearer,
                  const std::string& forwarded_for) {
  asio::io_context io;
  beast::tcp_stream stream(io);
  boost::system::error_code ec;
  stream.connect(tcp::endpoint(asio::ip::make_address("127.0.0.1"), port), ec);
  if (ec) return {};
  http::request<http::string_body> request(http::string_to_verb(method), path, 11);
  request.set(http::field::host, "127.0.0.1:" + std::to_string(port));
  request.set(http::field::content_type, "application/json");
  if (!bearer.empty()) request.set(http::field::authorization, "Bearer " + bearer);
  if (!forwarded_for.empty()) request.set("X-Forwarded-For", forwarded_for);
  request.body() = body;
  request.prepare_payload();
  http::write(stream, request, ec);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  if (!ec) http::read(stream, buffer, response, ec);
  if (ec) return {};
  return {static_cast<int>(response.result_int()), response.body(),
          std::string(response[http::field::retry_after]),
          std::string(response[http::field::content_type])};
}

std::string TestService::Raw(const std::string& bytes, std::chrono::milliseconds wait) const {
  asio::io_context io;
  tcp::socket socket(io);
  boost::system::error_code ec;
  socket.connect(tcp::endpoint(asio::ip::make_address("127.0.0.1"), port), ec);
  if (ec) return {};
  asio::write(socket, asio::buffer(bytes), ec);
  std::string received;
  auto deadline = std::chrono::steady_clock::now() + wait;
  socket.non_blocking(true);
  char chunk[4096];
  while (std::chrono::steady_clock::now() < deadline) {
    std::size_t n = socket.read_some(asio::buffer(chunk), ec);
    if (ec == asio::error::would_block) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      continue;
    }
    if (ec) break;
    received.append(chunk, n);
  }
  return received;
}

}  // namespace hintwick::test
