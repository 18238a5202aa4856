#include "core/json.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qn {
namespace {

using namespace std::string_literals;
using Strings = std::vector<std::string>;

constexpr int64_t kMax = std::numeric_limits<int64_t>::max();
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();

// A copy of `text` in a heap block of exactly its size, so that the sanitizer traps any
// read past the end of the view (a std::string would hide it behind its terminator).
class ExactBuffer {
 public:
  explicit ExactBuffer(std::string_view text) : bytes_(new char[text.size()]), size_(text.size()) {
    std::memcpy(bytes_.get(), text.data(), text.size());
  }
  std::string_view view() const { return {bytes_.get(), size_}; }

 private:
  std::unique_ptr<char[]> bytes_;
  size_t size_;
};

TEST(JsonFindKey, OnlyOutermostMembersMatch) {
  struct Case {
    const char* name;
    std::string text;
    const char* key;
    std::optional<int64_t> value;
  };
  const Case cases[] = {
      {"nested object member is skipped", R"({"a":{"b":1},"b":2})", "b", 2},
      {"member of an object inside an array is skipped", R"({"l":[{"b":1}],"b":2})", "b", 2},
      {"first duplicate wins", R"({"b":1,"b":2})", "b", 1},
      {"key text seen first as a value", R"({"x":"b","b":3})", "b", 3},
      {"quoted key inside a value", R"({"x":"\"b\":9","b":3})", "b", 3},
      {"escaped quote inside a value", R"({"x":"\",\"b\":1","b":2})", "b", 2},
      {"escaped backslash closes the value", R"({"x":"\\","b":4})", "b", 4},
      {"braces inside a value do not nest", R"({"x":"{[","b":5})", "b", 5},
      {"space before colon", R"({"b" :1})", "b", 1},
      {"spaces and tabs before colon", "{\"b\" \t :1}", "b", 1},
      {"line feed before colon", "{\"b\"\n:1}", "b", std::nullopt},
      {"carriage return before colon", "{\"b\"\r:1}", "b", std::nullopt},
      {"line break after colon is fine", "{\"b\":\r\n\t 6}", "b", 6},
      {"line feed before colon, later match still found", "{\"b\"\n:1,\"b\":2}", "b", 2},
      {"key is a prefix of a member", R"({"bb":1})", "b", std::nullopt},
      {"member is a prefix of the key", R"({"b":1})", "bb", std::nullopt},
      {"empty key", R"({"":7})", "", 7},
      {"UTF-8 key", "{\"\xC3\xA9t\xC3\xA9\":8}", "\xC3\xA9t\xC3\xA9", 8},
      {"no enclosing object", R"("b":1)", "b", std::nullopt},
      {"arrays count as depth too", R"(["b":9])", "b", 9},
      {"after the outermost object closed", R"({"a":{}}{"b":1})", "b", 1},
      {"stray closer before the object", R"(}{"b":1})", "b", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(JsonGetInt(c.text, c.key), c.value);
  }
}

TEST(JsonFindKey, ReturnsIndexPastTheColon) {
  struct Case {
    std::string text;
    size_t index;
  };
  const Case cases[] = {
      {R"({"k":1})", 5},
      {R"({"k" :1})", 6},
      {R"({"k":)", 5},  // the colon is the last byte: the index is the text's length
      {R"({"k")", kJsonNotFound},
      {R"({"k" )", kJsonNotFound},
      {R"({"k)", kJsonNotFound},
      {"", kJsonNotFound},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(JsonFindKey(ExactBuffer(c.text).view(), "k"), c.index);
  }
}

TEST(JsonSkipSpace, StopsAtFirstOtherByte) {
  EXPECT_EQ(JsonSkipSpace(" \t\r\nx", 0), 4u);
  EXPECT_EQ(JsonSkipSpace("x  ", 0), 0u);
  EXPECT_EQ(JsonSkipSpace("x \v", 1), 2u);  // vertical tab is not JSON white space
  EXPECT_EQ(JsonSkipSpace("x  ", 1), 3u);
  EXPECT_EQ(JsonSkipSpace("abc", kJsonNotFound), 3u);
}

TEST(JsonParseString, DecodesLiterals) {
  struct Case {
    const char* name;
    std::string text;
    std::optional<std::string> value;
    size_t end;  // checked only when a value is expected
  };
  const Case cases[] = {
      {"plain", R"("abc")", "abc", 5},
      {"white space before the quote", " \t\r\n\"x\"", "x", 7},
      {"stops at the first closing quote", R"("a"b")", "a", 3},
      {"empty", R"("")", "", 2},
      {"not a string", "abc", std::nullopt, 0},
      {"single quotes", "'a'", std::nullopt, 0},
      {"only white space", "  ", std::nullopt, 0},
      {"unclosed", R"("abc)", std::nullopt, 0},
      {"trailing lone backslash", R"("abc\)", std::nullopt, 0},
      {"escaped closing quote", R"("abc\")", std::nullopt, 0},
      {"short escapes", R"("\"\\\/\b\f\n\r\t")", "\"\\/\b\f\n\r\t", 18},
      {"unknown escapes lose the backslash", R"("\x\q\0")", "xq0", 8},
      {"raw bytes copied", "\"\x01\xC3\xA9\xFF\"", "\x01\xC3\xA9\xFF", 6},
      {"raw NUL copied", "\"a\0b\""s, "a\0b"s, 5},
      {"one-byte \\u", R"("\u0041")", "A", 8},
      {"\\u00e9", R"("\u00e9")", "\xC3\xA9", 8},
      {"upper-case hex", R"("\u00E9")", "\xC3\xA9", 8},
      {"largest two-byte", R"("\u07ff")", "\xDF\xBF", 8},
      {"smallest three-byte", R"("\u0800")", "\xE0\xA0\x80", 8},
      {"largest three-byte", R"("\uffff")", "\xEF\xBF\xBF", 8},
      {"surrogates stay unpaired", R"("\ud83d\ude00")", "\xED\xA0\xBD\xED\xB8\x80", 14},
      {"\\u0000 is a NUL byte", R"("\u0000")", "\0"s, 8},
      {"hex stops early, four bytes still skipped", R"("\u00zz")", "\0"s, 8},
      {"leading space in the hex", R"("\u 1ab")", "\xC6\xAB", 8},
      {"plus sign in the hex", R"("\u+07F")", "\x7F", 8},
      {"0x prefix in the hex", R"("\u0x1F")", "\x1F", 8},
      {"negative hex wraps to 32 bits", R"("\u-001")", "\xFF\xBF\xBF", 8},
      {"no hex digits at all", R"("\uzzzz")", "\0"s, 8},
      {"skipped bytes can swallow a quote", R"("a\u1"bcd")",
       "a\x01"
       "d",
       10},
      {"short \\u before the end is dropped", R"("ab\u12")", "ab12", 8},
      {"bare \\u before the end is dropped", R"("\u")", "", 4},
      {"short \\u with no closing quote", R"("\u1)", std::nullopt, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    size_t end = 12345;
    EXPECT_EQ(JsonParseString(ExactBuffer(c.text).view(), 0, &end), c.value);
    EXPECT_EQ(end, c.value ? c.end : 12345u);
  }
}

