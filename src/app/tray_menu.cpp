#include "app/tray_menu.h"

namespace qn {

std::wstring_view CutForBalloon(std::wstring_view text) {
  constexpr size_t kMax = 255;
  if (text.size() <= kMax) return text;
  const bool splits_pair = text[kMax - 1] >= 0xD800 && text[kMax - 1] <= 0xDBFF;
  return text.substr(0, splits_pair ? kMax - 1 : kMax);
}

std::wstring BalloonText(Balloon balloon, std::wstring_view hotkey_text) {
  const std::wstring hotkey(hotkey_text);
  switch (balloon) {
    case Balloon::kRunning:
      return L"Running. Press " + hotkey + L" while a game is in focus to open the drawer.";
    case Balloon::kHotkeyTaken:
      return L"Running, but the " + hotkey +
             L" hotkey could not be registered - something else owns it. Use the tray icon to "
             L"open the drawer.";
    case Balloon::kAlreadyRunning:
      return L"Already running. Press " + hotkey + L" while a game is in focus.";
  }
  return {};
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
