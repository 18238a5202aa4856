#pragma once
// JSON without a document tree: members of the outermost object are looked up one key at a
// time in the raw UTF-8 text, and request bodies are written flat. Service replies, chat
// events and config.json are all small, so every lookup simply rescans the text.
//
// Nothing here throws, logs or validates UTF-8. A missing key and a value of another kind
// both come back absent; the caller supplies its own default.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qn {

inline constexpr size_t kJsonNotFound = std::string_view::npos;

// Index just past the colon after `key` (given without quotes) among the members of the
// outermost object, or kJsonNotFound. The first occurrence in text order wins. Spaces and
// tabs may sit between the key and its colon; a line break there defeats the match.
size_t JsonFindKey(std::string_view text, std::string_view key);

// First index at or after `index` that is not space, tab, line feed or carriage return;
// text.size() when there is none (also for an index already past the end).
size_t JsonSkipSpace(std::string_view text, size_t index);

// Decodes the string literal that starts at `index` after white space. On success `end`
// (when given) receives the index just past the closing quote; on failure it is untouched.
// Lenient by design, and kept exactly so: an unknown escape stands for its letter, \u reads
// its four bytes as strtoul does, surrogate escapes are never paired (each becomes three
// bytes), and a \u cut short by the end of the text is dropped.
std::optional<std::string> JsonParseString(std::string_view text, size_t index,
                                           size_t* end = nullptr);

std::optional<std::string> JsonGetString(std::string_view text, std::string_view key);

// "true" or "false" as a prefix of the value: the bytes after the word are not looked at.
std::optional<bool> JsonGetBool(std::string_view text, std::string_view key);

// A value starting with "-" or a digit, read as strtoll base 10 reads it: a fraction or an
// exponent is ignored ("12.9" is 12) and out-of-range values saturate at the int64 limits.
std::optional<int64_t> JsonGetInt(std::string_view text, std::string_view key);

// The leading string elements of an array value; the first element of any other kind ends
// the array quietly. Empty when the key is missing or its value is not an array.
std::vector<std::string> JsonGetStringArray(std::string_view text, std::string_view key);

// The body of a string literal (no surrounding quotes). UTF-8 and "/" pass through as is.
std::string JsonEscape(std::string_view text);

// {"k":"v",...} in list order, duplicates kept, no white space. Keys are written as they are:
// callers only use fixed ASCII keys. Values are escaped and always written as strings.
std::string JsonWriteFlatObject(const std::vector<std::pair<std::string, std::string>>& pairs);

}  // namespace qn
