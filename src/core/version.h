#pragma once
// The running build's version, as the version resource says it; the update check compares
// the published one with it as text for equality.
namespace qn {

inline constexpr char kProductVersion[] = "0.1.7";
inline constexpr wchar_t kProductVersionText[] = L"0.1.7";

}  // namespace qn
