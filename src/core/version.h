#pragma once
// The running build's version, as the version resource and the update check know it.
namespace qn {

inline constexpr char kProductVersion[] = "0.1.7";
inline constexpr wchar_t kProductVersionText[] = L"0.1.7";

}  // namespace qn
