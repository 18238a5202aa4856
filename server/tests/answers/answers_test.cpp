#include <gtest/gtest.h>

#include "answers/builtin.h"
#include "answers/events.h"
#include "answers/spoiler_guard.h"
#include "answers/stage_move.h"
#include "answers/text.h"

namespace hintwick {
namespace {

bool WholeUtf8(std::string_view piece) {
  return !piece.empty() && Utf8Boundary(piece, 0) == 0 &&
         Utf8Boundary(piece, piece.size()) == piece.size();
}

TEST(EventLineTest, EachEventIsOneCompactLineOfRawUtf8) {
  struct Row {
    AnswerEvent event;
    std::string line;
  } rows[] = {
      {TokenEvent{"café 😀 \"q\"\nnext"}, R"({"type":"token","text":"café 😀 \"q\"\nnext"})"},
      {MemoryEvent{"Mill", {"past Gate", "now at Mill"}},
       R"({"type":"memory","stage":"Mill","changes":["past Gate","now at Mill"]})"},
      {DiscardEvent{}, R"({"type":"discard"})"},
      {RedactedEvent{"held — back"}, R"({"type":"redacted","message":"held — back"})"},
      {WarningEvent{"w"}, R"({"type":"warning","message":"w"})"},
      {ErrorEvent{"busy", 503}, R"({"type":"error","message":"busy","status":503})"},
      {ErrorEvent{"x", std::nullopt}, R"({"type":"error","message":"x"})"},
      {DoneEvent{}, R"({"type":"done"})"},
  };
  for (const Row& row : rows) EXPECT_EQ(EventLine(row.event), "data: " + row.line + "\n\n");
}

TEST(TokenPiecesTest, NeverCutsACharacter) {
  const std::string text = "é😀 ab€ 東京xé";
  for (std::size_t max = 0; max <= 9; ++max) {
    std::string joined;
    for (std::string_view piece : TokenPieces(text, max)) {
      EXPECT_TRUE(WholeUtf8(piece)) << max;
      EXPECT_LE(piece.size(), std::max<std::size_t>(max, 4)) << max;
      joined += piece;
    }
    EXPECT_EQ(joined, text);
  }
  EXPECT_EQ(TokenPieces("one two three", 9), (std::vector<std::string_view>{"one two ", "three"}));
}

struct GuardRow {
  const char* name;
  std::vector<std::string> pieces;
  std::int64_t stage = 1;
  bool spoilers_ok = false;
  bool hit = false;
};

TEST(SpoilerGuardTest, CatchesLaterTermsHoweverTheyArrive) {
  GameOutline outline{"Game", {}, {{"Queen Mara", 3}, {"Élodie", 2}, {"Gate", 1}, {"", 9}}};
  GuardRow rows[] = {
      {"two pieces", {"Then the Queen Ma", "ra waits"}, 1, false, true},
      {"upper case", {"QUEEN MARA!"}, 1, false, true},
      {"curly apostrophe", {"Queen Mara’s crown"}, 1, false, true},
      {"latin-1 case", {"ask él", "odie"}, 1, false, true},
      {"inside a longer word", {"Queen Marathon and élodies"}, 1, false, false},
      {"stage reached", {"Queen Mara"}, 3, false, false},
      {"spoilers welcome", {"Queen Mara"}, 1, true, false},
      {"utf-8 split", {"caf\xC3", "\xA9 \xF0\x9F", "\x98\x80 Gate"}, 1, false, false},
  };
  for (const GuardRow& row : rows) {
    SpoilerGuard guard(outline, {"", row.stage, Directness::kHints, row.spoilers_ok});
    std::string released, whole;
    bool hit = false;
    for (const std::string& piece : row.pieces) {
      SpoilerGuard::Step step = guard.Feed(piece);
      EXPECT_TRUE(step.released.empty() || WholeUtf8(step.released)) << row.name;
      released += step.released;
      whole += piece;
      hit = hit || step.hit;
    }
    SpoilerGuard::Step last = guard.Finish();
    released += last.released;
    EXPECT_EQ(hit || last.hit, row.hit) << row.name;
    if (!row.hit) EXPECT_EQ(released, whole) << row.name;
    if (row.hit) EXPECT_EQ(FoldCase(released).find("ma"), std::string::npos) << row.name;
    if (row.hit) EXPECT_EQ(FoldCase(released).find("él"), std::string::npos) << row.name;
  }
}

TEST(TierTest, DirectnessAndRepeatsSetTheHighestTier) {
  struct Row {
    Directness directness;
    int before;
    int tier;
  } rows[] = {{Directness::kCoach, 0, 1}, {Directness::kCoach, 4, 1}, {Directness::kHints, 0, 2},
              {Directness::kHints, 1, 3}, {Directness::kHints, 7, 3}, {Directness::kAnswer, 0, 3}};
  for (const Row& row : rows)
    EXPECT_EQ(AllowedTier(row.directness, row.before), row.tier) << row.before;
}

// What makes two askings the same question for the tier that rises with repeats.
TEST(TierTest, TheSameQuestionInOtherWords) {
  const std::string gate = NormalizedQuestion("How do I open the Gate?");
  EXPECT_EQ(gate, "how do i open the gate");
  for (const char* same :
       {"how do i open  the GATE", "  How do I open the gate!!", "How do I\nopen, the gate"})
    EXPECT_EQ(NormalizedQuestion(same), gate) << same;
  for (const char* other : {"How do I open the gates?", "How do I close the gate?"})
    EXPECT_NE(NormalizedQuestion(other), gate) << other;
}

TEST(BuiltinAnswerTest, DrawsOnlyOnAllowedNotesAndNamesThem) {
  // clang-format off
  AnswerRequest request{"q", {"Mill", 2, Directness::kHints, false}, {}, true,
                        {{"Lever", "Pull the lever.", 2, 2}, {"Key", "The key is in the well.", 3, 1},
                         {"Later", "Beyond.", 1, 3}, {"Lever", "Duplicate.", 1, 1},
                         {"Nudge", "Look up.", 1, 0}},
                        kHint};
  // clang-format on
  EXPECT_EQ(BuiltinAnswer(request), "Pull the lever.\n\nLook up.\n\nFrom the notes: Lever; Nudge");
  request.max_tier = kSolution;
  EXPECT_EQ(UsableNotes(request, 2).size(), 2u);
  EXPECT_EQ(UsableNotes(request).back().title, "Nudge");
  request.max_tier = kNudge;
  request.notes.resize(3);
  EXPECT_NE(BuiltinAnswer(request).find("no note that answers this"), std::string::npos);
  request.has_pack = false;
  EXPECT_NE(BuiltinAnswer(request).find("no notes for this game yet"), std::string::npos);
}

TEST(StageMoveTest, PhrasesThatSayWhereThePlayerIs) {
  GameOutline outline{"Game",
                      {{"The Gate", 1, {"act 1"}}, {"Sunken Mill", 2, {"mill"}},
                       {"Iron Warden", 3, {"warden"}}, {"Throne", 4, {}}},
                      {}};
  struct Row {
    const char* question;
    const char* stage;  // nullptr: no move
  } rows[] = {
      {"I just beat the Iron Warden, what now?", "Throne"},
      {"Just finished act 1. Where next?", "Sunken Mill"},
      {"I just beat gate", "Sunken Mill"},
      {"I’m at the mill and stuck", "Sunken Mill"},
      {"ok so I reached the Sunken Mill", "Sunken Mill"},
      {"I've beaten the first boss warden", "Throne"},
      {"I beat the throne", "Throne"},
      {"How do I beat the Iron Warden?", nullptr},
      {"what happens if I just beat the warden", nullptr},
      {"I can't beat the warden", nullptr},
      {"I'm at a loss about the warden", nullptr},
      {"I'm at the gate", nullptr},  // already there
      {"I am stuck at the mill", nullptr},
  };
  PlayerPosition position{"The Gate", 1, Directness::kHints, false};
  for (const Row& row : rows) {
    auto move = StageMoveFromQuestion(row.question, outline, position);
    EXPECT_EQ(move ? move->stage.c_str() : "(none)", std::string(row.stage ? row.stage : "(none)"))
        << row.question;
  }
  position = {"", 0, Directness::kHints, false};
  auto move = StageMoveFromQuestion("just beat the mill", outline, position);
  ASSERT_TRUE(move);
  EXPECT_EQ(move->ordinal, 3);
  EXPECT_EQ(move->changes, (std::vector<std::string>{"past Sunken Mill", "now at Iron Warden"}));
}

}  // namespace
}  // namespace hintwick
