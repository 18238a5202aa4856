#include "ui/tray_window_text.h"

#include <gtest/gtest.h>

#include "core/settings.h"

namespace qn {
namespace {

// A plain letter and Ctrl+Alt+F1 are the window's own test; here the other keys.
TEST(TrayWindowText, HotkeyCaptureTakesOnlyCombinationsThatLeaveTypingAlone) {
  using U = HotkeyKeyUse;
  const struct {
    uint32_t key;
    bool ctrl, shift, alt;
    U use;
    uint32_t modifiers;
  } cases[] = {
      {'X', false, true, true, U::kAccept, kModShift | kModAlt},
      {27, true, false, false, U::kCancel, 0},  // Escape keeps the old hotkey
      {16, false, true, false, U::kIgnore, 0},
      {17, true, false, false, U::kIgnore, 0},
      {18, false, false, true, U::kIgnore, 0},
      {91, false, false, false, U::kIgnore, 0},
      {92, false, false, false, U::kIgnore, 0},
      {93, false, false, false, U::kRefuse, 0},
      // What would take typing from every program: a capital, an AltGr character, the
      // clipboard, closing a window. Their neighbours are fine.
      {'A', false, true, false, U::kRefuseBreaksTyping, 0},
      {'7', false, true, false, U::kRefuseBreaksTyping, 0},
      {115, false, true, false, U::kAccept, kModShift},  // Shift+F4
      {'V', true, false, true, U::kRefuseBreaksTyping, 0},
      {'7', true, false, true, U::kAccept, kModCtrl | kModAlt},
      {'C', true, false, false, U::kRefuseBreaksTyping, 0},
      {'X', true, false, false, U::kRefuseBreaksTyping, 0},
      {'V', true, true, false, U::kAccept, kModCtrl | kModShift},
      {'B', true, false, false, U::kAccept, kModCtrl},
      {115, false, false, true, U::kRefuseBreaksTyping, 0},
      {114, false, false, true, U::kAccept, kModAlt},
  };
  for (const auto& c : cases) {
    const HotkeyKey got = UseOfHotkeyKey(c.key, c.ctrl, c.shift, c.alt);
    EXPECT_EQ(got.use, c.use) << c.key;
    EXPECT_EQ(got.modifiers, c.modifiers) << c.key;
  }
}

TEST(TrayWindowText, ProgressSaysWhatGatesTheAnswersAndWhenResetMakesSense) {
  const struct {
    const wchar_t* game;
    bool signed_in;
    std::optional<ProgressRead> read;
    const wchar_t* text;
    bool reset;
  } cases[] = {
      {L"hades", true, std::nullopt, L"hades: could not reach the service.", false},
      {L"hades", true, ProgressRead{false, L"", 0}, L"hades: could not reach the service.", false},
  };
  for (const auto& c : cases) {
    const ProgressText got = DescribeProgress(c.game, c.signed_in, c.read);
    EXPECT_EQ(got.text, c.text);
    EXPECT_EQ(got.reset_enabled, c.reset) << got.text.size();
  }
}

}  // namespace
}  // namespace qn
