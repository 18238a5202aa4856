// The update manifest, bad input of every kind with the metrics it leaves, and a stop with a
// request in flight. These touch the store only in passing, so they run on SQLite alone.
#include <gtest/gtest.h>

#include <boost/asio.hpp>
#include <boost/json.hpp>

#include <fstream>

#include "auth/tokens.h"
#include "service_fixture.h"

namespace hintwick::test {
namespace {

namespace asio = boost::asio;

void WriteFile(const std::filesystem::path& path, const std::string& bytes) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

TEST(ServiceTest, VersionComesFromTheReleaseFolder) {
  TestService service("sqlite");
  EXPECT_EQ(service.Call("GET", "/v1/version").status, 404);
  std::filesystem::path folder = service.config.ReleaseDir();
  std::string exe = "MZ" + std::string(70000, '\x90');
  WriteFile(folder / "Hintwick.exe", exe);
  WriteFile(folder / "Hintwick.exe.sig", std::string("\x30\x45\x02\x21", 4));
  WriteFile(folder / "version.txt", "0.1.8\n");
  auto manifest = service.Call("GET", "/v1/version");
  ASSERT_EQ(manifest.status, 200);
  std::string origin = "http://127.0.0.1:" + std::to_string(service.port);
  EXPECT_EQ(manifest.Json(),
            boost::json::parse(R"({"version":"0.1.8","url":")" + origin +
                               R"(/v1/download/Hintwick.exe","sha256":")" + Sha256Hex(exe) +
                               R"(","signature":"MEUCIQ=="})"));
  EXPECT_TRUE(service.Call("GET", "/v1/download/Hintwick.exe").body == exe);
  // A new build dropped in is picked up without a restart.
  WriteFile(folder / "Hintwick.exe", exe + "!");
  WriteFile(folder / "notes.txt", "Fixes the drawer.\n");
  auto next = service.Call("GET", "/v1/version").Json().as_object();
  EXPECT_EQ(next.at("sha256"), Sha256Hex(exe + "!").c_str());
  EXPECT_EQ(next.at("notes"), "Fixes the drawer.");
}

std::string Request(const std::string& head, const std::string& body) {
  return head + "Host: x\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

int StatusOf(const std::string& raw) {
  return raw.rfind("HTTP/1.1 ", 0) == 0 ? std::stoi(raw.substr(9, 3)) : 0;
}

TEST(ServiceTest, BadInputIsRefusedWithWordsAndNoSecrets) {
  Config config;
  config.read_timeout = std::chrono::seconds(1);
  TestService service("sqlite", config);
  const std::string secret = "hunter2hunter2";
  const std::string login = "POST /v1/auth/login HTTP/1.1\r\n";
  std::string deep = std::string(100, '[') + std::string(100, ']');
  struct Row {
    const char* what;
    std::string raw;
    int status;
  } rows[] = {
      {"oversized body", Request(login, std::string(70 * 1024, ' ')), 413},
      {"deep JSON", Request(login, R"({"email":"a@b.c","password":")" + secret + R"(","x":)" + deep + "}"), 400},
      {"bad JSON", Request(login, R"({"email":"a@b.c","password":")" + secret + "\""), 400},
      {"missing password", Request(login, R"({"email":"a@b.c"})"), 400},
      {"huge header", login + "X-Pad: " + std::string(20 * 1024, 'p') + "\r\n\r\n", 431},
      {"not HTTP", "HELLO THERE\r\n\r\n", 400},
      {"unknown path", Request("GET /v2/nothing HTTP/1.1\r\n", ""), 404},
      {"wrong method", Request("DELETE /v1/games HTTP/1.1\r\n", ""), 405},
      {"forged bearer", Request("GET /v1/games HTTP/1.1\r\nAuthorization: Bearer " + secret + "\r\n", ""), 401},
      {"no bearer", Request("POST /v1/chat HTTP/1.1\r\n", R"({"game":"g","message":"m"})"), 401},
      {"health", Request("GET /healthz HTTP/1.1\r\n", ""), 200},
      {"slow client", "POST /v1/auth/login HTTP/1.1\r\nHost: x\r\nContent-Le", 0},
  };
  for (const Row& row : rows) {
    auto start = std::chrono::steady_clock::now();
    std::string raw = service.Raw(row.raw, std::chrono::seconds(4));
    EXPECT_EQ(StatusOf(raw), row.status) << row.what << "\n" << raw.substr(0, 300);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3)) << row.what;
    EXPECT_EQ(raw.find(secret), std::string::npos) << row.what;
    if (row.status >= 400) EXPECT_NE(raw.find(R"({"error":")"), std::string::npos) << row.what;
  }
  // Each of them counted under a bounded route label.
  auto metrics = service.Call("GET", "/metrics");
  for (const char* line : {R"(hintwick_requests_total{route="-",method="-",status="413"} 1)",
                           R"(hintwick_requests_total{route="unknown",method="GET",status="404"} 1)",
                           R"(hintwick_requests_total{route="/v1/chat",method="POST",status="401"} 1)",
                           R"(hintwick_request_seconds_count{route="/healthz"} 1)",
                           "hintwick_open_streams 0"})
    EXPECT_NE(metrics.body.find(line), std::string::npos) << line << "\n" << metrics.body;
}

TEST(ServiceTest, StopLetsTheRequestInFlightFinish) {
  TestService service("sqlite");
  asio::io_context io;
  asio::ip::tcp::socket busy(io), idle(io);
  for (auto* socket : {&busy, &idle}) socket->connect({asio::ip::make_address("127.0.0.1"), service.port});
  std::string request = Request("POST /v1/auth/register HTTP/1.1\r\n", R"({"email":")" +
                                UniqueEmail() + R"(","password":"correct horse"})");
  asio::write(busy, asio::buffer(request.substr(0, 40)));
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  std::thread stopping([&] { service.Stop(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  asio::write(busy, asio::buffer(request.substr(40)));
  std::string reply, unasked;
  boost::system::error_code ec;
  asio::read(busy, asio::dynamic_buffer(reply), ec);  // up to the close
  asio::read(idle, asio::dynamic_buffer(unasked), ec);
  stopping.join();
  EXPECT_EQ(StatusOf(reply), 200) << reply;
  EXPECT_EQ(unasked, "");
  EXPECT_EQ(RawExchange(service.port, "GET /healthz HTTP/1.1\r\n\r\n", std::chrono::seconds(1)), "");
}

}  // namespace
}  // namespace hintwick::test
