#include "chat/chat_turn.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qn {
namespace {

using Lines = std::vector<std::wstring>;
constexpr char kEnd[] = "<end>";
constexpr char kDone[] = R"({"type":"done"})";
const std::wstring kNoAnswer = L"1:" + std::wstring(kNoAnswerText);

std::string Token(const std::string& text) { return R"({"type":"token","text":")" + text + "\"}"; }

// "role:raw text", one line per message.
Lines Conversation(const ChatModel& model) {
  Lines lines;
  for (const ChatMessage& m : model.Messages())
    lines.push_back(std::to_wstring(m.role) + L":" + m.raw);
  return lines;
}

TurnEffects Deliver(ChatTurns& turns, ChatModel& model, const std::string& message,
                    const TurnContext& context = {"g", true}) {
  return turns.Apply(message == kEnd ? nullptr : &message, context, model);
}

TEST(ChatTurns, EachEventChangesTheConversationInArrivalOrder) {
  const std::string memory = R"({"type":"memory","stage":"act 2","changes":["a","b \u00e9"]})";
  const struct {
    const char* what;
    std::vector<std::string> events;
    Lines conversation;
    std::wstring status = L"";
  } cases[] = {
      {"tokens", {Token("a "), Token("**b**"), kDone, Token("after")}, {L"1:a **b**"}},
      {"nothing came", {kDone}, {kNoAnswer}},
      {"no done before the end", {Token("part")}, {L"1:part"}},
      {"discard", {Token("old"), R"({"type":"discard"})", Token("new")}, {L"1:new"}},
      // Later tokens are dropped: the redaction stands.
      {"redacted", {Token("x"), R"({"type":"redacted","message":"No."})", Token("y")}, {L"1:No."}},
      {"redacted bare",
       {Token("x"), R"({"type":"redacted"})"},
       {L"1:I don't have anything on that."}},
      {"memory",
       {Token("x"), memory, kDone},
       {L"1:x", L"2:Noted \u2014 a; b \u00e9"},
       L"g \u2014 act 2"},
      {"empty memory", {Token("x"), R"({"type":"memory","stage":"","changes":[]})"}, {L"1:x"}},
      {"error",
       {Token("p"), R"({"type":"error","message":"busy","status":503})", Token("z")},
       {L"1:p", L"2:(busy, http 503)"}},
      {"error, status only",
       {R"({"type":"error","status":503})"},
       {kNoAnswer, L"2:(something went wrong, http 503)"}},
      {"warning",
       {Token("a"), R"({"type":"warning","message":"x"})", Token("b")},
       {L"1:a", L"2:(x)"}},
      {"unusable",
       {Token("a"), R"({"type":"Token","text":"b"})", R"({"text":"c"})", "not json",
        R"({"type":"token"})", R"({"type":"other"})"},
       {L"1:a"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ChatModel model;
    ChatTurns turns;
    ChatTurns::Ask(model);
    turns.Accepted();
    for (const std::string& event : c.events) Deliver(turns, model, event);
    Deliver(turns, model, kEnd);
    EXPECT_EQ(Conversation(model), c.conversation);
    EXPECT_EQ(model.StatusLine(), c.status);
    EXPECT_FALSE(model.Waiting());
  }
}

TEST(ChatTurns, EventsBeforeTheViewIsReadyChangeNothing) {
  ChatModel model;
  ChatTurns turns;
  ChatTurns::Ask(model);
  const TurnContext not_ready{"g", false, false, true, true, true};
  Deliver(turns, model, Token("x"), not_ready);
  Deliver(turns, model, R"({"type":"error"})", not_ready);
  EXPECT_TRUE(Deliver(turns, model, kEnd, not_ready).clear_chime_pending);
  EXPECT_EQ(Conversation(model), Lines{L"1:\u2026"});
  EXPECT_TRUE(model.Waiting());
}

TEST(ChatTurns, TheEndChimesOnlyForAnAnswerThatFinishedBehindAClosedDrawer) {
  const struct {
    const char* what;
    bool pending, open, sound, drawer_window;
    TurnEffects effects;
  } cases[] = {
      {"closed mid-answer", true, false, true, true, {true, true, true}},
      {"reopened before the end", true, true, true, true, {false, true, false}},
      {"sound off", true, false, false, true, {false, true, true}},
      {"closed before the question", false, false, true, true, {false, true, true}},
      {"no drawer window", true, false, true, false, {true, true, false}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ChatModel model;
    ChatTurns turns;
    EXPECT_EQ(Deliver(turns, model, kEnd, {"g", true, c.open, c.drawer_window, c.pending, c.sound}),
              c.effects);
  }
}

// The worker frees the session just before it posts its end, so the player can ask again
// while that end mark is still on its way.
TEST(ChatTurns, AnEndMarkOfAnEarlierTurnLeavesTheNewAnswerAlone) {
  ChatModel model;
  ChatTurns turns;
  const TurnContext closed{"g", true, false, true, true, true};
  ChatTurns::Ask(model);
  turns.Accepted();
  Deliver(turns, model, Token("one"));
  ChatTurns::Ask(model);
  turns.Accepted();
  EXPECT_EQ(Deliver(turns, model, kEnd, closed), TurnEffects{}) << "no chime, no timer yet";
  EXPECT_TRUE(model.Waiting());
  Deliver(turns, model, Token("two"));
  // A question the session dropped shows the waiting mark; the running answer goes on there.
  ChatTurns::Ask(model);
  Deliver(turns, model, Token(" more"));
  EXPECT_EQ(Deliver(turns, model, kEnd, closed), (TurnEffects{true, true, true}));
  EXPECT_EQ(Conversation(model), (Lines{L"1:one", L"1:two", L"1: more"}));
  EXPECT_FALSE(model.Waiting());
}

TEST(ChatTurns, ARefusedQuestionExplainsWhyAndLeavesTheAnswerAlone) {
  const struct {
    ServiceFailure last, logged;
    std::wstring_view notice;
  } cases[] = {
      {ServiceFailure::kNone, ServiceFailure::kNotSignedIn, kSignInNotice},
      {ServiceFailure::kWrongCredentials, ServiceFailure::kWrongCredentials, kSignInNotice},
      {ServiceFailure::kUnreachable, ServiceFailure::kUnreachable, kUnreachableNotice},
  };
  for (const auto& c : cases) {
    ChatModel model;
    model.SetText(kRoleAnswer, L"earlier");
    EXPECT_EQ(ChatTurns::Refuse(c.last, model), c.logged);
    EXPECT_EQ(Conversation(model), (Lines{L"1:earlier", L"2:" + std::wstring(c.notice)}));
  }
}

TEST(StatusLine, NamesTheGameWhileItsProgressIsLookedUp) {
  const std::vector<GameEntry> titled = {{"h", "H"}, {"g", "G \xC3\xA9"}};
  const std::vector<GameEntry> untitled_first = {{"g", ""}, {"g", "G"}};
  const struct {
    bool signed_in, ready;
    std::vector<GameEntry> games;
    std::wstring status;
  } cases[] = {
      {false, true, titled, std::wstring(kSignedOutStatus)},
      {true, true, titled, L"G \u00e9 \u2014 checking\u2026"},
      {true, true, untitled_first, L"g \u2014 checking\u2026"},
      {true, true, {}, L"g \u2014 checking\u2026"},
      {true, false, titled, L"before"},
  };
  for (const auto& c : cases) {
    ChatModel model;
    model.SetStatusLine(L"before");
    ShowLookupStatus(c.signed_in, c.games, {"g", c.ready}, model);
    EXPECT_EQ(model.StatusLine(), c.status);
  }
}

TEST(StatusLine, AProgressLookupForTheCurrentGameSaysHowFarThePlayerIs) {
  const struct {
    ProgressFacts facts;
    std::wstring status;
    ProgressUse use = ProgressUse::kShown;
  } cases[] = {
      {{"g", true, "G \xC3\xA9", true, true, "act 2"}, L"G \u00e9 \u2014 act 2"},
      {{"g", true, "G", true, true, ""}, L"G \u2014 progress not set, gated to the start"},
      {{"g", true, "G", true, false, ""}, L"G \u2014 offline, using what is cached"},
      {{"g", true, "G", true, false, "", true},
       L"G \u2014 offline, using what is cached  (offline)"},
      {{"g", true, "", false, true, "x", true},
       L"g \u2014 no wiki yet, answering from general knowledge  (offline)"},
      {{"g", false, "G", true, true, "x"}, L"before", ProgressUse::kIgnored},
      {{"h", true, "H", true, true, "x"}, L"before", ProgressUse::kOtherGame},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.status));
    ChatModel model;
    model.SetStatusLine(L"before");
    EXPECT_EQ(ShowProgressStatus(c.facts, {"g", true}, model), c.use);
    EXPECT_EQ(model.StatusLine(), c.status);
    EXPECT_EQ(ShowProgressStatus(c.facts, {"g", false}, model), ProgressUse::kIgnored);
  }
}

}  // namespace
}  // namespace qn
