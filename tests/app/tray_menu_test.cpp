#include "app/tray_menu.h"

#include <gtest/gtest.h>

#include <string>

namespace qn {
namespace {

TEST(TrayMenu, FollowsTheHotkeyAndTheSession) {
  const struct {
    std::wstring_view hotkey;
    bool signed_in;
    std::wstring title, account;
  } cases[] = {
      {L"Shift+Alt+X", false, L"Hintwick (Shift+Alt+X)", L"Sign in..."},
      {L"Ctrl+Alt+F1", true, L"Hintwick (Ctrl+Alt+F1)", L"Account and settings..."},
  };
  for (const auto& c : cases) {
    const std::vector<TrayMenuEntry> expected = {
        {kCmdTitle, c.title},
        {0, L""},
        {kCmdAccount, c.account},
        {kCmdCheckForUpdates, L"Check for updates..."},
        {0, L""},
        {kCmdExit, L"Exit"},
    };
    EXPECT_EQ(TrayMenuEntries(c.hotkey, c.signed_in), expected) << c.title;
  }
}

TEST(TrayMenu, BalloonTextIsCutWithoutSplittingACharacter) {
  const std::wstring a255(255, L'a');
  const std::wstring pair = L"\xD83D\xDE00";  // one character outside the basic plane
  const struct {
    std::wstring text;
    size_t kept;
  } cases[] = {
      {L"", 0},
      {a255, 255},
      {a255 + L"b", 255},
      {std::wstring(254, L'a') + pair, 254},         // the pair would straddle the cut
      {std::wstring(253, L'a') + pair + L"b", 255},  // the pair fits
  };
  for (const auto& c : cases) {
    const std::wstring_view cut = CutForBalloon(c.text);
    EXPECT_EQ(cut.size(), c.kept);
    EXPECT_EQ(cut, std::wstring_view(c.text).substr(0, c.kept));
  }
}

}  // namespace
}  // namespace qn
