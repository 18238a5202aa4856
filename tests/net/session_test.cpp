#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/data_dir.h"
#include "core/log.h"
#include "core/utf.h"
#include "net/session.h"
#include "net/token_store.h"
#include "support/fake_service.h"
#include "support/test_files.h"
#include "net/session_fixture.h"

namespace qn {
namespace {

// The words the account window will show for a failure.
std::string LastErrorText(const Session& session) {
  return ServiceFailureText(session.LastFailure());
}
bool Outcome(ServiceFailure failure, std::string& error) {
  if (failure != ServiceFailure::kNone) error = ServiceFailureText(failure);
  return failure == ServiceFailure::kNone;
}

constexpr char kLoginPath[] = "/v1/auth/login";
constexpr char kRegisterPath[] = "/v1/auth/register";
constexpr char kRefreshPath[] = "/v1/auth/refresh";
constexpr char kLogoutPath[] = "/v1/auth/logout";
constexpr char kTokens[] = R"({"access_token":"a1","refresh_token":"r1"})";
constexpr char kCredentials[] =
    R"({"email":"p@x.org","password":"pw-0123456","device_label":"windows-client"})";

using test::NoAnswer;
using test::Reply;

void ExpectRequest(const test::RecordedRequest& request, const std::string& method,
                   const std::string& path, const std::string& body,
                   const std::optional<std::string>& bearer) {
  EXPECT_EQ(request.method, method);
  EXPECT_EQ(request.path, path);
  EXPECT_EQ(request.body, body) << path;
  EXPECT_EQ(request.Header("Content-Type"), "application/json") << path;
  EXPECT_EQ(request.Header("Authorization"),
            bearer ? std::optional<std::string>("Bearer " + *bearer) : std::nullopt)
      << path;
}

class SessionTest : public SessionFixture {
 protected:
  // Started against the fake, signed in as access token "a1" when `stored` is true.
  std::unique_ptr<Session> Started(bool stored) {
    Start(stored);
    return std::move(session_);
  }
  std::vector<test::RecordedRequest> Requests() const { return fake_->Requests(); }
};

TEST_F(SessionTest, StartTradesTheStoredTokenAndKeepsARotatedOne) {
  for (const std::string rotated : {"", "r9"}) {
    Reset();
    TokenStore::Save("r0");
    const std::string extra = rotated.empty() ? "" : ",\"refresh_token\":\"" + rotated + "\"";
    fake_->Script("POST", kRefreshPath, Reply(200, "{\"access_token\":\"a1\"" + extra + "}"));
    WriteConfig();
    Session session;
    ASSERT_TRUE(session.Start());
    EXPECT_EQ(session.AccessToken(), "a1");
    EXPECT_TRUE(Logged("INFO  access token refreshed"));
    const std::string kept = rotated.empty() ? "r0" : rotated;
    EXPECT_EQ(TokenStore::Load(), kept);
    session.SignOut();
    const auto requests = Requests();
    ASSERT_EQ(requests.size(), 2u);
    ExpectRequest(requests[0], "POST", kRefreshPath, R"({"refresh_token":"r0"})", std::nullopt);
    ExpectRequest(requests[1], "POST", kLogoutPath, "{\"refresh_token\":\"" + kept + "\"}", "a1");
  }
}

TEST_F(SessionTest, ARejectedRefreshForgetsTheTokenInMemoryOnly) {
  for (const int status : {401, 403, 500, 503}) {
    Reset();
    TokenStore::Save("r0");
    const std::string blob = test::ReadFileBytes(TokenStore::Path()).value_or("");
    fake_->Script("POST", kRefreshPath, Reply(status));
    WriteConfig();
    Session session;
    EXPECT_FALSE(session.Start()) << status;
    EXPECT_FALSE(session.IsSignedIn());
    EXPECT_EQ(LastErrorText(session), "not signed in");
    EXPECT_TRUE(Logged("WARN  refresh rejected (" + std::to_string(status) +
                       "); stored token is spent or revoked"))
        << LogText();
    EXPECT_TRUE(Logged("INFO  no stored session; waiting for sign-in from the tray window"));
    EXPECT_EQ(test::ReadFileBytes(TokenStore::Path()), blob) << status;
    EXPECT_EQ(session.AccessToken(), "");
    EXPECT_EQ(fake_->RequestCount(), 1u) << "the refused token was tried again";
  }
}

TEST_F(SessionTest, ARefreshWithoutAUsableAnswerKeepsTheTokenForTheNextTry) {
  const struct {
    const char* what;
    test::ScriptedReply first;
  } cases[] = {
      {"no answer", NoAnswer()},
      {"no access token", Reply(200, R"({"refresh_token":"r5"})")},
      {"empty access token", Reply(200, R"({"access_token":"","refresh_token":"r5"})")},
  };
  for (const auto& c : cases) {
    Reset();
    TokenStore::Save("r0");
    fake_->Script("POST", kRefreshPath, c.first);
    fake_->Script("POST", kRefreshPath, Reply(200, R"({"access_token":"a2"})"));
    WriteConfig();
    Session session;
    EXPECT_FALSE(session.Start()) << c.what;
    EXPECT_FALSE(session.IsSignedIn()) << c.what;
    EXPECT_EQ(session.AccessToken(), "a2") << c.what;
    EXPECT_EQ(TokenStore::Load(), "r0") << c.what;
    const auto requests = Requests();
    ASSERT_EQ(requests.size(), 2u) << c.what;
    EXPECT_EQ(requests[1].body, R"({"refresh_token":"r0"})") << c.what;
  }
}

TEST_F(SessionTest, SignInOutcomes) {
  const struct {
    const char* what;
    std::optional<test::ScriptedReply> reply;
    bool ok;
    std::string error;
    std::string log;
  } cases[] = {
      {"accepted", Reply(200, kTokens), true, "", "INFO  signed in as p@x.org"},
      {"wrong password", Reply(401), false, "wrong email or password", "WARN  login returned 401"},
      {"conflict", Reply(409), false, "sign-in failed", "WARN  login returned 409"},
      {"server error", Reply(500), false, "sign-in failed", "WARN  login returned 500"},
      {"unavailable", Reply(503), false, "sign-in failed", "WARN  login returned 503"},
      {"no answer", NoAnswer(), false, "cannot reach the service", ""},
      {"no refresh token", Reply(200, R"({"access_token":"a1"})"), false,
       "the service returned an unexpected response", ""},
      {"not json", Reply(200, "<html>"), false, "the service returned an unexpected response", ""},
  };
  for (const auto& c : cases) {
    Reset();
    if (c.reply) fake_->Script("POST", kLoginPath, *c.reply);
    const std::unique_ptr<Session> session = Started(false);
    std::string error = "stale";
    EXPECT_EQ(Outcome(session->SignIn("p@x.org", "pw-0123456"), error), c.ok) << c.what;
    EXPECT_EQ(error, c.ok ? "stale" : c.error) << c.what;
    EXPECT_EQ(LastErrorText(*session), c.error) << c.what;
    EXPECT_EQ(session->IsSignedIn(), c.ok) << c.what;
    EXPECT_EQ(session->AccessToken(), c.ok ? "a1" : "") << c.what;
    EXPECT_EQ(TokenStore::Load(), c.ok ? "r1" : "") << c.what;
    if (!c.log.empty()) {
      EXPECT_TRUE(Logged(c.log)) << c.what << "\n" << LogText();
    }
    const auto requests = Requests();
    ASSERT_EQ(requests.size(), 1u) << c.what;
    ExpectRequest(requests[0], "POST", kLoginPath, kCredentials, std::nullopt);
    const std::string config = test::ReadFileBytes(StatePath(L"config.json")).value_or("");
    EXPECT_EQ(ParseSettingsText(config).email, c.ok ? "p@x.org" : "") << c.what;
  }
}

TEST_F(SessionTest, RegisterOutcomes) {
  const struct {
    const char* what;
    test::ScriptedReply reply;
    bool ok;
    std::string error;
    std::string log;
  } cases[] = {
      {"created", Reply(200, kTokens), true, "", "INFO  registered and signed in as p@x.org"},
      {"exists", Reply(409), false, "could not create that account - try signing in instead", ""},
      {"refused", Reply(401), false, "could not create the account", "WARN  register returned 401"},
      {"server error", Reply(500), false, "could not create the account",
       "WARN  register returned 500"},
      {"no answer", NoAnswer(), false, "cannot reach the service", ""},
  };
  for (const auto& c : cases) {
    Reset();
    fake_->Script("POST", kRegisterPath, c.reply);
    const std::unique_ptr<Session> session = Started(false);
    std::string error;
    EXPECT_EQ(Outcome(session->Register("p@x.org", "pw-0123456"), error), c.ok) << c.what;
    EXPECT_EQ(error, c.ok ? "" : c.error) << c.what;
    // The account window shows these itself; the session's status keeps its own text.
    EXPECT_EQ(LastErrorText(*session), c.ok ? "" : "not signed in") << c.what;
    EXPECT_EQ(TokenStore::Load(), c.ok ? "r1" : "") << c.what;
    if (!c.log.empty()) {
      EXPECT_TRUE(Logged(c.log)) << c.what << "\n" << LogText();
    }
    const auto requests = Requests();
    ASSERT_EQ(requests.size(), 1u) << c.what;
    ExpectRequest(requests[0], "POST", kRegisterPath, kCredentials, std::nullopt);
  }
}

TEST_F(SessionTest, IncompleteCredentialsAreRefusedBeforeAnyRequest) {
  fake_->Script("POST", kRegisterPath, Reply(500));
  fake_->Script("POST", kLoginPath, Reply(500));
  const std::unique_ptr<Session> session = Started(false);
  constexpr char kShort[] = "the password must be at least 10 characters";
  constexpr char kMissing[] = "enter an email address and a password";
  const struct {
    bool registering;
    const char* email;
    const char* password;
    const char* refusal;  // null: sent
  } cases[] = {
      {true, "p@x.org", "123456789", kShort},
      {true, "p@x.org", "", kShort},
      {true, "", "0123456789", kShort},
      {true, "p@x.org", "0123456789", nullptr},
      {true, "p@x.org", "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9", nullptr},  // ten bytes
      {false, "", "0123456789", kMissing},
      {false, "p@x.org", "", kMissing},
      {false, "p@x.org", "1", nullptr},
  };
  size_t sent = 0;
  for (const auto& c : cases) {
    std::string error;
    EXPECT_FALSE(c.registering ? Outcome(session->Register(c.email, c.password), error)
                               : Outcome(session->SignIn(c.email, c.password), error));
    if (c.refusal) {
      EXPECT_EQ(error, c.refusal) << c.password;
    }
    sent += c.refusal ? 0 : 1;
    EXPECT_EQ(fake_->RequestCount(), sent) << c.email << " " << c.password;
  }
}

TEST_F(SessionTest, SignOutRevokesAndForgetsEverything) {
  fake_->Script("POST", kLogoutPath, Reply(500));  // the reply is not examined
  const std::unique_ptr<Session> session = Started(true);
  session->SignOut();
  EXPECT_FALSE(session->IsSignedIn());
  EXPECT_EQ(LastErrorText(*session), "not signed in");
  EXPECT_FALSE(test::PathExists(TokenStore::Path()));
  EXPECT_TRUE(Logged("INFO  signed out"));
  const auto requests = Requests();
  ASSERT_EQ(requests.size(), 2u);
  ExpectRequest(requests[1], "POST", kLogoutPath, R"({"refresh_token":"r0"})", "a1");
  EXPECT_EQ(session->AccessToken(), "");
  EXPECT_EQ(fake_->RequestCount(), 2u);
}

TEST_F(SessionTest, SignOutWithoutARefreshTokenSendsNothingButStillDeletesTheFile) {
  test::WriteFileBytes(StatePath(L"token.bin"), "not a protected blob at all");
  const std::unique_ptr<Session> session = Started(false);
  EXPECT_TRUE(Logged("WARN  CryptUnprotectData failed: "));
  session->SignOut();
  EXPECT_EQ(fake_->RequestCount(), 0u);
  EXPECT_FALSE(test::PathExists(TokenStore::Path()));
  EXPECT_EQ(LastErrorText(*session), "not signed in");
  EXPECT_TRUE(Logged("INFO  signed out"));
}

TEST_F(SessionTest, APlaintextPasswordIsRemovedAndTradedForATokenOnce) {
  for (const bool accepted : {true, false}) {
    Reset();
    fake_->Script("POST", kLoginPath, accepted ? Reply(200, kTokens) : Reply(401));
    WriteConfig(R"(,"email":"p@x.org","password":"pw-0123456","drawer_pct":41)");
    Session session;
    EXPECT_EQ(session.Start(), accepted);
    const std::string config = test::ReadFileBytes(StatePath(L"config.json")).value_or("");
    EXPECT_EQ(config.find("password"), std::string::npos) << config;
    EXPECT_EQ(config.find("pw-0123456"), std::string::npos) << config;
    EXPECT_NE(config.find("\"drawer_pct\": 41"), std::string::npos) << config;
    EXPECT_TRUE(Logged("INFO  plaintext password removed from config.json"));
    ASSERT_EQ(fake_->RequestCount(), 1u);
    ExpectRequest(Requests()[0], "POST", kLoginPath, kCredentials, std::nullopt);
    if (accepted) {
      EXPECT_TRUE(Logged("INFO  signed in as p@x.org"));
      EXPECT_EQ(TokenStore::Load(), "r1");
    } else {
      EXPECT_TRUE(Logged("WARN  migration sign-in failed: wrong email or password")) << LogText();
      EXPECT_EQ(LastErrorText(session), "wrong email or password");
    }
    // The password is gone from memory too: a second restore has nothing to try.
    session.ClearTokens();
    EXPECT_FALSE(session.RestoreSession());
    EXPECT_EQ(fake_->RequestCount(), 1u);
    EXPECT_TRUE(Logged("INFO  no stored session; waiting for sign-in from the tray window"));
  }
}

// A refresh refused while a sign-in on another thread stored fresh tokens must not throw
// the fresh refresh token away.
TEST_F(SessionTest, ASignInDuringARefusedRefreshKeepsItsTokens) {
  auto sent = std::make_shared<test::Gate>();
  auto release = std::make_shared<test::Gate>();
  test::ScriptedReply refused = Reply(401);
  refused.chunks = {{"{", nullptr, sent}, {"}", release, nullptr}};
  TokenStore::Save("r0");
  fake_->Script("POST", kRefreshPath, Reply(200, R"({"access_token":"a1"})"));
  fake_->Script("POST", kRefreshPath, refused);
  fake_->Script("POST", kLoginPath, Reply(200, R"({"access_token":"a3","refresh_token":"r3"})"));
  WriteConfig();
  Session session;
  ASSERT_TRUE(session.Start());

  std::thread refresher([&] { EXPECT_FALSE(session.RefreshAccessToken()); });
  ASSERT_TRUE(sent->Wait());
  std::string error;
  EXPECT_TRUE(Outcome(session.SignIn("p@x.org", "pw-0123456"), error));
  release->Open();
  refresher.join();

  EXPECT_EQ(TokenStore::Load(), "r3");
  session.SignOut();
  const auto requests = Requests();
  ASSERT_EQ(requests.size(), 4u);
  ExpectRequest(requests[3], "POST", kLogoutPath, R"({"refresh_token":"r3"})", "a3");
}

// One session shared by the UI thread (sign-in, refresh) and a worker (progress patches), as
// the account window and the game lookup share it.
TEST_F(SessionTest, TwoThreadsUsingOneSessionBothFinishCorrectly) {
  fake_->Script("POST", kLoginPath, Reply(200, kTokens));
  fake_->Script("PATCH", "/v1/memory/g", Reply(200));
  const std::unique_ptr<Session> session = Started(true);
  constexpr int kRounds = 20;
  std::atomic<int> patched{0};
  std::thread worker([&] {
    for (int i = 0; i < kRounds; ++i) {
      if (session->PatchMemory("g", {.stage_ordinal = i})) ++patched;
      EXPECT_TRUE(session->IsSignedIn());
    }
  });
  int signed_in = 0;
  for (int i = 0; i < kRounds; ++i) {
    std::string error;
    if (i % 2 == 0 ? Outcome(session->SignIn("p@x.org", "pw-0123456"), error)
                   : session->RefreshAccessToken()) {
      ++signed_in;
    }
  }
  worker.join();
  EXPECT_EQ(patched.load(), kRounds);
  EXPECT_EQ(signed_in, kRounds);
  EXPECT_EQ(session->AccessToken(), "a1");
  EXPECT_EQ(TokenStore::Load(), "r1");
  int patches = 0;
  for (const auto& request : Requests()) {
    if (request.method != "PATCH") continue;
    EXPECT_EQ(request.body, "{\"stage_ordinal\":" + std::to_string(patches++) + "}");
    EXPECT_EQ(request.Header("Authorization"), "Bearer a1");
  }
  EXPECT_EQ(patches, kRounds);
}

}  // namespace
}  // namespace qn
