// Accounts and tokens over real HTTP on each store: registration, sign-in, rotation with and
// without the grace, concurrent refreshes, sign-out, expiry and the rate limits.
#include <gtest/gtest.h>

#include <boost/json.hpp>

#include <future>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

namespace json = boost::json;

std::string Credentials(const std::string& email, const std::string& password) {
  return json::serialize(json::object{
      {"email", email}, {"password", password}, {"device_label", "windows-client"}});
}

std::string RefreshBody(const std::string& token) {
  return json::serialize(json::object{{"refresh_token", token}});
}

std::string Member(const Response& response, const char* key) {
  auto value = response.Json();
  if (!value.is_object()) return "";
  const auto* member = value.get_object().if_contains(key);
  return member && member->is_string() ? std::string(member->get_string()) : "";
}

bool IsToken(const std::string& token) {
  return token.size() == 43 &&
         token.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_") ==
             std::string::npos;
}

struct Tokens {
  std::string access, refresh;
};

Tokens SignUp(const TestService& service, const std::string& email = UniqueEmail()) {
  auto reply = service.Call("POST", "/v1/auth/register", Credentials(email, "correct horse"));
  EXPECT_EQ(reply.status, 200) << reply.body;
  return {Member(reply, "access_token"), Member(reply, "refresh_token")};
}

class AuthTest : public ::testing::TestWithParam<std::string> {};

TEST_P(AuthTest, RegisterRefusesWhatItMust) {
  TestService service(GetParam());
  std::string taken = UniqueEmail();
  SignUp(service, taken);
  std::string upper_taken = taken;
  for (auto& ch : upper_taken) ch = static_cast<char>(std::toupper(ch));
  struct Row {
    std::string body;
    int status;
    std::string error;
  } rows[] = {
      {Credentials(UniqueEmail(), "0123456789"), 200, ""},
      {Credentials(UniqueEmail(), "012345678"), 400, "at least 10 bytes"},
      {Credentials("player.example.org", "0123456789"), 400, "not an e-mail"},
      {Credentials("a@b", "0123456789"), 400, "not an e-mail"},
      {Credentials(upper_taken, "0123456789"), 409, "exists"},
      {R"({"email":"x@example.org"})", 400, "required"},
      {R"({"email":"x@example.org","password":1234567890})", 400, "required"},
  };
  for (const Row& row : rows) {
    auto reply = service.Call("POST", "/v1/auth/register", row.body);
    EXPECT_EQ(reply.status, row.status) << row.body;
    if (row.status == 200) {
      EXPECT_TRUE(IsToken(Member(reply, "access_token")) && IsToken(Member(reply, "refresh_token")))
          << reply.body;
    } else {
      EXPECT_NE(Member(reply, "error").find(row.error), std::string::npos) << reply.body;
      EXPECT_EQ(reply.body.find("0123456789"), std::string::npos) << "a refusal echoed the password";
    }
  }
}

TEST_P(AuthTest, LoginAnswersUnknownAndWrongAlikeInTimeToo) {
  TestService service(GetParam());
  std::string email = UniqueEmail();
  SignUp(service, email);
  struct Row {
    std::string body;
    int status;
  } rows[] = {
      {Credentials(email, "correct horse"), 200},
      {Credentials(" " + email, "correct horse"), 401},
      {Credentials(email, "wrong horse!"), 401},
      {Credentials(UniqueEmail(), "correct horse"), 401},
      {R"({"password":"correct horse"})", 400},
  };
  for (const Row& row : rows) {
    auto reply = service.Call("POST", "/v1/auth/login", row.body);
    EXPECT_EQ(reply.status, row.status) << row.body;
    if (row.status == 401) EXPECT_EQ(Member(reply, "error"), "wrong e-mail or password");
  }
  auto time_of = [&](const std::string& body) {
    auto start = std::chrono::steady_clock::now();
    service.Call("POST", "/v1/auth/login", body);
    return std::chrono::steady_clock::now() - start;
  };
  // An unknown e-mail still costs a hash; without it the answer would come many times faster.
  auto wrong = time_of(Credentials(email, "wrong horse!"));
  auto unknown = time_of(Credentials(UniqueEmail(), "wrong horse!"));
  EXPECT_GT(unknown * 2, wrong);
  EXPECT_GT(wrong * 2, unknown);
}

