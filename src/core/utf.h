#pragma once
// UTF-8 <-> UTF-16 for text crossing between the wire or config.json (UTF-8) and paths,
// window texts and the chat view (wide). Portable: wchar_t always holds UTF-16 code units,
// also where it is 32 bits wide, so that every build converts the same text the same way.
#include <string>
#include <string_view>

namespace qn {

// Ill-formed input becomes U+FFFD, one per maximal subpart of a sequence (bad lead bytes,
// cut sequences, overlongs, encoded surrogates, values above U+10FFFF), as the system's
// own conversion does when asked for no special handling.
std::wstring Utf8ToWide(std::string_view text);

// Unpaired surrogates (and, where wchar_t is wider, units above 0xFFFF) become U+FFFD.
std::string WideToUtf8(std::wstring_view text);

}  // namespace qn
