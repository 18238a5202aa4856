#include "chat/chat_model.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qn {
namespace {

// A surrogate pair spelled as UTF-16 units, so it means the same where wchar_t is 32 bits.
const std::wstring kGrin = L"\xD83D\xDE00";

std::string Narrow(std::wstring_view text) { return testing::PrintToString(std::wstring(text)); }

TEST(ParseEmphasis, MarkersBecomeSpans) {
  const struct {
    std::wstring raw;
    std::wstring display;
    std::vector<StyleSpan> spans;
  } cases[] = {
      {L"a **b** c", L"a b c", {{2, 1, kSpanBold}}},
      {L"*i* and `c`", L"i and c", {{0, 1, kSpanItalic}, {6, 1, kSpanCode}}},
      {L"**b***i*`c`", L"bic", {{0, 1, kSpanBold}, {1, 1, kSpanItalic}, {2, 1, kSpanCode}}},
      // Unclosed markers stay as typed, and a lone ** is not read as two italic markers.
      {L"a **b", L"a **b", {}},
      {L"a*b", L"a*b", {}},
      {L"`code", L"`code", {}},
      {L"a `b` *c", L"a b *c", {{2, 1, kSpanCode}}},
      // Empty pairs vanish without a span.
      {L"``", L"", {}},
      {L"x****y", L"xy", {}},
      {L"**", L"**", {}},
      // No nesting: whatever sits inside a span is text.
      {L"`a *b* c`", L"a *b* c", {{0, 7, kSpanCode}}},
      {L"**a *b** c*", L"a *b c*", {{0, 4, kSpanBold}}},
      {L"***x***", L"*x*", {{0, 2, kSpanBold}}},
      // Offsets count UTF-16 units, so a pair inside a span counts two.
      {L"**" + kGrin + L"**!", kGrin + L"!", {{0, 2, kSpanBold}}},
      {L"", L"", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(Narrow(c.raw));
    std::wstring display;
    std::vector<StyleSpan> spans = {{9, 9, 9}};
    ParseEmphasis(c.raw, display, spans);
    EXPECT_EQ(display, c.display);
    EXPECT_EQ(spans, c.spans);
  }
}

TEST(ChatModel, StreamedAnswerReplacesTheWaitingMarkThenGrows) {
  ChatModel model;
  model.BeginAnswer();
  EXPECT_EQ(model.Messages().back().raw, kWaitingMark);
  const uint64_t stamp = model.Messages().back().stamp;

  // The closing marker arrives in a later piece than the opening one.
  for (const wchar_t* piece : {L"Go **no", L"rth", L"** now"}) model.AppendAnswer(piece);
  const ChatMessage& answer = model.Messages().back();
  EXPECT_EQ(answer.display, L"Go north now");
  EXPECT_EQ(answer.spans, (std::vector<StyleSpan>{{3, 5, kSpanBold}}));
  EXPECT_NE(answer.stamp, stamp) << "a cached layout would go stale";

  model.FinishAnswer();
  EXPECT_FALSE(model.Waiting());
  model.AppendAnswer(L" late");
  EXPECT_EQ(model.AnswerText(), L"Go **north** now");
}

TEST(ChatModel, AnswerWithoutTextSaysNoneCameBack) {
  ChatModel model;
  model.BeginAnswer();
  model.FinishAnswer();
  EXPECT_EQ(model.Messages().back().display, kNoAnswerText);
  // Only the untouched mark is replaced.
  model.BeginAnswer();
  model.AppendAnswer(L"\u2026 and more");
  model.FinishAnswer();
  EXPECT_EQ(model.Messages().back().raw, L"\u2026 and more");
}

// A notice that arrives mid-stream takes the rest of the stream, by design.
TEST(ChatModel, AppendingIgnoresTheRoleOfTheLastMessage) {
  ChatModel model;
  model.BeginAnswer();
  model.AppendAnswer(L"part");
  model.SetText(kRoleNotice, L"Noted");
  model.AppendAnswer(L" **y**");
  EXPECT_EQ(model.Messages().back().display, L"Noted **y**");
}

TEST(ChatModel, ClearAnswerDropsOnlyAPendingAnswer) {
  ChatModel model;
  model.SetText(kRoleAnswer, L"kept");
  model.ClearAnswer();
  model.BeginAnswer();
  model.AppendAnswer(L"draft");
  model.SetExtent(3000, 300);
  model.ScrollBy(800);
  model.ClearAnswer();
  EXPECT_TRUE(model.StickToBottom());
  EXPECT_EQ(model.Messages().size(), 1u);
  // A discard: the mark comes back and the next piece replaces it.
  model.BeginAnswer();
  model.AppendAnswer(L"final");
  EXPECT_EQ(model.AnswerText(), L"final");
  // A notice last is not an answer to remove.
  model.SetText(kRoleNotice, L"n");
  model.ClearAnswer();
  EXPECT_EQ(model.Messages().size(), 3u);
}

TEST(ChatModel, HintOnlyInAnEmptyConversationAndClearKeepsTheStatusLine) {
  ChatModel model;
  model.AddHintIfEmpty();
  model.AddHintIfEmpty();
  ASSERT_EQ(model.Messages().size(), 1u);
  EXPECT_EQ(model.Messages()[0].raw, kHintText);
  model.SetStatusLine(L"Game");
  model.BeginAnswer();
  model.InsertChar(L'a');
  model.Clear();
  EXPECT_TRUE(model.Messages().empty());
  EXPECT_TRUE(model.Input().empty());
  EXPECT_EQ(model.Caret(), 0u);
  EXPECT_FALSE(model.Waiting());
  EXPECT_EQ(model.StatusLine(), L"Game");
}

struct Key {
  uint32_t key;
  bool ctrl = false;
};

TEST(ChatModel, EditingKeysMoveAndDelete) {
  const struct {
    const char* what;
    std::wstring typed;
    std::vector<Key> keys;
    std::wstring input;
    size_t caret;
  } cases[] = {
      {"backspace at end", L"abc", {{kKeyBackspace}}, L"ab", 2},
      {"backspace at start", L"abc", {{kKeyHome}, {kKeyBackspace}}, L"abc", 0},
      {"delete at start", L"abc", {{kKeyHome}, {kKeyDelete}}, L"bc", 0},
      {"delete at end", L"abc", {{kKeyDelete}}, L"abc", 3},
      {"left stops at start", L"ab", {{kKeyLeft}, {kKeyLeft}, {kKeyLeft}}, L"ab", 0},
      {"right stops at end", L"ab", {{kKeyHome}, {kKeyRight}, {kKeyRight}, {kKeyRight}}, L"ab", 2},
      {"home then end", L"abc", {{kKeyHome}, {kKeyEnd}}, L"abc", 3},
      {"backspace mid-line", L"abc", {{kKeyLeft}, {kKeyBackspace}}, L"ac", 1},
      {"ctrl does not change editing", L"abc", {{kKeyBackspace, true}}, L"ab", 2},
      // A surrogate pair is one character for the caret and both deletions.
      {"left over a pair", L"a" + kGrin, {{kKeyLeft}}, L"a" + kGrin, 1},
      {"backspace a pair", L"a" + kGrin, {{kKeyBackspace}}, L"a", 1},
      {"delete a pair", kGrin + L"b", {{kKeyHome}, {kKeyDelete}}, L"b", 0},
      {"right over a pair", kGrin + L"b", {{kKeyHome}, {kKeyRight}}, kGrin + L"b", 2},
      {"control characters are not typed", L"a\tb\x1b\r", {}, L"ab", 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ChatModel model;
    for (const wchar_t ch : c.typed) model.InsertChar(ch);
    for (const Key& k : c.keys) EXPECT_TRUE(model.HandleKey(k.key, k.ctrl));
    EXPECT_EQ(model.Input(), c.input);
    EXPECT_EQ(model.Caret(), c.caret);
  }
}

// Keys the model leaves alone are typed as characters by the caller, or mean something else.
TEST(ChatModel, OtherKeysAreNotTaken) {
  ChatModel model([] { return std::wstring(L"clip"); });
  const Key untouched[] = {{'A'},  {kKeyV},      {'C', true}, {0x1B}, {0x26},
                           {0x28}, {0x57, true}, {7},         {0x70}};
  for (const Key& k : untouched) EXPECT_FALSE(model.HandleKey(k.key, k.ctrl)) << k.key;
  EXPECT_TRUE(model.Input().empty());
}

TEST(ChatModel, PasteFlattensLineBreaksAtTheCaret) {
  const struct {
    std::wstring clipboard;
    std::wstring input;
    size_t caret;
  } cases[] = {
      {L"x\r\ny", L"ax  yb", 5},
      {L"\n", L"a b", 2},
      {L"", L"ab", 1},
      {L"tab\tkept", L"atab\tkeptb", 9},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(Narrow(c.clipboard));
    ChatModel model([&] { return c.clipboard; });
    model.InsertChar(L'a');
    model.InsertChar(L'b');
    model.HandleKey(kKeyLeft, false);
    EXPECT_TRUE(model.HandleKey(kKeyV, true));
    EXPECT_EQ(model.Input(), c.input);
    EXPECT_EQ(model.Caret(), c.caret);
  }
  ChatModel without_clipboard;
  EXPECT_TRUE(without_clipboard.HandleKey(kKeyV, true));
  EXPECT_TRUE(without_clipboard.Input().empty());
}

TEST(ChatModel, EnterSubmitsOnceAndShowsTheQuestion) {
  ChatModel model;
  std::wstring taken = L"untouched";
  EXPECT_TRUE(model.HandleKey(kKeyEnter, false));
  EXPECT_FALSE(model.TakeSubmitted(taken));
  EXPECT_EQ(taken, L"untouched");
  EXPECT_TRUE(model.Messages().empty());

  for (const wchar_t ch : std::wstring(L"where *now*?")) model.InsertChar(ch);
  model.SetExtent(2000, 300);
  model.ScrollBy(500);
  model.HandleKey(kKeyEnter, false);
  EXPECT_TRUE(model.Input().empty());
  EXPECT_EQ(model.Caret(), 0u);
  EXPECT_TRUE(model.StickToBottom());
  ASSERT_EQ(model.Messages().size(), 1u);
  EXPECT_EQ(model.Messages()[0].role, kRoleQuestion);
  EXPECT_EQ(model.Messages()[0].display, L"where *now*?");
  EXPECT_TRUE(model.TakeSubmitted(taken));
  EXPECT_EQ(taken, L"where *now*?");
  EXPECT_FALSE(model.TakeSubmitted(taken));
}

TEST(ChatModel, ScrollOffsetStaysWithinTheContent) {
  const struct {
    const char* what;
    float content, viewport;
    std::vector<uint32_t> keys;
    float offset;
  } cases[] = {
      {"page down at the bottom", 1000, 300, {kKeyPageDown}, 0},
      {"one page up", 1000, 300, {kKeyPageUp}, 360},
      {"up past the top stops there", 1000, 300, {kKeyPageUp, kKeyPageUp, kKeyPageUp}, 700},
      {"back down past the bottom", 1000, 300, {kKeyPageUp, kKeyPageDown, kKeyPageDown}, 0},
      {"content fits the view", 200, 300, {kKeyPageUp}, 0},
      {"content exactly fills it", 300, 300, {kKeyPageUp}, 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ChatModel model;
    model.SetExtent(c.content, c.viewport);
    for (const uint32_t key : c.keys) EXPECT_TRUE(model.HandleKey(key, false));
    EXPECT_FLOAT_EQ(model.ScrollOffset(), c.offset);
    EXPECT_EQ(model.StickToBottom(), c.offset == 0);
  }
}

TEST(ChatModel, ScrolledUpReaderKeepsTheirPlaceWhileTextArrives) {
  ChatModel model;
  model.SetExtent(1000, 300);
  model.HandleKey(kKeyPageUp, false);
  model.SetExtent(1040, 300);
  EXPECT_FLOAT_EQ(model.ScrollOffset(), 400);
  // The top of the content stays the top, whichever way the content changes.
  model.ScrollBy(10000);
  model.SetExtent(1400, 300);
  EXPECT_FLOAT_EQ(model.ScrollOffset(), 1100);
  model.SetExtent(600, 300);
  EXPECT_FLOAT_EQ(model.ScrollOffset(), 300);

  model.ScrollBy(-1000);
  model.SetExtent(2000, 300);
  EXPECT_FLOAT_EQ(model.ScrollOffset(), 0);
}

}  // namespace
}  // namespace qn
