// A broken or hostile service must end every exchange in a plain result: not ok, an error
// payload, or the bytes exactly as sent. Nothing may crash, and nothing may wait longer than
// the time-out the caller chose.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "net/event_stream.h"
#include "net_fixture.h"

namespace qn {
namespace {

using Strings = std::vector<std::string>;
using test::ScriptedReply;

constexpr DWORD kShortTimeoutMs = 300;
constexpr char kPath[] = "/v1/bad";

std::string Pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>('a' + (i * 7 + i / 4096) % 26);
  return bytes;
}

const std::string kBinary("\0\0{\"text\":\"\xff\xfe\xc3\x28\xed\xa0\x80\"}\0\x01", 22);

ScriptedReply Raw(std::string bytes) {
  ScriptedReply reply;
  reply.raw = std::move(bytes);
  return reply;
}

ScriptedReply Short(std::string body, size_t promised) {
  ScriptedReply reply = Reply(200, std::move(body));
  reply.content_length = promised;
  return reply;
}

ScriptedReply Dripping(std::string body, DWORD drip_ms) {
  ScriptedReply reply = Reply(200, std::move(body));
  reply.drip_ms = drip_ms;
  return reply;
}

ScriptedReply Silent() {
  ScriptedReply reply;
  reply.never_answer = true;
  return reply;
}

class BadServiceTest : public NetTest {
 protected:
  Strings StreamEvents(const ScriptedReply& reply, bool& result, bool cancel_on_first = false) {
    service_.Script("POST", kPath, reply);
    Strings events;
    EventStream stream(client_);
    result = stream.Post(
        kPath, "{}", "", [&](const std::string& payload) { events.push_back(payload); },
        [&] { return cancel_on_first && !events.empty(); });
    return events;
  }
};

// Bodies are bytes: large, binary or not UTF-8, they come back exactly as sent.
TEST_F(BadServiceTest, StrangeBodiesComeBackExactly) {
  const std::string big = Pattern(10 << 20);
  const struct {
    const char* what;
    std::string body;
  } cases[] = {{"10 MB", big}, {"nul bytes and invalid UTF-8", kBinary}};
  for (const auto& c : cases) service_.Script("GET", kPath, Reply(200, c.body));
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const HttpResponse response = client_.Get(kPath, "", 20000);
    EXPECT_TRUE(response.ok);
    EXPECT_EQ(response.body.size(), c.body.size());
    EXPECT_TRUE(response.body == c.body);
  }
}

TEST_F(BadServiceTest, BodyOverTheCapIsDropped) {
  service_.Script("GET", kPath, Reply(200, Pattern(kMaxResponseBytes + 1)));
  const HttpResponse response = client_.Get(kPath, "", 20000);
  EXPECT_FALSE(response.ok);
  EXPECT_TRUE(response.body.empty());
  EXPECT_EQ(LogMessages("WARN "), Strings{"GET /v1/bad reply over 32 MiB; dropped"});
}

// Each ends not ok after at most the short time-out, with one warning.
TEST_F(BadServiceTest, RepliesThatAreNotHttpOrNeverComeAreNotOk) {
  const struct {
    const char* what;
    ScriptedReply reply;
  } cases[] = {
      {"another protocol", Raw("SSH-2.0-OpenSSH_9.6\r\nProtocol mismatch.\n")},
      {"binary noise", Raw(Pattern(3000) + kBinary)},
      {"nothing, then closed", Raw("")},
      {"a byte a second", Dripping("{}", 1000)},
      {"never answers", Silent()},
  };
  for (const auto& c : cases) service_.Script("GET", kPath, c.reply);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    RestartLog();
    const HttpResponse response = client_.Get(kPath, "", kShortTimeoutMs);
    EXPECT_FALSE(response.ok);
    EXPECT_EQ(response.status, 0);
    const Strings warnings = LogMessages("WARN ");
    ASSERT_EQ(warnings.size(), 1u);
    EXPECT_TRUE(std::regex_match(warnings[0], std::regex("GET /v1/bad failed: [1-9][0-9]*")))
        << warnings[0];
  }
}

// A body cut short keeps what arrived; the response still counts, as its head came.
TEST_F(BadServiceTest, BodyCutShortKeepsWhatArrived) {
  const std::string body = Pattern(5000);
  ScriptedReply cut = Reply(200, body);
  cut.cut_after = 3000;
  const struct {
    const char* what;
    ScriptedReply reply;
  } cases[] = {{"shorter than its Content-Length", Short(body, 9000)}, {"connection cut", cut}};
  for (const auto& c : cases) service_.Script("GET", kPath, c.reply);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const HttpResponse response = client_.Get(kPath, "", 5000);
    EXPECT_TRUE(response.ok);
    EXPECT_EQ(response.status, 200);
    EXPECT_EQ(body.substr(0, response.body.size()), response.body);
  }
}

// A line far over the cap is dropped whole, and the stream goes on after its line feed.
TEST_F(BadServiceTest, StreamDropsAnOverlongLineAndGoesOn) {
  bool result = false;
  const Strings events =
      StreamEvents(Reply(200, "data: " + Pattern(10 << 20) + "\ndata: after\n"), result);
  EXPECT_TRUE(result);
  EXPECT_EQ(events, Strings{"after"});
}

TEST_F(BadServiceTest, StreamPassesBinaryPayloadsThrough) {
  bool result = false;
  const Strings events = StreamEvents(Reply(200, "data: " + kBinary + "\n"), result);
  EXPECT_TRUE(result);
  EXPECT_EQ(events, Strings{kBinary});
}

TEST_F(BadServiceTest, StreamErrorWithHugeBodyGivesOneErrorPayload) {
  bool result = false;
  const Strings events = StreamEvents(Reply(503, Pattern(10 << 20)), result);
  EXPECT_TRUE(result);
  EXPECT_EQ(events, Strings{"{\"type\":\"error\",\"status\":503}"});
}

TEST_F(BadServiceTest, StreamFromNonHttpPeerIsNoResponse) {
  bool result = true;
  const Strings events = StreamEvents(Raw("SSH-2.0-OpenSSH_9.6\r\n" + kBinary), result);
  EXPECT_FALSE(result);
  EXPECT_TRUE(events.empty());
  const Strings warnings = LogMessages("WARN ");
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_TRUE(std::regex_match(warnings[0], std::regex("SSE receive failed: [1-9][0-9]*")))
      << warnings[0];
}

TEST_F(BadServiceTest, StreamCutShortOfItsLengthKeepsItsWholeLines) {
  bool result = false;
  const Strings events = StreamEvents(Short("data: a\ndata: b", 1000), result);
  EXPECT_TRUE(result);
  EXPECT_EQ(events, Strings{"a"});
}

// The stream's receive time-out is ten minutes, so a dripping service is left by cancelling;
// the cancel must take effect at the next byte, long before the drip would end.
TEST_F(BadServiceTest, DrippingStreamIsLeftByCancelling) {
  bool result = false;
  const Strings events =
      StreamEvents(Dripping("data: a\n" + Pattern(100000), 5), result, /*cancel_on_first=*/true);
  EXPECT_TRUE(result);
  EXPECT_EQ(events, Strings{"a"});
}

}  // namespace
}  // namespace qn
