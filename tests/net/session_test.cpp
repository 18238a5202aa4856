#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "net/session_fixture.h"

namespace qn {
namespace {

using test::NoAnswer;
using test::Reply;
using F = ServiceFailure;

constexpr char kLogin[] = "/v1/auth/login";
constexpr char kRefresh[] = "/v1/auth/refresh";
constexpr char kLogout[] = "/v1/auth/logout";
constexpr char kTokens[] = R"({"access_token":"a1","refresh_token":"r1"})";
constexpr char kCredentials[] =
    R"({"email":"p@x.org","password":"pw-0123456","device_label":"windows-client"})";
constexpr char kNoSession[] = "INFO  no stored session; waiting for sign-in from the tray window";

// Each request as "body | bearer": one comparison shows what went out, how often, and how.
std::string Sent(const std::vector<test::RecordedRequest>& requests) {
  std::string out;
  for (const auto& r : requests) out += r.body + " | " + r.Header("Authorization").value_or("-");
  return out;
}

using SessionTest = SessionFixture;

// The token is protected for this Windows user; a file it cannot open reads as no token.
TEST_F(SessionTest, TheTokenFileKeepsTheTokenProtected) {
  TokenStore::Save("rt-0123456789abcdef");
  const std::string blob = test::ReadFileBytes(TokenStore::Path()).value_or("");
  EXPECT_EQ(blob.find("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(TokenStore::Load(), "rt-0123456789abcdef");
  test::WriteFileBytes(TokenStore::Path(), blob.substr(0, blob.size() / 2));
  EXPECT_EQ(TokenStore::Load(), "");
  EXPECT_TRUE(Logged(" (stale or copied from another profile)\r\n"));
}

// What the stored token gives at start, and what a later request for a token tries again.
TEST_F(SessionTest, StartRestoresTheSessionFromTheStoredToken) {
  const struct {
    const char* what;
    std::optional<test::ScriptedReply> refresh;  // none: no token.bin
    bool signed_in;
    F failure;
    const char* stored;  // token.bin afterwards
    bool retried;        // a later AccessToken tries the stored token again
    const char* log;
  } cases[] = {
      {"rotated", Reply(200, kTokens), true, F::kNone, "r1", false, "INFO  access token refreshed"},
      {"refused", Reply(401), false, F::kNotSignedIn, "r0", false,
       "WARN  refresh rejected (401); stored token is spent or revoked"},
      {"offline", NoAnswer(), false, F::kUnreachable, "r0", true, kNoSession},
      {"no access token", Reply(200, R"({"refresh_token":"r5"})"), false, F::kNotSignedIn, "r0",
       true, kNoSession},
      {"nothing stored", std::nullopt, false, F::kNotSignedIn, "", false, kNoSession},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    if (c.refresh) {
      TokenStore::Save("r0");
      fake_->Script("POST", kRefresh, *c.refresh);
      fake_->Script("POST", kRefresh, Reply(200, R"({"access_token":"a2"})"));
    }
    WriteConfig();
    Session session;
    EXPECT_EQ(session.Start(), c.signed_in);
    EXPECT_EQ(session.LastFailure(), c.failure);
    EXPECT_TRUE(Logged(c.log)) << log_.Text();
    EXPECT_EQ(TokenStore::Load(), c.stored);
    EXPECT_EQ(session.AccessToken(), c.signed_in ? "a1" : c.retried ? "a2" : "");
    const std::string refresh = R"({"refresh_token":"r0"} | -)";
    EXPECT_EQ(Sent(fake_->Requests()), !c.refresh ? "" : c.retried ? refresh + refresh : refresh);
  }
}

TEST_F(SessionTest, SignInAndRegisterOutcomes) {
  const struct {
    bool registering;
    const char* password;
    std::optional<test::ScriptedReply> reply;  // none: refused before any request
    F failure;
    const char* log;
  } cases[] = {
      {false, "pw-0123456", Reply(200, kTokens), F::kNone, "INFO  signed in as p@x.org"},
      {false, "pw-0123456", Reply(401), F::kWrongCredentials, "WARN  login returned 401"},
      {false, "pw-0123456", Reply(503), F::kSignInRefused, "WARN  login returned 503"},
      {false, "pw-0123456", NoAnswer(), F::kUnreachable, ""},
      {false, "pw-0123456", Reply(200, R"({"access_token":"a1"})"), F::kBadReply, ""},
      {false, "", std::nullopt, F::kMissingCredentials, ""},
      {true, "pw-0123456", Reply(200, kTokens), F::kNone,
       "INFO  registered and signed in as p@x.org"},
      {true, "pw-0123456", Reply(409), F::kAccountExists, ""},
      {true, "pw-0123456", Reply(500), F::kRegisterRefused, "WARN  register returned 500"},
      {true, "123456789", std::nullopt, F::kPasswordTooShort, ""},
  };
  for (const auto& c : cases) {
    const std::string path = c.registering ? "/v1/auth/register" : kLogin;
    SCOPED_TRACE(path + " " + ServiceFailureText(c.failure));
    Reset();
    if (c.reply) fake_->Script("POST", path, *c.reply);
    Session& session = Start(false);
    const F failure = c.registering ? session.Register("p@x.org", c.password)
                                    : session.SignIn("p@x.org", c.password);
    const bool ok = c.failure == F::kNone;
    EXPECT_EQ(failure, c.failure);
    // Register's failures are the account window's to show; the session keeps its own.
    EXPECT_EQ(session.LastFailure(),
              (c.registering || !c.reply) && !ok ? F::kNotSignedIn : c.failure);
    EXPECT_EQ(session.AccessToken(), ok ? "a1" : "");
    EXPECT_EQ(TokenStore::Load(), ok ? "r1" : "");
    EXPECT_TRUE(Logged(c.log)) << log_.Text();
    const std::string config = test::ReadFileBytes(StatePath(L"config.json")).value_or("");
    EXPECT_EQ(ParseSettingsText(config).email, ok ? "p@x.org" : "");
    EXPECT_EQ(Sent(fake_->Requests()), c.reply ? kCredentials + std::string(" | -") : "");
  }
}

// A refresh still out when the player signs out or signs in belongs to a session that has
// ended: it must neither sign the player back in nor mix into the new account's tokens. The
// sign-out revokes the token it had, whatever the reply.
TEST_F(SessionTest, ARefreshThatOutlivesItsSessionChangesNothing) {
  const struct {
    const char* what;
    bool sign_in;
    test::ScriptedReply refresh;
  } cases[] = {
      {"sign-out, refreshed", false, Reply(200, R"({"access_token":"a2","refresh_token":"r2"})")},
      {"sign-in, refreshed", true, Reply(200, R"({"access_token":"a2","refresh_token":"r2"})")},
      {"sign-in, refused", true, Reply(401, "{}")},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    auto sent = std::make_shared<test::Gate>();
    auto release = std::make_shared<test::Gate>();
    test::ScriptedReply held = c.refresh;
    held.chunks = {{held.body.substr(0, 1), nullptr, sent},
                   {held.body.substr(1), release, nullptr}};
    TokenStore::Save("r0");
    fake_->Script("POST", kRefresh, Reply(200, R"({"access_token":"a1"})"));
    fake_->Script("POST", kRefresh, held);
    fake_->Script("POST", kLogin, Reply(200, R"({"access_token":"a3","refresh_token":"r3"})"));
    WriteConfig();
    Session session;
    ASSERT_TRUE(session.Start());
    std::thread refresher([&] { EXPECT_FALSE(session.RefreshAccessToken()); });
    ASSERT_TRUE(sent->Wait());
    if (c.sign_in) {
      EXPECT_EQ(session.SignIn("p@x.org", "pw-0123456"), F::kNone);
    } else {
      session.SignOut();
    }
    release->Open();
    refresher.join();
    EXPECT_EQ(session.AccessToken(), c.sign_in ? "a3" : "");
    EXPECT_EQ(TokenStore::Load(), c.sign_in ? "r3" : "");
    EXPECT_EQ(test::PathExists(TokenStore::Path()), c.sign_in);
    EXPECT_EQ(session.LastFailure(), c.sign_in ? F::kNone : F::kNotSignedIn);
    EXPECT_EQ(Sent(RequestsTo(kLogout)), c.sign_in ? "" : R"({"refresh_token":"r0"} | Bearer a1)");
  }
}

// However the session comes back, the password an older version left in config.json is
// gone from the file and from memory: a later restore has nothing to send.
TEST_F(SessionTest, ThePlaintextPasswordIsGoneOnceTheSessionIsRestored) {
  const struct {
    const char* what;
    bool token_stored;
    test::ScriptedReply login;
    bool signed_in;
    const char* log;
  } cases[] = {
      {"traded for a token", false, Reply(200, kTokens), true, "INFO  signed in as p@x.org"},
      {"refused", false, Reply(401), false,
       "WARN  migration sign-in failed: wrong email or password"},
      {"token.bin restores", true, Reply(200, kTokens), true, "INFO  access token refreshed"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    if (c.token_stored) {
      TokenStore::Save("r0");
      fake_->Script("POST", kRefresh, Reply(200, R"({"access_token":"a1"})"));
    }
    fake_->Script("POST", kLogin, c.login);
    WriteConfig(R"(,"email":"p@x.org","password":"pw-0123456","drawer_pct":41)");
    Session session;
    EXPECT_EQ(session.Start(), c.signed_in);
    EXPECT_TRUE(Logged("INFO  plaintext password removed from config.json"));
    EXPECT_TRUE(Logged(c.log)) << log_.Text();
    const std::string config = test::ReadFileBytes(StatePath(L"config.json")).value_or("");
    EXPECT_EQ(config.find("password"), std::string::npos) << config;
    EXPECT_NE(config.find("\"drawer_pct\": 41"), std::string::npos) << config;
    const std::string logins = Sent(RequestsTo(kLogin));
    EXPECT_EQ(logins, c.token_stored ? "" : kCredentials + std::string(" | -"));
    session.ClearTokens();
    EXPECT_FALSE(session.RestoreSession());
    EXPECT_EQ(Sent(RequestsTo(kLogin)), logins);
  }
}

}  // namespace
}  // namespace qn
