#include "answers/text.h"

#include <cstdint>

namespace hintwick {
namespace {

char32_t DecodeAt(std::string_view text, std::size_t at) {
  auto lead = static_cast<unsigned char>(text[at]);
  std::size_t length = Utf8Length(lead);
  if (length == 1 || at + length > text.size()) return lead;
  char32_t code = lead & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) code = (code << 6) | (text[at + i] & 0x3F);
  return code;
}

bool IsWordCode(char32_t code) {
  if (code < 0x80) {
    return (code >= '0' && code <= '9') || (code >= 'a' && code <= 'z') ||
           (code >= 'A' && code <= 'Z');
  }
  // Latin-1 punctuation, the multiplication and division signs, general and CJK punctuation,
  // and emoji and other symbols: "Mara’s" and "Mara—" still end the word "Mara".
  if (code <= 0xBF || code == 0xD7 || code == 0xF7) return false;
  if ((code >= 0x2000 && code <= 0x2BFF) || (code >= 0x3000 && code <= 0x303F)) return false;
  return code < 0x1F000;
}

bool IsApostrophe(std::string_view text, std::size_t at) {
  return text[at] == '\'' || text.substr(at, 3) == "\xE2\x80\x99";
}

bool IsClauseEnd(char c) {
  return c == '.' || c == ',' || c == '!' || c == '?' || c == ';' || c == ':' || c == '\n';
}

}  // namespace

std::size_t Utf8Length(unsigned char lead) {
  if (lead >= 0xF0 && lead < 0xF8) return 4;
  if (lead >= 0xE0) return lead < 0xF0 ? 3 : 1;
  if (lead >= 0xC0) return 2;
  return 1;
}

std::size_t Utf8Boundary(std::string_view text, std::size_t cut) {
  if (cut >= text.size()) {
    if (text.empty()) return 0;
    std::size_t last = Utf8Boundary(text, text.size() - 1);
    bool whole = last + Utf8Length(static_cast<unsigned char>(text[last])) <= text.size();
    return whole ? text.size() : last;
  }
  while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return cut;
}

std::string FoldCase(std::string_view text) {
  std::string folded(text);
  for (std::size_t i = 0; i < folded.size(); ++i) {
    auto byte = static_cast<unsigned char>(folded[i]);
    if (byte >= 'A' && byte <= 'Z') folded[i] = static_cast<char>(byte + 32);
    // U+00C0..U+00DE, save U+00D7, are C3 80..C3 9E; their lower case is 0x20 higher.
    if (byte == 0xC3 && i + 1 < folded.size()) {
      auto next = static_cast<unsigned char>(folded[i + 1]);
      if (next >= 0x80 && next <= 0x9E && next != 0x97)
        folded[i + 1] = static_cast<char>(next + 32);
      ++i;
    }
  }
  return folded;
}

bool WordCharAt(std::string_view text, std::size_t at) {
  return at < text.size() && IsWordCode(DecodeAt(text, at));
}

bool WordCharBefore(std::string_view text, std::size_t at) {
  if (at == 0 || at > text.size()) return false;
  return WordCharAt(text, Utf8Boundary(text, at - 1));
}

std::vector<std::string> WordsAndClauses(std::string_view text) {
  std::string folded = FoldCase(text);
  std::vector<std::string> words;
  std::string word;
  for (std::size_t at = 0; at < folded.size();) {
    std::size_t length = Utf8Length(static_cast<unsigned char>(folded[at]));
    if (WordCharAt(folded, at)) {
      word.append(folded, at, length);
    } else if (word.empty() || !IsApostrophe(folded, at)) {
      if (!word.empty()) words.push_back(std::move(word));
      word.clear();
      bool after_word = !words.empty() && !words.back().empty();
      if (IsClauseEnd(folded[at]) && after_word) words.emplace_back();
    }
    at += length;
  }
  if (!word.empty()) words.push_back(std::move(word));
  return words;
}

std::string NormalizedQuestion(std::string_view question) {
  std::string normalized;
  for (const std::string& word : WordsAndClauses(question)) {
    if (word.empty()) continue;
    if (!normalized.empty()) normalized += ' ';
    normalized += word;
  }
  return normalized;
}

}  // namespace hintwick
