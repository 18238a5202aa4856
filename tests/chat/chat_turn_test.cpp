#include "chat/chat_turn.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

namespace qn {
namespace {

using Lines = std::vector<std::wstring>;
constexpr char kEnd[] = "<end>";
constexpr char kDone[] = R"({"type":"done"})";
const std::wstring kNoAnswer = L"1:" + std::wstring(kNoAnswerText);
const TurnContext kClosedMidAnswer{"g", true, false, true, true, true};

std::string Token(const std::string& text) { return R"({"type":"token","text":")" + text + "\"}"; }

// The interface thread's view of turns: a conversation and the turns feeding it.
struct Chat {
  ChatModel model;
  ChatTurns turns;
  ChatTurnId last_turn = 0;

  // A question the session drops gets no number.
  void Ask(bool accepted = true) {
    ChatTurns::Ask(model);
    if (accepted) turns.Accepted(++last_turn);
  }
  // A message of the last turn the session took, unless `turn` says otherwise.
  TurnEffects Deliver(const std::string& message, const TurnContext& context = {"g", true},
                      ChatTurnId turn = 0) {
    return turns.Apply(turn ? turn : last_turn, message == kEnd ? nullptr : &message, context,
                       model);
  }
  // "role:raw text", one line per message.
  Lines Conversation() const {
    Lines lines;
    for (const ChatMessage& m : model.Messages())
      lines.push_back(std::to_wstring(m.role) + L":" + m.raw);
    return lines;
  }
};

TEST(ChatTurns, EachEventChangesTheConversationInArrivalOrder) {
  const std::string memory = R"({"type":"memory","stage":"act 2","changes":["a","b \u00e9"]})";
  const std::string error = R"({"type":"error","message":"busy","status":503})";
  const struct {
    std::vector<std::string> events;
    Lines conversation;
    std::wstring status = L"";
    bool view_ready = true;  // until the view can draw, nothing changes
  } cases[] = {
      // clang-format off
      {{Token("a "), Token("**b**"), kDone, Token("after")}, {L"1:a **b**"}},
      {{Token("old"), R"({"type":"discard"})", Token("new")}, {L"1:new"}},
      // Later tokens are dropped: the redaction stands.
      {{Token("x"), R"({"type":"redacted","message":"No."})", Token("y")}, {L"1:No."}},
      {{Token("x"), R"({"type":"redacted"})"}, {L"1:I don't have anything on that."}},
      {{Token("x"), memory, kDone}, {L"1:x", L"2:Noted \u2014 a; b \u00e9"}, L"g \u2014 act 2"},
      {{Token("x"), R"({"type":"memory","stage":"","changes":[]})"}, {L"1:x"}},
      // A discard throws away the answer's text, never a notice that came after it.
      {{Token("x"), memory, R"({"type":"discard"})"},
       {L"1:x", L"2:Noted \u2014 a; b \u00e9", kNoAnswer}, L"g \u2014 act 2"},
      {{Token("p"), error, Token("z")}, {L"1:p", L"2:(busy, http 503)"}},
      {{R"({"type":"error","status":503})"}, {kNoAnswer, L"2:(something went wrong, http 503)"}},
      {{Token("a"), R"({"type":"warning","message":"x"})", Token("b")}, {L"1:a", L"2:(x)"}},
      {{Token("a"), R"({"type":"Token","text":"b"})", R"({"text":"c"})", "not json",
        R"({"type":"token"})", R"({"type":"other"})"}, {L"1:a"}},
      {{Token("x")}, {L"1:\u2026"}, L"", false},
      // clang-format on
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.events.back());
    const TurnContext context{"g", c.view_ready, false, true, true, true};
    Chat chat;
    chat.Ask();
    bool progress_changed = false;  // only a memory event says so, drawn or not
    for (const std::string& event : c.events) {
      progress_changed |= chat.Deliver(event, context).progress_changed;
    }
    const bool memory_event = std::any_of(c.events.begin(), c.events.end(), [](const auto& e) {
      return e.find(R"("type":"memory")") != std::string::npos;
    });
    EXPECT_EQ(progress_changed, memory_event);
    EXPECT_TRUE(chat.Deliver(kEnd, context).clear_chime_pending);
    EXPECT_EQ(chat.Conversation(), c.conversation);
    EXPECT_EQ(chat.model.StatusLine(), c.status);
    EXPECT_EQ(chat.model.Waiting(), !c.view_ready);
  }
}

