#include "chat/chat_model.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <tuple>
#include <vector>

namespace qn {
namespace {

// A surrogate pair spelled as UTF-16 units, so it means the same where wchar_t is 32 bits.
const std::wstring kGrin = L"\xD83D\xDE00";

// The fuzzer checks that any input keeps spans in bounds; these pin down what they mean.
TEST(ParseEmphasis, MarkersBecomeSpans) {
  const struct {
    std::wstring raw, display;
    std::vector<StyleSpan> spans;
  } cases[] = {
      {L"**b***i*`c`", L"bic", {{0, 1, kSpanBold}, {1, 1, kSpanItalic}, {2, 1, kSpanCode}}},
      {L"a **b", L"a **b", {}},  // an unclosed marker stays as typed
      {L"a `b` *c", L"a b *c", {{2, 1, kSpanCode}}},
      {L"x``y", L"xy", {}},                                         // an empty pair just vanishes
      {L"`a *b* c`", L"a *b* c", {{0, 7, kSpanCode}}},              // no nesting
      {L"**" + kGrin + L"**!", kGrin + L"!", {{0, 2, kSpanBold}}},  // UTF-16 offsets
  };
  for (const auto& c : cases) {
    std::wstring display;
    std::vector<StyleSpan> spans = {{9, 9, 9}};
    ParseEmphasis(c.raw, display, spans);
    EXPECT_EQ(display, c.display);
    EXPECT_EQ(spans, c.spans) << testing::PrintToString(c.raw);
  }
}

TEST(ChatModel, StreamedAnswerReplacesTheWaitingMarkThenGrows) {
  ChatModel model;  // how an answer ends, late pieces included, is the turn table's to show
  model.BeginAnswer();
  const uint64_t stamp = model.Messages().back().stamp;
  // The closing marker arrives in a later piece than the opening one.
  for (const wchar_t* piece : {L"Go **no", L"rth", L"** now"}) model.AppendAnswer(piece);
  EXPECT_EQ(model.Messages().back().display, L"Go north now");
  EXPECT_EQ(model.Messages().back().spans, (std::vector<StyleSpan>{{3, 5, kSpanBold}}));
  EXPECT_NE(model.Messages().back().stamp, stamp) << "a cached layout would go stale";
  model.SetText(kRoleNotice, L"n");
  EXPECT_EQ(model.AnswerText(), L"Go **north** now");
}

TEST(ChatModel, EditingKeysMoveDeleteAndSubmit) {
  const struct {
    std::wstring typed;
    std::vector<uint32_t> keys;
    std::wstring input;
    size_t caret;
  } cases[] = {
      {L"abc", {kKeyLeft, kKeyBackspace}, L"ac", 1},
      {L"abc", {kKeyHome, kKeyBackspace, kKeyDelete, kKeyLeft}, L"bc", 0},
      {L"ab", {kKeyDelete, kKeyHome, kKeyRight, kKeyRight, kKeyRight}, L"ab", 2},
      // A surrogate pair is one character for the caret and both deletions.
      {L"a" + kGrin, {kKeyLeft}, L"a" + kGrin, 1},
      {L"a" + kGrin + L"b", {kKeyLeft, kKeyBackspace, kKeyEnd}, L"ab", 2},
      {kGrin + L"b", {kKeyHome, kKeyDelete}, L"b", 0},
      {L"a\tb \x1b\r", {}, L"ab ", 3},  // control characters are not typed, a space is
  };
  for (const auto& c : cases) {
    ChatModel model;
    for (const wchar_t ch : c.typed) model.InsertChar(ch);
    for (const uint32_t key : c.keys) EXPECT_TRUE(model.HandleKey(key, false));
    EXPECT_EQ(model.Input(), c.input);
    EXPECT_EQ(model.Caret(), c.caret) << testing::PrintToString(c.typed);
  }
  // Keys the model leaves alone are typed by the caller as characters, or mean something else.
  ChatModel model([] { return std::wstring(L"x\r\ny"); });
  for (const uint32_t key : {0x41u, kKeyV, 0x1Bu, 0x26u}) EXPECT_FALSE(model.HandleKey(key, false));
  std::wstring taken = L"none";
  EXPECT_TRUE(model.HandleKey(kKeyEnter, false));
  EXPECT_FALSE(model.TakeSubmitted(taken)) << "nothing typed, nothing sent";
  model.InsertChar(L'*');
  EXPECT_TRUE(model.HandleKey(kKeyV, true));
  model.InsertChar(L'*');
  model.SetExtent(2000, 300);
  model.ScrollBy(500);
  model.HandleKey(kKeyEnter, false);
  EXPECT_EQ(model.Input(), L"");
  EXPECT_TRUE(model.StickToBottom());
  ASSERT_EQ(model.Messages().size(), 1u);
  EXPECT_EQ(model.Messages()[0].display, L"*x  y*") << "the player's asterisks are not emphasis";
  EXPECT_TRUE(model.TakeSubmitted(taken));
  EXPECT_EQ(taken, L"*x  y*");
  EXPECT_FALSE(model.TakeSubmitted(taken));
}

// The drawer redraws only when the revision moves, so every change that shows must move it,
// typing the input's too (the caret stays lit while the player types). What the drawing
// reports back must not, or each drawing would ask for the next.
TEST(ChatModel, TheCaretBlinksUntilItRests) {
  const struct {
    CaretBlink blink;
    uint64_t since_edit_ms;
    bool shown;
  } cases[] = {
      {{530, 5000}, 529, true},  {{530, 5000}, 530, false}, {{530, 5000}, 4999, false},
      {{530, 5000}, 5000, true}, {{0, 5000}, 700, true},  // lit at rest, and when it never blinks
  };
  for (const auto& c : cases) {
    EXPECT_EQ(CaretShown(c.since_edit_ms, c.blink), c.shown)
        << c.blink.phase_ms << " ms phases, rest after " << c.blink.rest_after_ms << ", at "
        << c.since_edit_ms;
  }
}

TEST(ChatModel, RevisionsMoveWithWhatShows) {
  ChatModel model([] { return std::wstring(L"p"); });
  model.SetExtent(2000, 300);
  const std::tuple<const char*, std::function<void()>, bool, bool> cases[] = {
      {"notice", [&] { model.SetText(kRoleNotice, L"n"); }, true, false},
      {"status", [&] { model.SetStatusLine(L"s"); }, true, false},
      {"same status", [&] { model.SetStatusLine(L"s"); }, false, false},
      {"answer", [&] { model.BeginAnswer(); }, true, false},
      {"token", [&] { model.AppendAnswer(L"t"); }, true, false},
      {"typed", [&] { model.InsertChar(L'a'); }, true, true},
      {"caret home", [&] { model.HandleKey(kKeyHome, false); }, true, true},
      {"caret already home", [&] { model.HandleKey(kKeyHome, false); }, false, false},
      {"pasted", [&] { model.HandleKey(kKeyV, true); }, true, true},
      {"scrolled", [&] { model.ScrollBy(100); }, true, false},
      {"drawing measured", [&] { model.SetExtent(2100, 300); }, false, false},
      {"sent", [&] { model.HandleKey(kKeyEnter, false); }, true, true},
  };
  for (const auto& [name, change, shows, typed] : cases) {
    const uint64_t revision = model.Revision(), input = model.InputRevision();
    change();
    EXPECT_EQ(model.Revision() != revision, shows) << name;
    EXPECT_EQ(model.InputRevision() != input, typed) << name;
  }
}

TEST(ChatModel, ScrollOffsetStaysWithinTheContentAndKeepsAReadersPlace) {
  const struct {
    float content;
    std::vector<uint32_t> keys;
    float grown_to, offset;
  } cases[] = {
      {1000, {kKeyPageDown}, 1000, 0},
      {1000, {kKeyPageUp, kKeyPageUp, kKeyPageUp}, 1000, 700},
      {200, {kKeyPageUp}, 200, 0},
      // Scrolled up, the reader keeps their place while the answer grows below.
      {1000, {kKeyPageUp}, 1040, 400},
      {1000, {kKeyPageUp, kKeyPageUp}, 600, 300},
      {1000, {}, 2000, 0},
  };
  for (const auto& c : cases) {
    ChatModel model;
    model.SetExtent(c.content, 300);
    for (const uint32_t key : c.keys) model.HandleKey(key, false);
    model.SetExtent(c.grown_to, 300);
    EXPECT_FLOAT_EQ(model.ScrollOffset(), c.offset) << c.content << " to " << c.grown_to;
  }
}

}  // namespace
}  // namespace qn