TEST(JsonParseString, StartsAtTheGivenIndex) {
  const std::string text = R"({"a": "one", "b":"two"})";
  size_t end = 0;
  EXPECT_EQ(JsonParseString(text, 5, &end), "one");
  EXPECT_EQ(text.substr(end), R"(, "b":"two"})");
  EXPECT_EQ(JsonParseString(text, end), std::nullopt);
  EXPECT_EQ(JsonParseString(text, text.size()), std::nullopt);
}

TEST(JsonGetBool, ReadsWordPrefixes) {
  struct Case {
    std::string value;
    std::optional<bool> result;
  };
  const Case cases[] = {
      {"true", true},         {"false", false},       {" \n true", true},
      {"trueish", true},      {"falsey", false},      {"true}", true},
      {"1", std::nullopt},    {"0", std::nullopt},    {"\"true\"", std::nullopt},
      {"TRUE", std::nullopt}, {"null", std::nullopt}, {"tru", std::nullopt},
      {"fals", std::nullopt}, {"", std::nullopt},
  };
  for (const Case& c : cases) {
    const std::string text = R"({"k":)" + c.value;
    SCOPED_TRACE(text);
    EXPECT_EQ(JsonGetBool(ExactBuffer(text).view(), "k"), c.result);
  }
  EXPECT_EQ(JsonGetBool(R"({"j":true})", "k"), std::nullopt);
}