TEST(ChatTurns, TheEndChimesOnlyForAnAnswerThatFinishedBehindAClosedDrawer) {
  const struct {
    bool pending, open, sound, drawer_window;
    TurnEffects effects;  // play, clear pending, arm the idle timer
  } cases[] = {
      {true, false, true, true, {true, true, true}},    // closed mid-answer
      {true, true, true, true, {false, true, false}},   // reopened before the end
      {true, false, false, true, {false, true, true}},  // sound off
      {false, false, true, true, {false, true, true}},  // closed before the question
      {true, false, true, false, {true, true, false}},  // no drawer window to release
  };
  for (const auto& c : cases) {
    Chat chat;
    EXPECT_EQ(chat.Deliver(kEnd, {"g", true, c.open, c.drawer_window, c.pending, c.sound}),
              c.effects)
        << &c - cases;
  }
}

// The worker frees the session just before it posts its end, so the player can ask again
// while that end mark is still on its way.
TEST(ChatTurns, AnEndMarkOfAnEarlierTurnLeavesTheNewAnswerAlone) {
  Chat chat;
  chat.Ask();
  chat.Deliver(Token("one"));
  chat.Ask();
  EXPECT_EQ(chat.Deliver(kEnd, kClosedMidAnswer, 1), TurnEffects{}) << "no chime, no timer yet";
  EXPECT_TRUE(chat.turns.Running());
  chat.Deliver(Token("late"), {"g", true}, 1);
  EXPECT_TRUE(chat.model.Waiting());
  chat.Deliver(Token("two"));
  // A question the session dropped shows the waiting mark; the running answer goes on there.
  chat.Ask(false);
  chat.Deliver(Token(" more"));
  EXPECT_EQ(chat.Deliver(kEnd, kClosedMidAnswer), (TurnEffects{true, true, true}));
  EXPECT_FALSE(chat.turns.Running());
  EXPECT_EQ(chat.Conversation(), (Lines{L"1:one", L"1:two", L"1: more"}));
  EXPECT_FALSE(chat.model.Waiting());
}

TEST(ChatTurns, ARefusedQuestionSaysWhyAndLeavesTheAnswerAlone) {
  using F = ServiceFailure;
  const std::tuple<F, F, std::wstring_view> cases[] = {
      {F::kNone, F::kNotSignedIn, kSignInNotice},
      {F::kUnreachable, F::kUnreachable, kUnreachableNotice}};
  for (const auto& [last, reason, notice] : cases) {
    Chat chat;
    chat.model.SetText(kRoleAnswer, L"earlier");
    EXPECT_EQ(ChatTurns::Refuse(last, chat.model), reason);
    EXPECT_EQ(chat.Conversation(), (Lines{L"1:earlier", L"2:" + std::wstring(notice)}));
  }
}

TEST(StatusLine, NamesTheGameAndHowFarThePlayerIs) {
  const std::vector<GameEntry> games = {{"h", "H"}, {"g", "G \xC3\xA9"}, {"g", "later"}};
  const struct {
    bool signed_in;
    std::vector<GameEntry> games;
    std::wstring status;
  } lookups[] = {
      {false, games, std::wstring(kSignedOutStatus)},
      {true, games, L"G \u00e9 \u2014 checking\u2026"},
      {true, {{"g", ""}, {"g", "G"}}, L"g \u2014 checking\u2026"},
  };
  for (const auto& c : lookups) {
    Chat chat;
    ShowLookupStatus(c.signed_in, c.games, {"g", true}, chat.model);
    EXPECT_EQ(chat.model.StatusLine(), c.status);
    ShowLookupStatus(c.signed_in, c.games, {"g", false}, chat.model);
    EXPECT_EQ(chat.model.StatusLine(), c.status) << "left alone before the view is ready";
  }
  const struct {
    ProgressFacts facts;
    std::wstring status;
    ProgressUse use = ProgressUse::kShown;
  } results[] = {
      // clang-format off
      {{"g", true, "G \xC3\xA9", true, true, "act 2"}, L"G \u00e9 \u2014 act 2"},
      {{"g", true, "G", true, true, ""}, L"G \u2014 progress not set, gated to the start"},
      {{"g", true, "G", true, false, "", true}, L"G \u2014 offline, using what is cached  (offline)"},
      {{"g", true, "", false, true, "x"}, L"g \u2014 no wiki yet, answering from general knowledge"},
      {{"g", false, "G", true, true, "x"}, L"", ProgressUse::kIgnored},
      {{"h", true, "H", true, true, "x"}, L"", ProgressUse::kOtherGame},
      // clang-format on
  };
  for (const auto& c : results) {
    Chat chat;
    EXPECT_EQ(ShowProgressStatus(c.facts, {"g", false}, chat.model), ProgressUse::kIgnored);
    EXPECT_EQ(ShowProgressStatus(c.facts, {"g", true}, chat.model), c.use);
    EXPECT_EQ(chat.model.StatusLine(), c.status);
  }
}

}  // namespace
}  // namespace qn
