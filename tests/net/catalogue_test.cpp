#include "net/catalogue.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <memory>
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
    std::vector<GameEntry> expected;
  } cases[] = {
      {"empty slug dropped",
       R"([{"slug":"a","title":"A"},{"slug":"","title":"B"}])",
       {{"a", "A", false}}},
      {"wrapped in an object", R"({"games":[{"slug":"a","title":"A"}]})", {}},
      {"display name wins over title",
       R"([{"slug":"a","title":"T","display_name":"D"}])",
       {{"a", "D", false}}},
      {"empty display name falls back to title",
       R"([{"slug":"a","display_name":"","title":"T"}])",
       {{"a", "T", false}}},
      {"no name at all", R"([{"slug":"a","has_index":true}])", {{"a", "", true}}},
      {"has_index must be a boolean",
       R"([{"slug":"a","has_index":"true"},{"slug":"b","has_index":false}])",
       {{"a", "", false}, {"b", "", false}}},
      {"missing slug dropped", R"([{"title":"A"},{"slug":"b"}])", {{"b", "", false}}},
      {"braces and quotes inside strings",
       R"([{"slug":"x}","title":"say \"}{\" now"},{"slug":"{y","title":"\\"}])",
       {{"x}", "say \"}{\" now", false}, {"{y", "\\", false}}},
      {"backslash right before the closing quote",
       R"([{"slug":"a\\","title":"}"},{"slug":"b"}])",
       {{"a\\", "}", false}, {"b", "", false}}},
      {"nested object keeps the outer slug",
       R"([{"meta":{"slug":"inner"},"slug":"outer","has_index":true}])",
       {{"outer", "", true}}},
      {"only a nested slug", R"([{"meta":{"slug":"inner"}}])", {}},
      {"pretty printed",
       "[\n  {\n    \"slug\": \"a\",\n    \"title\": \"A\",\n    \"has_index\": true\n  }\n]\n",
       {{"a", "A", true}}},
      {"unterminated last object", R"([{"slug":"a"},{"slug":"b")", {{"a", "", false}}},
      {"unterminated string swallows the rest", R"([{"slug":"a},{"slug":"b"}])", {}},
      {"no objects", "[]", {}},
      {"empty text", "", {}},
      {"utf-8 passes through",
       "[{\"slug\":\"caf\xC3\xA9\",\"title\":\"\\u00e9\"}]",
       {{"caf\xC3\xA9", "\xC3\xA9", false}}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Describe(ParseCatalogue(c.text)), Describe(c.expected)) << c.what;
  }
}

// Parsing is one left-to-right pass, so any prefix of a reply yields a prefix of its entries;
// each prefix is copied to a block of its exact size so that a read past it is caught.
TEST(ParseCatalogue, EveryTruncationYieldsAPrefixOfTheEntries) {
  const std::string text =
      R"([{"slug":"a","display_name":"A \"1\"","has_index":true},)"
      R"({"slug":"b\\","title":"{B}","meta":{"x":"}"}},{"slug":"c","title":"\u0043"}])";
  const std::vector<GameEntry> full = ParseCatalogue(text);
  ASSERT_EQ(full.size(), 3u);
  for (size_t length = 0; length <= text.size(); ++length) {
    std::unique_ptr<char[]> block(new char[length + 1]);
    text.copy(block.get(), length);
    const std::vector<GameEntry> part = ParseCatalogue(std::string_view(block.get(), length));
    ASSERT_LE(part.size(), full.size()) << length;
    for (size_t i = 0; i < part.size(); ++i) EXPECT_EQ(part[i], full[i]) << length;
  }
}