TEST(JsonGetInt, ConvertsLikeStrtoll) {
  struct Case {
    std::string value;
    std::optional<int64_t> result;
  };
  const Case cases[] = {
      {"42", 42},
      {"-7", -7},
      {"  \t\n 42", 42},
      {"007", 7},
      {"-0", 0},
      {"12.9", 12},
      {"1e5", 1},
      {"12abc", 12},
      {"-", 0},  // strtoll converts nothing and gives 0
      {"\"7\"", std::nullopt},
      {"+5", std::nullopt},
      {".5", std::nullopt},
      {"true", std::nullopt},
      {"", std::nullopt},
      {"9223372036854775807", kMax},
      {"-9223372036854775808", kMin},
      {"9223372036854775808", kMax},
      {"-9223372036854775809", kMin},
      {"99999999999999999999999999999999", kMax},
      {"-99999999999999999999999999999999", kMin},
  };
  for (const Case& c : cases) {
    const std::string text = R"({"k":)" + c.value;  // the value runs to the end of the view
    SCOPED_TRACE(text);
    EXPECT_EQ(JsonGetInt(ExactBuffer(text).view(), "k"), c.result);
    EXPECT_EQ(JsonGetInt(text + ",\"z\":1}", "k"), c.result);
  }
}

TEST(JsonGetString, NeedsAStringValue) {
  struct Case {
    std::string text;
    std::optional<std::string> result;
  };
  const Case cases[] = {
      {R"({"k":"v"})", "v"},
      {"{\"k\":\r\n \"v\"}", "v"},
      {R"({"k":""})", ""},
      {R"({"k":"a\"b\u00e9"})", "a\"b\xC3\xA9"},
      {R"({"k":1})", std::nullopt},
      {R"({"k":null})", std::nullopt},
      {R"({"k":["v"]})", std::nullopt},
      {R"({"j":"v"})", std::nullopt},
      {R"({"k":)", std::nullopt},
      {R"({"k":"v)", std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(JsonGetString(ExactBuffer(c.text).view(), "k"), c.result);
  }
}

