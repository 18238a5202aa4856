// The WinHTTP client and the event stream against a broken, hostile or slow service. What
// well-behaved exchanges send and receive is checked through the session's tests.
#include <windows.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "net/async_request_win.h"
#include "net/event_stream.h"
#include "net/http_client.h"
#include "support/fake_service.h"
#include "support/test_files.h"

namespace qn {
namespace {

using Strings = std::vector<std::string>;
using test::Raw;
using test::Reply;
using test::ScriptedReply;

class NetTest : public ::testing::Test {
 protected:
  // The log holds exactly one warning, and it matches `pattern`; the log starts afresh.
  void ExpectOneWarning(const std::string& pattern) {
    EXPECT_EQ(log_.Count(" WARN  "), 1u) << log_.Text();
    EXPECT_TRUE(std::regex_search(log_.Text(), std::regex(" WARN  " + pattern + "\r\n")))
        << log_.Text();
    log_.Clear();
  }
  void Bind(bool listening) {
    const uint16_t port = listening ? service_.port() : test::UnusedLoopbackPort();
    ASSERT_TRUE(client_.Init(L"http://127.0.0.1:" + std::to_wstring(port)));
    log_.Clear();
  }
  // One chat stream; `on_event` (optional) sees each payload after it is recorded.
  HttpResponse Stream(const std::function<void()>& on_event = nullptr) {
    return EventStream(client_).Post(
        "/v1/chat", "{}", "tok",
        [&](const std::string& payload) {
          events_.push_back(payload);
          if (on_event) on_event();
        },
        cancel_);
  }

  test::CapturedLog log_;
  test::FakeService service_;
  HttpClient client_;
  RequestCancel cancel_;
  Strings events_;
};

// Each ends not ok, status 0, after at most the time-out the caller chose, with one warning.
TEST_F(NetTest, AnExchangeThatGetsNoUsableReplyIsNotOk) {
  ScriptedReply silent;
  silent.never_answer = true;
  const struct {
    std::optional<ScriptedReply> reply;  // none: nothing listens
    std::string warning;
  } cases[] = {
      {std::nullopt, "GET /v1/x failed: [1-9][0-9]*"},
      {Raw("SSH-2.0-OpenSSH_9.6\r\n\xff\xfe"), "GET /v1/x failed: [1-9][0-9]*"},
      {silent, "GET /v1/x failed: [1-9][0-9]*"},
      {Reply(200, std::string(kMaxResponseBytes + 1, 'x')), "GET /v1/x reply over 32 MiB; dropped"},
  };
  for (const auto& c : cases) {
    if (c.reply) service_.Script("GET", "/v1/x", *c.reply);
  }
  for (const auto& c : cases) {
    SCOPED_TRACE(c.warning);
    Bind(c.reply.has_value());
    const HttpResponse response = client_.Get("/v1/x", "t", 300);
    EXPECT_FALSE(response.ok || response.status != 0 || !response.body.empty());
    ExpectOneWarning(c.warning);
  }
  // The exit cancels an exchange the service holds: it ends at once, before any time-out
  // could have said so, and so does every later one.
  service_.Script("GET", "/v1/x", silent);
  Bind(true);
  std::thread exit([&] {
    while (service_.Requests().size() < 4) Sleep(5);
    client_.CancelAll();
  });
  EXPECT_FALSE(client_.Get("/v1/x", "t", 600000).ok);
  exit.join();
  EXPECT_FALSE(client_.Get("/v1/x", "t").ok);
  EXPECT_EQ(service_.Requests().size(), 4u);
  EXPECT_EQ(log_.Count(" WARN  "), 0u) << log_.Text();
}

// A token holding a line break would smuggle headers of its own into the request.
TEST_F(NetTest, ATokenWithALineBreakIsNotSent) {
  Bind(true);
  service_.Script("GET", "/v1/x", Reply(200));
  EXPECT_TRUE(client_.Get("/v1/x", "a1\r\nX-Injected: yes").ok);
  EXPECT_EQ(service_.Requests().back().Header("Authorization"), std::nullopt);
  ExpectOneWarning("bearer token holds a line break; not sent");
}

// Only a stream that got no response is not ok. Any status but 200 is the caller's to word,
// and the log keeps the start of its body with control bytes blanked, so that a reply cannot
// forge log lines.
TEST_F(NetTest, AStreamEndsInOneOutcomeWhateverTheServiceDoes) {
  service_.Script("POST", "/v1/chat", Reply(503, "x\r\ny" + std::string(10 << 20, 'z')));
  service_.Script("POST", "/v1/chat", Raw("SSH-2.0-OpenSSH_9.6\r\n"));
  Bind(true);
  EXPECT_EQ(Stream().status, 503);
  ExpectOneWarning("SSE returned 503: x  y" + std::string(196, 'z'));
  EXPECT_FALSE(Stream().ok);
  ExpectOneWarning("SSE receive failed: [1-9][0-9]*");
  Bind(false);
  EXPECT_FALSE(Stream().ok);
  ExpectOneWarning("SSE send failed: [1-9][0-9]*");
}

// The second event waits behind a gate that the first event's callback opens, so the first
// must arrive while the stream is open: the answer shows while it is written. Cancelled from
// another thread while it waits, Post returns at once without the second, which the test
// releases only after: a silent service cannot hold up a shutdown. Chunked framing is left to Windows:
// Wine's WinHTTP reads ahead into the next chunk before it returns the last byte of one.
TEST_F(NetTest, EachEventArrivesAtOnceAndACancelEndsTheWaitingRead) {
  std::shared_ptr<test::Gate> first_seen[2], second_sent[2];
  for (int cancel = 0; cancel < 2; ++cancel) {
    first_seen[cancel] = std::make_shared<test::Gate>();
    second_sent[cancel] = std::make_shared<test::Gate>();
    ScriptedReply answer;
    answer.chunked = false;
    answer.chunks = {{"data: 1\n\n", nullptr, nullptr},
                     {"data: 2\n\n", first_seen[cancel], second_sent[cancel]}};
    service_.Script("POST", "/v1/chat", answer);
  }
  Bind(true);
  for (int cancel = 0; cancel < 2; ++cancel) {
    SCOPED_TRACE(cancel);
    events_.clear();
    bool sent_early = true;
    std::thread canceller;
    // From another thread, once the stream waits on a service that holds the next event back
    // (for ten seconds, unless the test lets it go).
    const auto on_event = [&] {
      if (events_.size() > 1) return;
      sent_early = second_sent[cancel]->Wait(0);
      if (!cancel) return first_seen[cancel]->Open();
      canceller = std::thread([this] {
        Sleep(200);
        cancel_.Cancel();
      });
    };
    EXPECT_TRUE(Stream(on_event).ok);
    const bool ended_before_the_next_event = !second_sent[cancel]->Wait(0);
    first_seen[cancel]->Open();
    if (canceller.joinable()) canceller.join();
    EXPECT_FALSE(sent_early);
    EXPECT_EQ(ended_before_the_next_event, cancel == 1);
    EXPECT_EQ(events_, cancel ? Strings{"1"} : (Strings{"1", "2"}));
    EXPECT_EQ(log_.Has(" INFO  SSE cancelled by caller\r\n"), cancel == 1) << log_.Text();
  }
  EXPECT_FALSE(Stream().ok) << "a cancelled request stays cancelled until reset";
  cancel_.Reset();
}

}  // namespace
}  // namespace qn
