#include "app/key_capture.h"

#include <gtest/gtest.h>

#include "core/settings.h"

namespace qn {
namespace {

using D = CaptureDecision;
using A = KeyAction;
constexpr HotkeyMirror kShiftAltX{kModShift | kModAlt, 'X'};
constexpr Modifiers kNone{}, kCtrl{true, false, false}, kShiftAlt{false, true, true};
constexpr Modifiers kAlt{false, false, true};

// What passes, and when the fallback hook stands in for the system hotkey: only on its exact
// modifiers, pressed.
TEST(KeyCapture, DecidesWhatTheGameAndTheSystemStillSee) {
  const struct {
    KeyStroke stroke;
    bool was_held;
    D decision;
    bool fires = false;
  } cases[] = {
      // clang-format off
      {{'A', A::kDown, kNone}, false, D::kSwallowAndForward},
      {{'A', A::kUp, kNone}, false, D::kSwallow},
      {{'A', A::kUp, kNone}, true, D::kPassHeldRelease},  // the game saw it pressed
      {{'A', A::kDown, kNone}, true, D::kSwallowAndForward},
      {{'X', A::kDown, kShiftAlt}, false, D::kPass, true},  // the hotkey closes the drawer
      {{'Y', A::kDown, kShiftAlt}, false, D::kSwallowAndForward},
      {{'X', A::kUp, kShiftAlt}, false, D::kPass},
      {{'X', A::kDown, {true, true, true}}, false, D::kSwallowAndForward},
      {{'X', A::kDown, kAlt}, false, D::kSwallowAndForward},
      {{9, A::kDown, kAlt}, false, D::kPass},    // Alt+Tab
      {{115, A::kDown, kAlt}, false, D::kPass},  // Alt+F4
      {{9, A::kDown, kNone}, false, D::kSwallowAndForward},
      {{27, A::kDown, kCtrl}, false, D::kPass},  // Ctrl+Esc
      {{27, A::kDown, kNone}, false, D::kSwallowAndForward},  // closes the drawer
      {{91, A::kDown, kNone}, false, D::kPass}, {{92, A::kUp, kNone}, false, D::kPass},
      {{44, A::kDown, kNone}, false, D::kPass},  // Print Screen
      {{173, A::kDown, kNone}, false, D::kPass}, {{183, A::kUp, kNone}, false, D::kPass},
      {{172, A::kDown, kNone}, false, D::kSwallowAndForward},
      {{184, A::kDown, kNone}, false, D::kSwallowAndForward},
      {{16, A::kDown, kNone}, false, D::kPass}, {{18, A::kUp, kAlt}, false, D::kPass},
      {{160, A::kDown, kNone}, false, D::kPass}, {{165, A::kUp, kNone}, false, D::kPass},
      {{166, A::kDown, kNone}, false, D::kSwallowAndForward},
      {{256, A::kDown, kNone}, false, D::kPass},
      {{'A', A::kOther, kNone}, false, D::kPass},
      // clang-format on
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DecideCapturedKey(c.stroke, kShiftAltX, c.was_held), c.decision)
        << "key " << c.stroke.key << " row " << &c - cases;
    EXPECT_EQ(FiresFallbackHotkey(c.stroke, kShiftAltX), c.fires) << "row " << &c - cases;
  }
  // Win is the system's: a hotkey naming it fires without it.
  EXPECT_TRUE(
      FiresFallbackHotkey({'X', A::kDown, kShiftAlt}, {kModShift | kModAlt | kModWin, 'X'}));
  EXPECT_TRUE(FiresFallbackHotkey({112, A::kDown, {true, false, true}}, {kModCtrl | kModAlt, 112}));
}

TEST(KeyRecords, EscapeClosesAndTheRestIsTypedOnlyIntoAReadyOpenDrawer) {
  const struct {
    uint32_t key;
    bool open, ready;
    KeyRecordUse use;
  } cases[] = {
      {27, true, true, KeyRecordUse::kCloseDrawer}, {27, true, false, KeyRecordUse::kCloseDrawer},
      {27, false, true, KeyRecordUse::kIgnore},     {'A', true, true, KeyRecordUse::kType},
      {'A', true, false, KeyRecordUse::kIgnore},    {'A', false, true, KeyRecordUse::kIgnore},
  };
  for (const auto& c : cases) {
    KeyEventRecord record;
    record.key = c.key;
    EXPECT_EQ(UseOfKeyRecord(record, c.open, c.ready), c.use) << "row " << &c - cases;
  }
  EXPECT_EQ(PrintableText(L"a\r\t\x1b\x7f\u00fc\x1f "), L"a\u00fc ");
}

}  // namespace
}  // namespace qn
