#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "net/session_fixture.h"

namespace qn {
namespace {

using ChatStreamTest = SessionFixture;

// Each turn's events arrive in order with its end mark last, and a question the player sends
// the moment the end mark arrives starts the next turn instead of being dropped. The gap a
// late-cleared flag would leave is narrow: one turn in a hundred or so falls into it here.
TEST_F(ChatStreamTest, AQuestionSentAtTheEndMarkStartsTheNextTurn) {
  constexpr size_t kTurns = 300;
  const std::vector<std::string> turn = {R"({"type":"token","text":"n"})", R"({"type":"done"})",
                                         "<end>"};
  test::ScriptedReply answer;
  for (const std::string& event : std::vector(turn.begin(), turn.end() - 1)) {
    answer.chunks.push_back({"data: " + event + "\n\n", nullptr, nullptr});
  }
  fake_->Script("POST", "/v1/chat", answer);
  Session& session = Start();
  ReceiverWindow window;
  std::vector<bool> accepted;
  window.on_end = [&] {
    if (accepted.size() < kTurns) {
      accepted.push_back(session.StreamChatAsync("g", "q", window.get(), kMsgChatEvent));
    }
  };
  ASSERT_TRUE(session.StreamChatAsync("g", "q", window.get(), kMsgChatEvent));
  window.PumpUntil([&] { return accepted.size() == kTurns && window.events.size() == (kTurns + 1) * 3; });
  session.Shutdown();
  window.PumpUntil([] { return false; }, 100);
  EXPECT_EQ(accepted, std::vector<bool>(kTurns, true));
  std::vector<std::string> expected;
  for (size_t i = 0; i <= kTurns; ++i) expected.insert(expected.end(), turn.begin(), turn.end());
  EXPECT_EQ(window.events, expected);
  const auto sent = RequestsTo("/v1/chat");
  ASSERT_EQ(sent.size(), kTurns + 1);
  for (const auto& request : sent) {
    EXPECT_EQ(request.body, R"({"game":"g","message":"q"})");
    EXPECT_EQ(request.Header("Authorization"), "Bearer a1");
    EXPECT_EQ(request.Header("Accept"), "text/event-stream");
  }
}

}  // namespace
}  // namespace qn
