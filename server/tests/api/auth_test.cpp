// Accounts and tokens over real HTTP on each store: registration, sign-in, rotation with and
// without the grace, sign-out, expiry and the rate limits. Concurrent refreshes are the store's
// to settle, and its tests race them.
#include <gtest/gtest.h>

#include <boost/json.hpp>

#include <thread>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

namespace json = boost::json;

std::string Credentials(const std::string& email, const std::string& password) {
  return json::serialize(json::object{{"email", email}, {"password", password}});
}

std::string RefreshBody(const std::string& token) {
  return json::serialize(json::object{{"refresh_token", token}});
}

using Tokens = TestService::Tokens;

int Refresh(const TestService& service, const std::string& token) {
  return service.Call("POST", "/v1/auth/refresh", RefreshBody(token)).status;
}

class AuthTest : public ::testing::TestWithParam<std::string> {};

TEST_P(AuthTest, RegisterAndLoginTables) {
  TestService service(GetParam());
  std::string taken = UniqueEmail();
  service.SignUp(taken);
  std::string shouted = taken;
  for (auto& ch : shouted) ch = static_cast<char>(std::toupper(ch));
  struct Row {
    const char* path;
    std::string body;
    int status;
    std::string error;
  } rows[] = {
      {"register", Credentials(UniqueEmail(), "0123456789"), 200, ""},
      {"register", Credentials(UniqueEmail(), "012345678"), 400, "at least 10 bytes"},
      {"register", Credentials("player.example.org", "0123456789"), 400, "not an e-mail"},
      {"register", Credentials(shouted, "0123456789"), 409, "exists"},
      {"register", R"({"email":"x@example.org","password":1234567890})", 400, "required"},
      {"login", Credentials(shouted, "correct horse"), 200, ""},
      {"login", Credentials(taken, "0123456789"), 401, "wrong e-mail or password"},
      {"login", Credentials(UniqueEmail(), "0123456789"), 401, "wrong e-mail or password"},
      {"login", R"({"password":"0123456789"})", 400, "required"},
  };
  for (const Row& row : rows) {
    auto reply = service.Call("POST", std::string("/v1/auth/") + row.path, row.body);
    EXPECT_EQ(reply.status, row.status) << row.body;
    EXPECT_EQ(reply.Member("refresh_token").size(), row.status == 200 ? 43u : 0u) << reply.body;
    EXPECT_NE(reply.Member("error").find(row.error), std::string::npos) << reply.body;
    EXPECT_EQ(reply.body.find("0123456789"), std::string::npos) << "a reply echoed the password";
  }
  // An unknown e-mail still costs a hash; without it the answer would come many times faster.
  // The quickest of three, so that a busy machine's pauses do not count.
  auto time_of = [&](const std::string& email) {
    auto quickest = std::chrono::steady_clock::duration::max();
    for (int i = 0; i < 3; ++i) {
      auto start = std::chrono::steady_clock::now();
      service.Call("POST", "/v1/auth/login", Credentials(email, "wrong horse!"));
      quickest = std::min(quickest, std::chrono::steady_clock::now() - start);
    }
    return quickest;
  };
  EXPECT_GT(time_of(UniqueEmail()) * 3, time_of(taken));
}

TEST_P(AuthTest, RotationGraceAndLogout) {
  TestService service(GetParam());
  Tokens first = service.SignUp();
  auto rotated = service.Call("POST", "/v1/auth/refresh", RefreshBody(first.refresh));
  ASSERT_EQ(rotated.status, 200);
  Tokens second{rotated.Member("access_token"), rotated.Member("refresh_token")};
  // The previous token within the grace: a working access token, the current refresh kept.
  for (int reuse = 0; reuse < service.config.tokens.reuse_grace_max; ++reuse) {
    auto again = service.Call("POST", "/v1/auth/refresh", RefreshBody(first.refresh));
    ASSERT_EQ(again.status, 200) << reuse;
    EXPECT_EQ(again.Member("refresh_token"), "");
    EXPECT_EQ(service.Call("GET", "/v1/games", "", again.Member("access_token")).status, 200);
  }
  // One reuse too many is a stolen token: the whole family goes, access tokens included.
  EXPECT_EQ(Refresh(service, first.refresh), 401);
  EXPECT_EQ(Refresh(service, second.refresh), 401);
  EXPECT_EQ(service.Call("GET", "/v1/games", "", second.access).status, 401);

  Tokens other = service.SignUp();
  auto logout = service.Call("POST", "/v1/auth/logout", RefreshBody(other.refresh), other.access);
  EXPECT_EQ(logout.status, 200);
  EXPECT_EQ(Refresh(service, other.refresh), 401);
  EXPECT_EQ(service.Call("GET", "/v1/games", "", other.access).status, 401);
}

// Both lifetimes from the configuration: with the default grace the old token would still work.
TEST_P(AuthTest, ReuseAfterTheGraceRevokesAndAccessTokensExpire) {
  Config config;
  config.tokens.reuse_grace = config.tokens.access = std::chrono::seconds(1);
  TestService service(GetParam(), config);
  Tokens first = service.SignUp();
  auto rotated = service.Call("POST", "/v1/auth/refresh", RefreshBody(first.refresh));
  std::this_thread::sleep_for(std::chrono::milliseconds(2200));
  EXPECT_EQ(service.Call("GET", "/v1/games", "", rotated.Member("access_token")).status, 401);
  EXPECT_EQ(Refresh(service, first.refresh), 401);
  EXPECT_EQ(Refresh(service, rotated.Member("refresh_token")), 401);
}

TEST_P(AuthTest, RateLimitsPerAccountAndPerAddress) {
  Config config;
  config.rate = {.per_address = 4, .per_account = 2, .refresh_per_address = 2,
                 .window = std::chrono::hours(1)};  // windows start on the clock: none ends mid-test
  TestService service(GetParam(), config);
  std::string x = UniqueEmail(), y = UniqueEmail(), elsewhere = RandomAddress();
  struct Row {
    std::string email, address;
    int status;
  } rows[] = {{x, "", 401}, {x, "", 401}, {x, "", 429},         {y, "", 401},
              {y, "", 429}, {x, elsewhere, 429}, {y, elsewhere, 401}};
  for (const Row& row : rows) {
    if (!row.address.empty()) service.address = row.address;
    auto reply = service.Call("POST", "/v1/auth/login", Credentials(row.email, "wrong horse!"));
    EXPECT_EQ(reply.status, row.status) << row.email << " " << service.address;
    EXPECT_EQ(reply.retry_after.empty(), row.status != 429);
  }
  for (int status : {401, 401, 429}) EXPECT_EQ(Refresh(service, "forged"), status);
}

INSTANTIATE_TEST_SUITE_P(Stores, AuthTest, ::testing::ValuesIn(StoreKinds()), StoreName);

}  // namespace
}  // namespace hintwick::test
