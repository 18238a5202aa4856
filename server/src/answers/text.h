#pragma once
// Text rules that the spoiler guard, stage moves and repeated questions share, so a term, an
// alias and a question are all matched the same way.
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace hintwick {

// Bytes in the UTF-8 character that starts with `lead` (1 for a stray continuation byte).
std::size_t Utf8Length(unsigned char lead);
// `cut` moved back to the start of the character it falls in (at the end: before a last
// character whose bytes have not all arrived), so what lies before it is whole characters.
std::size_t Utf8Boundary(std::string_view text, std::size_t cut);

// Lower case for ASCII and Latin-1 letters, keeping every byte offset: a match found in the
// folded text is at the same place in the original.
std::string FoldCase(std::string_view text);

// Whether the character at `at` (or the one ending just before `at`) belongs to a word.
// Letters of any script and digits do; spaces, punctuation, symbols and emoji do not.
bool WordCharAt(std::string_view text, std::size_t at);
bool WordCharBefore(std::string_view text, std::size_t at);

// The words of a text, case-folded, with apostrophes dropped inside them ("I'm" is "im").
// An empty string marks the end of a clause (. , ! ? ; : or a line break).
std::vector<std::string> WordsAndClauses(std::string_view text);

// The same question however it is capitalised, punctuated or spaced.
std::string NormalizedQuestion(std::string_view question);

}  // namespace hintwick
