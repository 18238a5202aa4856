#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "net/event_stream.h"
#include "net_fixture.h"

namespace qn {
namespace {

using Strings = std::vector<std::string>;
using test::Gate;
using test::ReplyChunk;
using test::ScriptedReply;

constexpr char kChat[] = "/v1/chat";

ScriptedReply Chunked(std::vector<ReplyChunk> chunks, bool chunked = true) {
  ScriptedReply reply;
  reply.headers = {{"Content-Type", "text/event-stream"}};
  reply.chunks = std::move(chunks);
  reply.chunked = chunked;
  return reply;
}

class EventStreamTest : public NetTest {
 protected:
  // Runs one stream; `on_event` (optional) sees each payload after it is recorded.
  bool Stream(const std::function<void(const std::string&)>& on_event = nullptr,
              const EventStream::CancelCheck& cancelled = nullptr) {
    EventStream stream(client_);
    return stream.Post(
        kChat, R"({"game":"g","message":"q"})", "tok",
        [&](const std::string& payload) {
          events_.push_back(payload);
          if (on_event) on_event(payload);
        },
        cancelled);
  }

  Strings events_;
};

TEST_F(EventStreamTest, PostsTheQuestionAndDeliversEveryEventInOrder) {
  std::string all;
  Strings expected;
  for (int i = 0; i < 3000; ++i) {
    expected.push_back("{\"type\":\"token\",\"text\":\"" + std::to_string(i) + "\"}");
    all += (i % 7 == 0 ? ": keep-alive\r\n" : "") + ("data: " + expected.back()) + "\r\n\r\n";
  }
  std::vector<ReplyChunk> chunks;
  for (size_t at = 0, size = 1; at < all.size(); at += size, size = size * 3 % 5000 + 1) {
    chunks.push_back({all.substr(at, size), nullptr, nullptr});
  }
  service_.Script("POST", kChat, Chunked(std::move(chunks)));
  EXPECT_TRUE(Stream());
  EXPECT_EQ(events_, expected);
  const test::RecordedRequest sent = service_.Requests().at(0);
  EXPECT_EQ(sent.body, R"({"game":"g","message":"q"})");
  EXPECT_EQ(sent.Header("Content-Type"), "application/json");
  EXPECT_EQ(sent.Header("Authorization"), "Bearer tok");
  EXPECT_EQ(sent.Header("Accept"), "text/event-stream");
}

// Any status but exactly 200 becomes one error payload, whatever the body holds; the log
// keeps the body's start with its control bytes blanked, so a reply cannot forge log lines.
TEST_F(EventStreamTest, AnyOtherStatusBecomesOneErrorPayload) {
  const struct {
    int status;
    std::string body, logged;
  } cases[] = {
      {201, "data: {\"type\":\"token\"}\n", "data: {\"type\":\"token\"} "},
      {401, "", ""},
      {503, "x\r\ny" + std::string(10 << 20, 'z'), "x  y" + std::string(196, 'z')},
  };
  for (const auto& c : cases) service_.Script("POST", kChat, Reply(c.status, c.body));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.status);
    log_.Clear();
    events_.clear();
    EXPECT_TRUE(Stream());
    EXPECT_EQ(events_, Strings{"{\"type\":\"error\",\"status\":" + std::to_string(c.status) + "}"});
    EXPECT_EQ(log_.Count(" WARN  SSE returned " + std::to_string(c.status) + ": " + c.logged +
                         "\r\n"),
              1u)
        << log_.Text();
  }
}

// Only these return false: the chat turn then refreshes its token and tries once more.
TEST_F(EventStreamTest, NoResponseReturnsFalseWithOneWarning) {
  service_.Script("POST", kChat, test::Raw("SSH-2.0-OpenSSH_9.6\r\n"));
  EXPECT_FALSE(Stream());
  ExpectOneWarning("SSE receive failed: [1-9][0-9]*");
  Unreachable();
  EXPECT_FALSE(Stream());
  ExpectOneWarning("SSE send failed: [1-9][0-9]*");
  EXPECT_TRUE(events_.empty());
}

// Streams whose chunks wait behind gates that the test's callbacks open, which orders events
// on both sides without clocks. Each runs over both framings a streaming service may use.
class GatedStreamTest : public EventStreamTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    EventStreamTest::SetUp();
    // Wine's WinHTTP, having handed out the last byte of a chunk, reads on into the next
    // chunk's data before it returns; an event that ends a chunk waits there for the next.
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    if (GetParam() && GetProcAddress(ntdll, "wine_get_version")) {
      GTEST_SKIP() << "chunk read-ahead in Wine's WinHTTP";
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Framings, GatedStreamTest, ::testing::Values(false, true),
                         [](const auto& info) { return info.param ? "Chunked" : "UntilClose"; });

// The last chunk waits behind a gate that only the first event's callback opens, so the
// first event must have arrived while the stream was still open: the answer shows while it
// is written.
TEST_P(GatedStreamTest, EachEventArrivesBeforeTheStreamEnds) {
  const auto first_seen = std::make_shared<Gate>();
  const auto last_sent = std::make_shared<Gate>();
  service_.Script("POST", kChat,
                  Chunked({{"data: 1\n\n", nullptr, nullptr}, {"data: 2\n\n", first_seen, last_sent}},
                          GetParam()));
  bool last_was_sent_early = true;
  EXPECT_TRUE(Stream([&](const std::string& payload) {
    if (payload != "1") return;
    last_was_sent_early = last_sent->Wait(0);
    first_seen->Open();
  }));
  EXPECT_FALSE(last_was_sent_early);
  EXPECT_EQ(events_, (Strings{"1", "2"}));
}

// The second chunk waits behind a gate the test opens only after Post has returned: a
// cancel must take effect without it, or a shutdown would wait on a silent service.
TEST_P(GatedStreamTest, CancelStopsBeforeTheNextRead) {
  const auto after_return = std::make_shared<Gate>();
  const auto second_sent = std::make_shared<Gate>();
  service_.Script("POST", kChat,
                  Chunked({{"data: a\n", nullptr, nullptr}, {"data: b\n", after_return, second_sent}},
                          GetParam()));
  bool cancelled = false;
  EXPECT_TRUE(Stream([&](const std::string&) { cancelled = true; }, [&] { return cancelled; }));
  EXPECT_FALSE(second_sent->Wait(0));
  after_return->Open();
  EXPECT_EQ(events_, Strings{"a"});
  EXPECT_TRUE(log_.Has(" INFO  SSE cancelled by caller\r\n"));
}

}  // namespace
}  // namespace qn
