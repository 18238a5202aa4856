#include "net/catalogue.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace qn {
namespace {

std::string Describe(const std::vector<GameEntry>& entries) {
  std::string out;
  for (const GameEntry& e : entries) {
    out += "[" + e.slug + "|" + e.display_name + "|" + (e.has_index ? "i" : "-") + "]";
  }
  return out;
}

TEST(ParseCatalogue, ReadsEachFlatObjectInOrder) {
  const struct {
    const char* what;
    std::string text;
    std::string expected;
  } cases[] = {
      {"wrapped in an object", R"({"games":[{"slug":"a","title":"A"}]})", ""},
      {"empty slug dropped; display name over title, unless empty",
       R"([{"slug":"a","title":"T","display_name":"D"},{"slug":"","title":"B"},)"
       R"({"slug":"b","display_name":"","title":"U"}])",
       "[a|D|-][b|U|-]"},
      {"braces and an escaped quote in strings", R"([{"slug":"a\"}","title":"{"}])", "[a\"}|{|-]"},
      {"has_index must be a boolean",
       R"([{"slug":"a","has_index":"true"},{"slug":"b","has_index":true}])", "[a||-][b||i]"},
      {"nested object keeps the outer slug",
       R"([{"meta":{"slug":"inner"},"slug":"outer"},{"meta":{"slug":"only"}}])", "[outer||-]"},
      {"unterminated last object", R"([{"slug":"a"},{"slug":"b")", "[a||-]"},
  };
  for (const auto& c : cases) EXPECT_EQ(Describe(ParseCatalogue(c.text)), c.expected) << c.what;
}

// The table a lookup on the worker and the status line on the interface thread share.
TEST(GameTable, KeepsTheNewestTableAndSaysWhenItMayBeOld) {
  const std::vector<GameEntry> live = {{"live", "Live", true}};
  const std::vector<GameEntry> file = {{"file", "File", false}};
  GameTable table;
  EXPECT_FALSE(table.Held(true));
  EXPECT_EQ(Describe(table.FillFromCache(file)), "[file|File|-]");
  EXPECT_TRUE(table.stale());
  table.StoreLive(live);
  EXPECT_FALSE(table.stale());
  EXPECT_EQ(Describe(table.Held(false).value()), "[live|Live|i]");
  EXPECT_FALSE(table.stale());
  // The file read while the worker stored a live reply is older: it must not replace it.
  EXPECT_EQ(Describe(table.FillFromCache(file)), "[live|Live|i]");
  EXPECT_FALSE(table.stale());
  EXPECT_EQ(Describe(table.Held(true).value()), "[live|Live|i]");
  EXPECT_TRUE(table.stale());
}

// Absent or mistyped keys keep their defaults; an ordinal beyond 32 bits either way saturates
// rather than wraps, so a late stage never reads as an early one.
TEST(ParseMemoryRecord, ReadsTheKnownKeysOverTheDefaults) {
  EXPECT_EQ(ParseMemoryRecord(R"({"stage":"act 2","stage_ordinal":-4294967299,"spoilers_ok":true,)"
                              R"("directness":"coach","revision":9007199254740993})"),
            (MemoryRecord{true, "act 2", std::numeric_limits<int32_t>::min(), "coach", true,
                          9007199254740993}));
  EXPECT_EQ(ParseMemoryRecord(R"({"last":{"stage":"x"},"stage_ordinal":4294967296,"directness":3,)"
                              R"("spoilers_ok":false,"revision":-1})"),
            (MemoryRecord{true, "", std::numeric_limits<int32_t>::max(), "", false, -1}));
}

TEST(RequestBodies, AreFlatObjectsInFixedOrder) {
  EXPECT_EQ(MemoryPatchBody({"act \"2\"", 3, "hints", false}),
            R"({"stage":"act \"2\"","stage_ordinal":3,"directness":"hints","spoilers_ok":false})");
  EXPECT_EQ(MemoryPatchBody({.stage_ordinal = -7, .directness = "coach"}),
            R"({"stage_ordinal":-7,"directness":"coach"})");
  EXPECT_EQ(MemoryPatchBody({}), "{}");
  EXPECT_EQ(
      CredentialsBody("p\"@x.org", "pa\"ss\\w\x01rd"),
      R"({"email":"p\"@x.org","password":"pa\"ss\\w\u0001rd","device_label":"windows-client"})");
}

}  // namespace
}  // namespace qn
