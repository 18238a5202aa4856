#include "service_fixture.h"

#include <boost/asio.hpp>
#include <boost/beast/http.hpp>
#include <boost/json.hpp>
#include <sodium.h>

#include <fstream>
#include <sstream>

#include "packs/pack_parser.h"

namespace hintwick::test {
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using tcp = asio::ip::tcp;

boost::json::value Response::Json() const {
  boost::system::error_code ec;
  auto value = boost::json::parse(body, ec);
  return ec ? boost::json::value() : value;
}

std::string Response::Member(const char* key) const {
  auto value = Json();
  const auto* member = value.is_object() ? value.get_object().if_contains(key) : nullptr;
  return member && member->is_string() ? std::string(member->get_string()) : "";
}

TestService::Tokens TestService::SignUp(const std::string& email) const {
  auto reply = Call("POST", "/v1/auth/register",
                    R"({"email":")" + email + R"(","password":"correct horse"})");
  EXPECT_EQ(reply.status, 200) << reply.body;
  return {reply.Member("access_token"), reply.Member("refresh_token")};
}

std::string PostgresUrl() {
  const char* url = std::getenv("HINTWICK_TEST_POSTGRES_URL");
  return url ? url : "";
}

std::vector<std::string> StoreKinds() {
  if (PostgresUrl().empty()) return {"sqlite"};
  return {"sqlite", "postgres"};
}

ScratchDir::ScratchDir() : path(std::filesystem::temp_directory_path() / UniqueName("hintwick-")) {
  std::filesystem::create_directories(path);
}

ScratchDir::~ScratchDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path, ignored);
}

std::string UniqueName(const std::string& prefix) {
  if (sodium_init() < 0) return prefix;
  return prefix + std::to_string(randombytes_random());
}

std::string UniqueEmail() { return UniqueName("player-") + "@example.org"; }

std::string RandomAddress() {
  auto octet = [] { return std::to_string(randombytes_uniform(250) + 1); };
  return sodium_init() < 0 ? "10.0.0.1" : "10." + octet() + "." + octet() + "." + octet();
}

std::string ReadFile(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

void ImportSamplePack(Store& store) {
  auto parsed = ParsePack(ReadFile(HINTWICK_SAMPLE_PACK), HINTWICK_SAMPLE_PACK);
  ASSERT_TRUE(std::holds_alternative<Pack>(parsed));
  ASSERT_TRUE(std::holds_alternative<bool>(store.ImportPack(std::get<Pack>(parsed))));
}

std::string ChatRequest(const std::string& token, const std::string& message) {
  std::string body =
      boost::json::serialize(boost::json::object{{"game", kGame}, {"message", message}});
  return "POST /v1/chat HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + token +
         "\r\nAccept: text/event-stream\r\nAccept-Encoding: gzip\r\n"
         "Content-Type: application/json\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

TestService::TestService(const std::string& store_kind, Config given) : config(std::move(given)) {
  config.trust_forwarded_for = true;
  config.listen_host = "127.0.0.1";
  config.listen_port = 0;
  config.data_dir = scratch.path.string();
  config.database_url = store_kind == "postgres" ? PostgresUrl() : "";
  auto opened = Service::Open(config, false);
  if (const auto* error = std::get_if<std::string>(&opened)) {
    ADD_FAILURE() << *error;
    return;
  }
  service_ = std::move(std::get<std::unique_ptr<Service>>(opened));
  port = service_->Port();
  runner_ = std::thread([this] { service_->Run(); });
}

void TestService::Stop() {
  if (!runner_.joinable()) return;
  service_->Stop();
  runner_.join();
}

// Closes after the reply, so that whatever came back is whole once the service closes.
Response CallPort(std::uint16_t port, const std::string& method, const std::string& path,
                  const std::string& body, const std::string& bearer,
                  const std::string& forwarded_for) {
  std::string request = method + " " + path + " HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                        "\r\n" +
                        "Connection: close\r\nContent-Length: " + std::to_string(body.size());
  if (!bearer.empty()) request += "\r\nAuthorization: Bearer " + bearer;
  if (!forwarded_for.empty()) request += "\r\nX-Forwarded-For: " + forwarded_for;
  std::string raw = RawExchange(port, request + "\r\n\r\n" + body, std::chrono::seconds(30));
  http::response_parser<http::string_body> parser;
  parser.eager(true);
  boost::system::error_code ec;
  parser.put(asio::buffer(raw), ec);
  if (ec || !parser.is_done()) return {};
  const auto& response = parser.get();
  return {static_cast<int>(response.result_int()), response.body(),
          std::string(response[http::field::retry_after])};
}

std::string RawExchange(std::uint16_t port, const std::string& bytes,
                        std::chrono::milliseconds wait) {
  asio::io_context io;
  tcp::socket socket(io);
  std::string received;
  socket.async_connect(tcp::endpoint(asio::ip::make_address("127.0.0.1"), port),
                       [&](boost::system::error_code ec) {
                         if (ec) return;
                         asio::write(socket, asio::buffer(bytes), ec);
                         asio::async_read(socket, asio::dynamic_buffer(received),
                                          [](boost::system::error_code, std::size_t) {});
                       });
  io.run_for(wait);
  return received;
}

}  // namespace hintwick::test