TEST_P(AuthTest, RotationGraceAndLogout) {
  TestService service(GetParam());
  Tokens first = SignUp(service);
  auto rotated = service.Call("POST", "/v1/auth/refresh", RefreshBody(first.refresh));
  ASSERT_EQ(rotated.status, 200);
  Tokens second{Member(rotated, "access_token"), Member(rotated, "refresh_token")};
  ASSERT_TRUE(IsToken(second.refresh) && second.refresh != first.refresh);
  // The previous token within the grace: a working access token, the current refresh kept.
  for (int reuse = 0; reuse < service.config.tokens.reuse_grace_max; ++reuse) {
    auto again = service.Call("POST", "/v1/auth/refresh", RefreshBody(first.refresh));
    ASSERT_EQ(again.status, 200) << reuse;
    EXPECT_EQ(Member(again, "refresh_token"), "");
    EXPECT_EQ(service.Call("GET", "/v1/games", "", Member(again, "access_token")).status, 200);
  }
  // One reuse too many is a stolen token: the whole family goes, access tokens included.
  EXPECT_EQ(service.Call("POST", "/v1/auth/refresh", RefreshBody(first.refresh)).status, 401);
  EXPECT_EQ(service.Call("POST", "/v1/auth/refresh", RefreshBody(second.refresh)).status, 401);
  EXPECT_EQ(service.Call("GET", "/v1/games", "", second.access).status, 401);

  Tokens other = SignUp(service);
  EXPECT_EQ(service.Call("POST", "/v1/auth/logout", RefreshBody(other.refresh), other.access).status,
            200);
  EXPECT_EQ(service.Call("POST", "/v1/auth/refresh", RefreshBody(other.refresh)).status, 401);
  EXPECT_EQ(service.Call("GET", "/v1/games", "", other.access).status, 401);
}

TEST_P(AuthTest, ReuseAfterTheGraceRevokesAndAccessTokensExpire) {
  Config config = TestService::FastConfig();
  config.tokens.reuse_grace = std::chrono::seconds(1);
  config.tokens.access = std::chrono::seconds(1);
  TestService service(GetParam(), config);
  Tokens first = SignUp(service);
  auto rotated = service.Call("POST", "/v1/auth/refresh", RefreshBody(first.refresh));
  ASSERT_EQ(rotated.status, 200);
  std::this_thread::sleep_for(std::chrono::milliseconds(2200));
  EXPECT_EQ(service.Call("GET", "/v1/games", "", Member(rotated, "access_token")).status, 401);
  EXPECT_EQ(service.Call("POST", "/v1/auth/refresh", RefreshBody(first.refresh)).status, 401);
  EXPECT_EQ(service.Call("POST", "/v1/auth/refresh",
                         RefreshBody(Member(rotated, "refresh_token"))).status, 401);
}

// Four refreshes of one token at once, as a client refreshing from several threads would.
std::vector<Response> FourAtOnce(const TestService& service, const std::string& refresh) {
  std::vector<std::future<Response>> calls;
  for (int i = 0; i < 4; ++i)
    calls.push_back(std::async(std::launch::async, [&] {
      return service.Call("POST", "/v1/auth/refresh", RefreshBody(refresh));
    }));
  std::vector<Response> replies;
  for (auto& call : calls) replies.push_back(call.get());
  return replies;
}

TEST_P(AuthTest, FourConcurrentRefreshes) {
  for (int grace : {30, 0}) {
    Config config = TestService::FastConfig();
    config.tokens.reuse_grace = std::chrono::seconds(grace);
    TestService service(GetParam(), config);
    Tokens tokens = SignUp(service);
    int succeeded = 0;
    std::string current;
    for (const Response& reply : FourAtOnce(service, tokens.refresh)) {
      succeeded += reply.status == 200;
      if (!Member(reply, "refresh_token").empty()) current = Member(reply, "refresh_token");
    }
    EXPECT_EQ(succeeded, grace ? 4 : 1) << "grace " << grace;
    ASSERT_FALSE(current.empty());
    // With the grace the family stands; without it the reuses revoked it.
    EXPECT_EQ(service.Call("POST", "/v1/auth/refresh", RefreshBody(current)).status,
              grace ? 200 : 401) << "grace " << grace;
  }
}

TEST_P(AuthTest, RateLimitsPerAccountAndPerAddress) {
  Config config = TestService::FastConfig();
  config.rate.per_account = 2;
  config.rate.per_address = 4;
  config.rate.refresh_per_address = 2;
  config.rate.window = std::chrono::hours(1);  // windows start on the clock; one hour never ends mid-test
  TestService service(GetParam(), config);
  std::string x = UniqueEmail(), y = UniqueEmail();
  struct Row {
    std::string email;
    int status;
  } rows[] = {{x, 401}, {x, 401}, {x, 429}, {y, 401}, {y, 429}};
  for (const Row& row : rows) {
    auto reply = service.Call("POST", "/v1/auth/login", Credentials(row.email, "wrong horse!"));
    EXPECT_EQ(reply.status, row.status) << row.email;
    if (row.status == 429) EXPECT_GT(std::stoi(reply.retry_after.empty() ? "0" : reply.retry_after), 0);
  }
  // Another address is still held back on the account it hammered.
  service.address = RandomAddress();
  EXPECT_EQ(service.Call("POST", "/v1/auth/login", Credentials(x, "wrong horse!")).status, 429);
  EXPECT_EQ(service.Call("POST", "/v1/auth/login", Credentials(y, "wrong horse!")).status, 401);
  int statuses[3];
  for (int& status : statuses)
    status = service.Call("POST", "/v1/auth/refresh", RefreshBody("forged")).status;
  EXPECT_EQ(statuses[2], 429);
  EXPECT_EQ(statuses[1], 401);
}

INSTANTIATE_TEST_SUITE_P(Stores, AuthTest, ::testing::ValuesIn(StoreKinds()), StoreName);

}  // namespace
}  // namespace hintwick::test
