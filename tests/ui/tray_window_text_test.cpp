#include "ui/tray_window_text.h"

#include <gtest/gtest.h>

#include "core/settings.h"

namespace qn {
namespace {

// A plain letter and Ctrl+Alt+F1 are the window's own test; here the other keys.
TEST(TrayWindowText, HotkeyCaptureTakesOnlyCombinationsWithAModifier) {
  using U = HotkeyKeyUse;
  const struct {
    uint32_t key;
    bool ctrl, shift, alt;
    U use;
    uint32_t modifiers;
  } cases[] = {
      {'X', false, true, true, U::kAccept, kModShift | kModAlt},
      {27, true, false, false, U::kCancel, 0},  // Escape keeps the old hotkey
      {16, false, true, false, U::kIgnore, 0},  {17, true, false, false, U::kIgnore, 0},
      {18, false, false, true, U::kIgnore, 0},  {91, false, false, false, U::kIgnore, 0},
      {92, false, false, false, U::kIgnore, 0}, {93, false, false, false, U::kRefuse, 0},
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