TEST(JsonGetStringArray, CollectsLeadingStrings) {
  struct Case {
    std::string text;
    Strings result;
  };
  const Case cases[] = {
      {R"({"k":["a","b"]})", {"a", "b"}},
      {"{\"k\": [ \"a\" ,\n\"b\" ] }", {"a", "b"}},
      {R"({"k":[]})", {}},
      {R"({"k":["\u00e9","x\ny"]})", {"\xC3\xA9", "x\ny"}},
      {R"({"k":["a",1,"b"]})", {"a"}},
      {R"({"k":["a",null]})", {"a"}},
      {R"({"k":[{"x":"y"},"a"]})", {}},
      {R"({"k":[["a"]]})", {}},
      {R"({"k":["a""b"]})", {"a", "b"}},
      {R"({"k":[,,"a",]})", {"a"}},
      {R"({"k":["a","b")", {"a", "b"}},
      {R"({"k":["a","b)", {"a"}},
      {R"({"k":"a"})", {}},
      {R"({"k":)", {}},
      {R"({"o":{"k":["a"]},"k":["b"]})", {"b"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(JsonGetStringArray(ExactBuffer(c.text).view(), "k"), c.result);
  }
}

TEST(JsonEscape, EscapesOnlyWhatItMust) {
  struct Case {
    std::string raw;
    std::string escaped;
  };
  const Case cases[] = {
      {"", ""},
      {"plain text / slash", "plain text / slash"},
      {"\t\n\r\"\\", R"(\t\n\r\"\\)"},
      {"\x01", R"(\u0001)"},
      {"\b\f", R"(\u0008\u000c)"},
      {"\x1f\x1b", R"(\u001f\u001b)"},
      {"a\0b"s, R"(a\u0000b)"},
      {"\x7f", "\x7f"},
      {"\xC3\xA9 \xF0\x9F\x98\x80", "\xC3\xA9 \xF0\x9F\x98\x80"},
      {"\xFF\xC3", "\xFF\xC3"},  // not UTF-8: still passed through
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.escaped);
    EXPECT_EQ(JsonEscape(c.raw), c.escaped);
  }
}

TEST(JsonEscape, EveryByteSurvivesARoundTrip) {
  std::string all;
  for (int byte = 0; byte < 256; ++byte) {
    const std::string one(1, static_cast<char>(byte));
    SCOPED_TRACE(byte);
    EXPECT_EQ(JsonParseString("\"" + JsonEscape(one) + "\"", 0), one);
    all += one;
  }
  EXPECT_EQ(JsonParseString("\"" + JsonEscape(all + all) + "\"", 0), all + all);
}

TEST(JsonWriteFlatObject, WritesPairsInOrder) {
  using Pairs = std::vector<std::pair<std::string, std::string>>;
  struct Case {
    Pairs pairs;
    std::string text;
  };
  const Case cases[] = {
      {{}, "{}"},
      {{{"game", "lantern-isle"}}, R"({"game":"lantern-isle"})"},
      {{{"b", "1"}, {"a", ""}, {"b", "2"}}, R"({"b":"1","a":"","b":"2"})"},
      {{{"message", "say \"hi\"\n\x01"}}, R"({"message":"say \"hi\"\n\u0001"})"},
      {{{"k\"", "v"}}, R"({"k"":"v"})"},  // keys are trusted and written raw
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(JsonWriteFlatObject(c.pairs), c.text);
  }
}

// Streams and sockets can hand over any prefix of a reply. No prefix may crash or read past
// its end, and a value is either absent or complete, except that a number cut between its
// digits reads as the digits that arrived.
TEST(JsonTruncation, EveryPrefixOfAReply) {
  const std::string reply =
      R"({"type":"delta","text":"Pull the \"left\" lever \u00e9\ud83d\ude00","meta":{"ok":false},)"
      R"("ok":true,"n":-1234,"tags":["puzzle","act 2"],"done":false})";
  const auto end_of = [&reply](std::string_view value) { return reply.find(value) + value.size(); };
  const size_t text_end = end_of(R"(\ude00")");
  const size_t ok_end = end_of(R"("ok":true)");
  const size_t n_start = reply.find("-1234");
  const size_t n_end = end_of("-1234");
  const size_t tags_first = end_of(R"("puzzle")");
  const size_t tags_second = end_of(R"("act 2")");
  const std::string text = "Pull the \"left\" lever \xC3\xA9\xED\xA0\xBD\xED\xB8\x80";

  for (size_t cut = 0; cut <= reply.size(); ++cut) {
    SCOPED_TRACE(cut);
    const ExactBuffer buffer(std::string_view(reply).substr(0, cut));
    const std::string_view part = buffer.view();
    EXPECT_EQ(JsonGetString(part, "text"), cut >= text_end ? std::optional(text) : std::nullopt);
    EXPECT_EQ(JsonGetBool(part, "ok"), cut >= ok_end ? std::optional(true) : std::nullopt);
    const std::optional<int64_t> n = JsonGetInt(part, "n");
    EXPECT_EQ(n.has_value(), cut > n_start);
    if (cut >= n_end) {
      EXPECT_EQ(n, -1234);
    }
    Strings tags;
    if (cut >= tags_first) tags.push_back("puzzle");
    if (cut >= tags_second) tags.push_back("act 2");
    EXPECT_EQ(JsonGetStringArray(part, "tags"), tags);
    EXPECT_EQ(JsonGetString(part, "absent"), std::nullopt);
  }
}

}  // namespace
}  // namespace qn
