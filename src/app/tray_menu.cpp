#include "app/tray_menu.h"

namespace qn {

std::wstring_view CutForBalloon(std::wstring_view text) {
  constexpr size_t kMax = 255;
  if (text.size() <= kMax) return text;
  const bool splits_pair = text[kMax - 1] >= 0xD800 && text[kMax - 1] <= 0xDBFF;
  return text.substr(0, splits_pair ? kMax - 1 : kMax);
}

std::vector<TrayMenuEntry> TrayMenuEntries(std::wstring_view hotkey_text, bool signed_in) {
  std::wstring title = L"Hintwick (";
  title.append(hotkey_text).append(L")");
  return {
      {kCmdTitle, std::move(title)},
      {0, {}},
      {kCmdAccount, signed_in ? L"Account and settings..." : L"Sign in..."},
      {kCmdCheckForUpdates, L"Check for updates..."},
      {0, {}},
      {kCmdExit, L"Exit"},
  };
}

}  // namespace qn