TEST(ParseMemoryRecord, ReadsTheKnownKeysOverTheDefaults) {
  constexpr int32_t kMax32 = std::numeric_limits<int32_t>::max();
  constexpr int32_t kMin32 = std::numeric_limits<int32_t>::min();
  const struct {
    const char* what;
    std::string text;
    MemoryRecord expected;
  } cases[] = {
      {"all keys",
       R"({"stage":"act 2","stage_ordinal":3,"directness":"hints","spoilers_ok":true,)"
       R"("revision":9007199254740993})",
       {true, "act 2", 3, "hints", true, 9007199254740993}},
      {"empty object", "{}", {true, "", 0, "", false, 0}},
      {"wrong kinds keep defaults",
       R"({"stage":4,"stage_ordinal":"3","directness":null,"spoilers_ok":"yes"})",
       {true, "", 0, "", false, 0}},
      {"ordinal above 32 bits saturates",
       R"({"stage_ordinal":4294967299})",
       {true, "", kMax32, "", false, 0}},
      {"ordinal below 32 bits saturates",
       R"({"stage_ordinal":-4294967299})",
       {true, "", kMin32, "", false, 0}},
      {"nested keys are not members",
       R"({"last":{"stage":"x"},"stage_ordinal":-2})",
       {true, "", -2, "", false, 0}},
  };
  for (const auto& c : cases) {
    const MemoryRecord record = ParseMemoryRecord(c.text);
    EXPECT_EQ(record, c.expected) << c.what << ": " << record.stage << " " << record.stage_ordinal;
  }
}

TEST(MemoryPatchBody, WritesOnlyTheGivenFieldsInFixedOrder) {
  const struct {
    MemoryPatch patch;
    const char* expected;
  } cases[] = {
      {{"act 2", 3, "hints", false},
       R"({"stage":"act 2","stage_ordinal":3,"directness":"hints","spoilers_ok":false})"},
      {{.spoilers_ok = false}, R"({"spoilers_ok":false})"},
      {{.spoilers_ok = true}, R"({"spoilers_ok":true})"},
      {{.stage_ordinal = -7, .directness = "coach"},
       R"({"stage_ordinal":-7,"directness":"coach"})"},
      {{.stage = ""}, R"({"stage":""})"},
      {{.stage = "say \"hi\"\\\n\x01"}, R"({"stage":"say \"hi\"\\\n\u0001"})"},
      {{}, "{}"},
  };
  for (const auto& c : cases) EXPECT_EQ(MemoryPatchBody(c.patch), c.expected);
}

TEST(MemoryPatchBody, ReadsBackAsTheSameRecord) {
  const MemoryPatch patch{"\"}{\\", std::numeric_limits<int32_t>::min(), "answer", true};
  const MemoryRecord record = ParseMemoryRecord(MemoryPatchBody(patch));
  EXPECT_EQ(record.stage, *patch.stage);
  EXPECT_EQ(record.stage_ordinal, *patch.stage_ordinal);
  EXPECT_EQ(record.directness, *patch.directness);
  EXPECT_TRUE(record.spoilers_ok);
}

TEST(MemoryPaths, KeepTheSlugAsItIs) {
  EXPECT_EQ(MemoryPath("a b/c%20"), "/v1/memory/a b/c%20");
  EXPECT_EQ(NewPlaythroughPath("a b/c%20"), "/v1/memory/a b/c%20/new-playthrough");
}

TEST(TokenBodies, AreFlatObjectsInFixedOrder) {
  EXPECT_EQ(CredentialsBody("p@x.org", "pa\"ss\\word"),
            R"({"email":"p@x.org","password":"pa\"ss\\word","device_label":"windows-client"})");
  EXPECT_EQ(RefreshTokenBody("r1"), R"({"refresh_token":"r1"})");
}

TEST(ParseTokenReply, TreatsEmptyTokensAsAbsent) {
  const struct {
    const char* text;
    std::optional<std::string> access;
    std::optional<std::string> refresh;
  } cases[] = {
      {R"({"access_token":"a","refresh_token":"r"})", "a", "r"},
      {R"({"access_token":"a"})", "a", std::nullopt},
      {R"({"access_token":"","refresh_token":"r"})", std::nullopt, "r"},
      {R"({"access_token":"a","refresh_token":""})", "a", std::nullopt},
      {R"({"access_token":1,"refresh_token":null})", std::nullopt, std::nullopt},
      {R"({"data":{"access_token":"a"}})", std::nullopt, std::nullopt},
  };
  for (const auto& c : cases) {
    const TokenReply reply = ParseTokenReply(c.text);
    EXPECT_EQ(reply.access_token, c.access) << c.text;
    EXPECT_EQ(reply.refresh_token, c.refresh) << c.text;
  }
}

}  // namespace
}  // namespace qn
