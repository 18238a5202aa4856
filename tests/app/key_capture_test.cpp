#include "app/key_capture.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "core/settings.h"

namespace qn {
namespace {

using D = CaptureDecision;
using A = KeyAction;
constexpr HotkeyMirror kShiftAltX{kModShift | kModAlt, 'X'};
constexpr Modifiers kNone{}, kCtrl{true, false, false}, kShiftAlt{false, true, true};
constexpr Modifiers kAlt{false, false, true}, kWin{false, false, false, true};

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
      {{20, A::kDown, kNone}, false, D::kPass}, {{144, A::kUp, kNone}, false, D::kPass},
      {{256, A::kDown, kNone}, false, D::kPass},
      {{'A', A::kOther, kNone}, false, D::kPass},
      {{'R', A::kDown, kWin}, false, D::kPass},  // Win+R is the system's
      {{'X', A::kDown, {false, true, true, true}}, false, D::kPass, true},
      // clang-format on
  };
  for (const auto& c : cases) {
    EXPECT_EQ(DecideCapturedKey(c.stroke, kShiftAltX, c.was_held), c.decision)
        << "key " << c.stroke.key << " row " << &c - cases;
    EXPECT_EQ(HotkeyWatch().Fires(c.stroke, kShiftAltX), c.fires) << "row " << &c - cases;
  }
  // Win is the system's: a hotkey naming it fires without it.
  EXPECT_TRUE(
      HotkeyWatch().Fires({'X', A::kDown, kShiftAlt}, {kModShift | kModAlt | kModWin, 'X'}));
  EXPECT_TRUE(HotkeyWatch().Fires({112, A::kDown, {true, false, true}}, {kModCtrl | kModAlt, 112}));
}

// A held hotkey repeats its key-down, and one press may be told by the system and the hook.
TEST(KeyCapture, EachPressOfTheHotkeyTogglesOnce) {
  HotkeyWatch watch;
  const KeyStroke down{'X', A::kDown, kShiftAlt}, up{'X', A::kUp, kShiftAlt};
  std::string fired;
  for (const KeyStroke& stroke :
       {down, down, down, up, down, up, KeyStroke{'X', A::kDown, kNone}, up})
    fired += watch.Fires(stroke, kShiftAltX) ? '1' : '0';
  EXPECT_EQ(fired, "10001000");
  watch.Fires(down, kShiftAltX);
  watch.Forget();  // the hook set anew missed the release
  EXPECT_TRUE(watch.Fires(down, kShiftAltX));

  using S = HotkeySource;
  const struct {
    S source;
    uint32_t at_ms;
    bool acted;
  } signals[] = {
      {S::kHook, 1000, true},        {S::kSystem, 1001, false},  // one press, told twice
      {S::kSystem, 1200, true},      {S::kHook, 1202, false},    // in either order
      {S::kHook, 1300, true},        {S::kHook, 1350, true},  // a game that holds back the system's
      {S::kSystem, 2000, true},      {S::kSystem, 2100, true},  // the hook gone
      {S::kHook, 2200, false},       {S::kHook, 2700, true},
      {S::kSystem, 2699, false},                                 // stamped a moment before
      {S::kHook, 0xFFFFFF00u, true}, {S::kSystem, 0x10, false},  // across the clock's wrap
  };
  HotkeyPresses presses;
  for (const auto& signal : signals)
    EXPECT_EQ(presses.Accept(signal.source, signal.at_ms), signal.acted) << signal.at_ms;
}

// A layout with one dead key, the acute (0xDD): on A it makes á, on space itself, and on
// anything else it composes with nothing.
ProducedText AcuteLayout(const KeyEventRecord* dead, const KeyEventRecord& key) {
  if (key.key == 0xDD) return dead ? ProducedText{L"\u00b4\u00b4"} : ProducedText{L"\u00b4", true};
  const std::wstring base(1, key.key == ' ' ? L' ' : static_cast<wchar_t>(key.key + 32));
  if (!dead) return {base};
  if (key.key == 'A') return {L"\u00e1"};
  return {key.key == ' ' ? L"\u00b4" : L"\u00b4" + base};
}

TEST(KeyCapture, DeadKeysComposeWithTheNextKey) {
  const std::pair<std::vector<uint32_t>, std::wstring> cases[] = {
      {{0xDD, 'A'}, L"\u00e1"},
      {{0xDD, ' '}, L"\u00b4"},
      {{0xDD, 'Q'}, L"\u00b4q"},
      {{0xDD, 0xDD}, L"\u00b4\u00b4"},
      {{'A', 0xDD, 'A', 'A'}, L"a\u00e1a"},
  };
  for (const auto& [keys, typed] : cases) {
    KeyTyping typing;
    std::wstring text;
    for (const uint32_t key : keys) text += typing.Type(KeyEventRecord{key}, &AcuteLayout);
    EXPECT_EQ(text, typed) << keys.size();
  }
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
