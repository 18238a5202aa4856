#include "core/json.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// json_fuzz round-trips the escaper and guards every read. These tables hold what it cannot
// know: which member is found, what bytes mean.
namespace qn {
namespace {

using namespace std::string_literals;

TEST(Json, FindsOnlyMembersOfTheOutermostObjectAndReadsNumbersAsStrtoll) {
  const struct {
    std::string text;
    std::optional<int64_t> b;
  } cases[] = {
      // clang-format off
      {R"({"a":{"b":1},"b":2})", 2}, {R"({"l":[{"b":1}],"b":2})", 2},    {R"({"b":1,"b":2})", 1},
      {R"({"x":"b","b":3})", 3},     {R"({"x":"\",\"b\":1","b":2})", 2}, {R"({"x":"\\","b":4})", 4},
      {R"({"x":"{[","b":5})", 5},    {R"({"bb":1})", std::nullopt},      {R"("b":1)", std::nullopt},
      {R"(}{"b":1})", std::nullopt}, {"{\"b\"\n:1,\"b\" \t:\r\n 8}", 8}, {R"({"b":-})", 0},
      {R"({"b":+1})", std::nullopt}, {R"({"b":9223372036854775808})", INT64_MAX},
      {R"({"b":-9999999999999999999})", INT64_MIN},
      // clang-format on
  };
  for (const auto& c : cases) EXPECT_EQ(JsonGetInt(c.text, "b"), c.b) << c.text;
}

TEST(Json, DecodesStringLiterals) {
  const struct {
    std::string literal;
    std::optional<std::string> value;
  } cases[] = {
      {R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t"},
      {R"("\x\q")", "xq"},
      {R"("\u0041\u00e9\u07ff\u0800\uffff")", "A\xC3\xA9\xDF\xBF\xE0\xA0\x80\xEF\xBF\xBF"},
      {R"("\ud83d\ude00")", "\xED\xA0\xBD\xED\xB8\x80"},  // halves are never paired
      {R"("\u00zz")", "\0"s},                             // strtoul stops at the first non-hex
      {R"("ab\u12")", "ab12"},                            // a cut-short \u is dropped
      {"\"\x01\xC3\xA9\"", "\x01\xC3\xA9"},
      {R"("abc\)", std::nullopt},
      {R"("abc)", std::nullopt},
      {"abc", std::nullopt},
  };
  for (const auto& c : cases) EXPECT_EQ(JsonParseString(c.literal, 0), c.value) << c.literal;
}

TEST(Json, StringArraysStopAtTheFirstOtherValue) {
  const std::string text = R"({"s":"v","a":["x", "y",,"z",1,"w"]})";
  EXPECT_EQ(JsonGetStringArray(text, "a"), (std::vector<std::string>{"x", "y", "z"}));
}

TEST(Json, WritesEscapedFlatObjects) {
  EXPECT_EQ(JsonEscape("\t\n\r\"\\/\x01\b\x1f\x7f\xC3\xA9"s + '\0'),
            "\\t\\n\\r\\\"\\\\/\\u0001\\u0008\\u001f\x7f\xC3\xA9\\u0000");
  EXPECT_EQ(JsonWriteFlatObject({{"b", "say \"hi\""}, {"a", ""}, {"b", "2"}}),
            R"({"b":"say \"hi\"","a":"","b":"2"})");
}

}  // namespace
}  // namespace qn
