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
      {"empty slug dropped", R"([{"slug":"a","title":"A"},{"slug":"","title":"B"}])", "[a|A|-]"},
      {"wrapped in an object", R"({"games":[{"slug":"a","title":"A"}]})", ""},
      {"display name over title", R"([{"slug":"a","title":"T","display_name":"D"}])", "[a|D|-]"},
      {"empty display name", R"([{"slug":"a","display_name":"","title":"T"}])", "[a|T|-]"},
      {"has_index must be a boolean",
       R"([{"slug":"a","has_index":"true"},{"slug":"b","has_index":true}])", "[a||-][b||i]"},
      {"braces and quotes inside strings",
       R"([{"slug":"x}","title":"say \"}{\" now"},{"slug":"a\\","title":"}"}])",
       "[x}|say \"}{\" now|-][a\\|}|-]"},
      {"nested object keeps the outer slug",
       R"([{"meta":{"slug":"inner"},"slug":"outer"},{"meta":{"slug":"only"}}])", "[outer||-]"},
      {"unterminated last object", R"([{"slug":"a"},{"slug":"b")", "[a||-]"},
      {"utf-8 passes through", "[{\"slug\":\"caf\xC3\xA9\",\"title\":\"\\u00e9\"}]",
       "[caf\xC3\xA9|\xC3\xA9|-]"},
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

TEST(ParseMemoryRecord, ReadsTheKnownKeysOverTheDefaults) {
  const struct {
    const char* what;
    std::string text;
    MemoryRecord expected;
  } cases[] = {
      {"all keys",
       R"({"stage":"act 2","stage_ordinal":3,"directness":"hints","spoilers_ok":true,)"
       R"("revision":9007199254740993})",
       {true, "act 2", 3, "hints", true, 9007199254740993}},
      {"wrong kinds keep defaults",
       R"({"stage":4,"stage_ordinal":"3","directness":null,"spoilers_ok":"yes"})",
       {true, "", 0, "", false, 0}},
      {"ordinal above 32 bits saturates", R"({"stage_ordinal":4294967299})",
       {true, "", std::numeric_limits<int32_t>::max(), "", false, 0}},
      {"ordinal below 32 bits saturates", R"({"stage_ordinal":-4294967299})",
       {true, "", std::numeric_limits<int32_t>::min(), "", false, 0}},
      {"nested keys are not members", R"({"last":{"stage":"x"},"stage_ordinal":-2})",
       {true, "", -2, "", false, 0}},
  };
  for (const auto& c : cases) EXPECT_EQ(ParseMemoryRecord(c.text), c.expected) << c.what;
}

TEST(RequestBodies, AreFlatObjectsInFixedOrder) {
  EXPECT_EQ(MemoryPatchBody({"act 2", 3, "hints", false}),
            R"({"stage":"act 2","stage_ordinal":3,"directness":"hints","spoilers_ok":false})");
  EXPECT_EQ(MemoryPatchBody({.stage_ordinal = -7, .directness = "coach"}),
            R"({"stage_ordinal":-7,"directness":"coach"})");
  EXPECT_EQ(MemoryPatchBody({}), "{}");
  EXPECT_EQ(CredentialsBody("p@x.org", "pa\"ss\\w\x01rd"),
            R"({"email":"p@x.org","password":"pa\"ss\\w\u0001rd","device_label":"windows-client"})");
  EXPECT_EQ(RefreshTokenBody("r1"), R"({"refresh_token":"r1"})");
  EXPECT_EQ(NewPlaythroughPath("a b/c%20"), "/v1/memory/a b/c%20/new-playthrough");
}

TEST(ParseTokenReply, TreatsEmptyTokensAsAbsent) {
  const TokenReply reply = ParseTokenReply(R"({"access_token":"","refresh_token":"r"})");
  EXPECT_EQ(reply.access_token, std::nullopt);
  EXPECT_EQ(reply.refresh_token, "r");
  EXPECT_EQ(ParseTokenReply(R"({"data":{"access_token":"a"}})").access_token, std::nullopt);
}

}  // namespace
}  // namespace qn
