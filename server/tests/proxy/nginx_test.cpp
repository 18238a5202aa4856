// The nginx block of docs/deploy.md, read from the document itself and run as an operator
// pastes it, in front of a real service on SQLite: an answer reaches the player piece by piece,
// uncompressed, and outlives a quiet spell longer than nginx's read time-out elsewhere; and the
// service counts the player's own address, not one they claim.
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/asio.hpp>

#include <optional>

#include "nginx.h"
#include "scripted_model.h"
#include "service_fixture.h"

namespace hintwick::test {
namespace {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using namespace std::chrono_literals;

// The quiet spell of the answer; the read time-out nginx applies outside the block is shorter.
constexpr auto kQuiet = 1500ms;

// The document's block inside a server that listens where the test says. Around it, what a
// stock nginx.conf may well hold: compression on for everything, and a read time-out shorter
// than the answer's quiet spell, standing in for nginx's default of 60 s. The service's own
// X-Accel-Buffering header would turn buffering off by itself; nginx ignores it here so that
// the block's setting is the one shown.
std::string HttpBlock(const std::string& snippet, std::uint16_t service_port) {
  return "gzip on;\ngzip_types *;\ngzip_min_length 1;\nproxy_read_timeout 1s;\n"
         "proxy_ignore_headers X-Accel-Buffering;\n"
         "server {\nlisten 127.0.0.1:{port};\n" +
         Replaced(snippet, "127.0.0.1:8080", "127.0.0.1:" + std::to_string(service_port)) + "}\n";
}

// The document's block in front of a service whose model answers with a pause the test ends.
class NginxProxyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (access(HINTWICK_NGINX, X_OK) != 0)
      GTEST_SKIP() << HINTWICK_NGINX " is missing: install nginx-light (scripts/deps.sh test)";
    const std::string snippet =
        FencedBlock(ReadFile(HINTWICK_DEPLOY_DOC), "<!-- nginx-proxy", "<!-- /nginx-proxy");
    ASSERT_NE(snippet.find("location"), std::string::npos) << "no nginx block in the document";
    Config config;
    config.model_url = model.Url();
    config.keepalive = 10s;  // nothing at all during the quiet spell
    config.rate.per_address = 2;
    service.emplace("sqlite", config);
    ImportSamplePack(service->store());
    token = service->SignUp().access;
    nginx.emplace(HINTWICK_NGINX, scratch.path, HttpBlock(snippet, service->port));
    ASSERT_TRUE(nginx->Running()) << nginx->failure();
  }

  // The first piece is longer than the spoiler guard holds back, so its start goes out at once.
  ScriptedModel model{"Oil first: the chandler by the well sells it, and then", " the flame."};
  std::optional<TestService> service;
  std::string token;
  ScratchDir scratch;
  std::optional<Nginx> nginx;
};

TEST_F(NginxProxyTest, AnAnswerStreamsUncompressedThroughAQuietSpell) {
  // Compression is on in this nginx: what the block leaves alone comes compressed.
  const std::string games =
      RawExchange(nginx->port(),
                  "GET /v1/games HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + token +
                      "\r\nAccept-Encoding: gzip\r\nConnection: close\r\n\r\n",
                  10s);
  ASSERT_NE(games.find("HTTP/1.1 200"), std::string::npos) << games;
  EXPECT_NE(games.find("Content-Encoding: gzip"), std::string::npos) << games;

  Player player(nginx->port(), ChatRequest(token, "how do I light the lantern?"));
  ASSERT_TRUE(player.Receives("\r\n\r\n", 5s)) << "held back by the proxy, head and all";
  EXPECT_NE(player.Head().find("Content-Type: text/event-stream"), std::string::npos);
  EXPECT_EQ(player.Head().find("Content-Encoding"), std::string::npos) << player.Head();
  EXPECT_TRUE(player.Receives("Oil first", 5s)) << "held back by the proxy: " << player.received;
  std::this_thread::sleep_for(kQuiet);
  model.Release();
  EXPECT_TRUE(player.Receives("\"type\":\"done\"", 5s)) << "cut short: " << player.received;
  EXPECT_NE(player.received.find("flame"), std::string::npos);
}

// The service trusts the last X-Forwarded-For address: the block must make it the address nginx
// saw, whatever the player claims. Two sign-ins through the proxy claiming two addresses spend
// the limit of the player's real one.
TEST_F(NginxProxyTest, TheRateLimitsCountThePlayersRealAddress) {
  const std::string body = R"({"email":"nobody@example.org","password":"wrong horse"})";
  for (const char* claimed : {"10.0.0.1", "10.0.0.2"}) {
    Player player(nginx->port(),
                  "POST /v1/auth/login HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Forwarded-For: " +
                      std::string(claimed) + "\r\nContent-Length: " + std::to_string(body.size()) +
                      "\r\nConnection: close\r\n\r\n" + body,
                  "127.0.0.2");
    ASSERT_TRUE(player.Receives("\r\n\r\n", 5s)) << player.received;
    EXPECT_EQ(player.Head().find(" 429 "), std::string::npos) << player.Head();
  }
  EXPECT_EQ(CallPort(service->port, "POST", "/v1/auth/login", body, "", "127.0.0.2").status, 429);
}

}  // namespace
}  // namespace hintwick::test
