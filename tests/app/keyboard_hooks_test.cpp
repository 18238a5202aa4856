// The hooks fed with real input: SendInput goes through Wine's server like a keyboard would,
// and xdotool types through the X server for the system hotkey.
#include "app/keyboard_hooks_win.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "chat/chat_model.h"
#include "core/posted_message.h"
#include "core/settings.h"
#include "support/fake_tray_win.h"
#include "support/test_game_win.h"

namespace qn {
namespace {

constexpr PostedMessage<KeyEventRecord> kKeyMessage{WM_APP + 5};
constexpr WORD kSentinel = VK_LAUNCH_APP2;  // passes capture, so it marks the end of a batch
using Passed = std::vector<std::pair<WORD, bool>>;  // key, released

std::vector<KeyEventRecord> g_records;
AppHotkey* g_hotkey = nullptr;
int g_presses = 0;  // the drawer's toggles
Passed g_passed;

LRESULT CALLBACK Receiver(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == kKeyMessage.id) g_records.push_back(*AdoptPosted(kKeyMessage, wparam));
  if (message == WM_HOTKEY && g_hotkey && g_hotkey->TakePress(wparam, lparam)) ++g_presses;
  return DefWindowProcW(window, message, wparam, lparam);
}

// Installed before the hooks under test, so it runs after them and sees only what passes.
LRESULT CALLBACK Observer(int code, WPARAM wparam, LPARAM lparam) {
  const auto* event = reinterpret_cast<const KBDLLHOOKSTRUCT*>(lparam);
  if (code == HC_ACTION) {
    g_passed.emplace_back(static_cast<WORD>(event->vkCode), (event->flags & LLKHF_UP) != 0);
  }
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

// Returns what reached the next hook. Low-level hooks run through the installing thread's
// message loop, so waiting means pumping.
Passed Send(Passed keys) {
  keys.insert(keys.end(), {{kSentinel, false}, {kSentinel, true}});
  std::vector<INPUT> inputs(keys.size(), INPUT{INPUT_KEYBOARD, {}});
  for (size_t i = 0; i < keys.size(); ++i) {
    const auto [key, up] = keys[i];
    inputs[i].ki = {key, static_cast<WORD>(MapVirtualKeyW(key, MAPVK_VK_TO_VSC)),
                    up ? KEYEVENTF_KEYUP : 0u, 0, 0};
  }
  g_passed.clear();
  SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT));
  EXPECT_TRUE(test::PumpUntil([&] { return !g_passed.empty() && g_passed.back() == keys.back(); }));
  return g_passed.size() < 2 ? g_passed : Passed(g_passed.begin(), g_passed.end() - 2);
}

// Each combination pressed in order and released in reverse, one after the other.
Passed Taps(std::initializer_list<std::initializer_list<WORD>> combinations) {
  Passed strokes;
  for (const auto& keys : combinations) {
    for (const WORD key : keys) strokes.emplace_back(key, false);
    for (size_t i = keys.size(); i-- > 0;) strokes.emplace_back(keys.begin()[i], true);
  }
  return strokes;
}

Passed operator+(Passed a, const Passed& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

class KeyboardHooks : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(window && observer); }
  const UniqueHwnd window{test::CreateTestWindow(L"KeyboardHooksTest", Receiver, 0, HWND_MESSAGE)};
  const UniqueHhook observer{
      SetWindowsHookExW(WH_KEYBOARD_LL, Observer, GetModuleHandleW(nullptr), 0)};
};

// The hook on its own thread: the drawer's typing (a capital under Caps Lock), the system's
// keys and the held key's release passed, and a hook that Windows took away set anew at the
// next opening.
TEST_F(KeyboardHooks, CaptureTypesIntoTheDrawerAndPassesSystemKeysAndHeldReleases) {
  EXPECT_EQ(Send({{'B', false}}), (Passed{{'B', false}}));  // held when the drawer opens
  ASSERT_TRUE(StartKeyboardCapture(window.get(), kKeyMessage.id));
  const Passed system =
      Taps({{VK_MENU, VK_TAB}, {VK_CONTROL, VK_ESCAPE}, {VK_LWIN}, {VK_LWIN, 'R'}, {VK_VOLUME_UP}});
  const Passed b_released{{'B', true}};
  const Passed caps = Taps({{VK_CAPITAL}});
  EXPECT_EQ(Send(Taps({{'A'}}) + b_released +
                 Taps({{'B'}, {VK_BACK}, {VK_SHIFT, 'C'}, {VK_ESCAPE}, {VK_TAB}}) + system + caps +
                 Taps({{'D'}}) + caps),
            b_released + Taps({{VK_SHIFT}}) + system + caps + caps);
  ASSERT_TRUE(test::PumpUntil([] { return g_records.size() >= 7; }));
  std::string forwarded;
  ChatModel model;
  KeyTyping typing;
  for (const KeyEventRecord& record : g_records) {
    forwarded += static_cast<char>(record.key);
    TypeKeyRecord(record, typing, model);
  }
  EXPECT_EQ(forwarded,
            std::string("AB") + char{VK_BACK} + 'C' + char{VK_ESCAPE} + char{VK_TAB} + 'D');
  EXPECT_EQ(model.Input(), L"aCD");  // Escape and Tab are no text
  // AltGr is Ctrl+Alt: it types what the layout has there (nothing, on this one), never pastes.
  ChatModel pasting([] { return std::wstring(L"pasted"); });
  KeyEventRecord ctrl_v{'V', MapVirtualKeyW('V', MAPVK_VK_TO_VSC), 1, 0, 1};
  TypeKeyRecord(ctrl_v, typing, pasting);
  EXPECT_EQ(pasting.Input(), L"");
  ctrl_v.alt = 0;
  TypeKeyRecord(ctrl_v, typing, pasting);
  EXPECT_EQ(pasting.Input(), L"pasted");

  StopKeyboardCapture();
  EXPECT_EQ(Send(Taps({{'A'}})), Taps({{'A'}}));
  DropKeyboardHookForTest();
  ASSERT_TRUE(StartKeyboardCapture(window.get(), kKeyMessage.id));
  EXPECT_EQ(Send(Taps({{'A'}})), Passed{});
  // A crash report lets go of the keyboard from a thread of its own: the hook's thread may be
  // the one that crashed.
  std::thread(&RemoveKeyboardHooksAtCrash).join();
  EXPECT_EQ(Send(Taps({{'A'}})), Taps({{'A'}}));
  StopKeyboardHooks();
}

// Each press toggles once, held or not: from the hook alone while another program holds the
// hotkey, and from the system and the hook together, told twice, once it is free.
TEST_F(KeyboardHooks, EachPressOfTheHotkeyTogglesOnce) {
  const UniqueHwnd other(test::CreateTestWindow(L"KeyboardHooksTest", Receiver, 0, HWND_MESSAGE));
  ASSERT_TRUE(RegisterHotKey(other.get(), 7, MOD_SHIFT | MOD_ALT, 'X'));
  AppHotkey hotkey(window.get());
  g_hotkey = &hotkey;
  ASSERT_TRUE(hotkey.RegisterAppHotkey(kModShift | kModAlt, 'X'));
  EXPECT_TRUE(hotkey.watched() && !hotkey.registered());
  const Passed held_with_repeats = {{VK_SHIFT, false}, {VK_MENU, false}, {'X', false},
                                    {'X', false},      {'X', false},     {'X', true},
                                    {VK_MENU, true},   {VK_SHIFT, true}};
  Send(held_with_repeats + Taps({{VK_LWIN, VK_SHIFT, VK_MENU, 'X'}}));
  EXPECT_TRUE(test::PumpUntil([] { return g_presses == 2; })) << g_presses;

  UnregisterHotKey(other.get(), 7);
  ASSERT_TRUE(hotkey.RegisterAppHotkey(kModShift | kModAlt, 'X'));
  EXPECT_TRUE(hotkey.registered());
  // X delivers keys to the focused window, so the typing needs a Wine window to land in.
  const UniqueHwnd target(
      test::CreateTestWindow(L"KeyboardHooksTest", Receiver, WS_POPUP, nullptr));
  SetWindowTextW(target.get(), L"hotkey target");
  SetWindowPos(target.get(), nullptr, 0, 0, 100, 100, SWP_SHOWWINDOW);
  ASSERT_EQ(test::RunOnX({"xdotool", "search", "--name", "hotkey target", "windowfocus", "--sync",
                          "key", "shift+alt+x"}),
            0);
  EXPECT_TRUE(test::PumpUntil([] { return g_presses >= 3; }));
  Send({});
  EXPECT_EQ(g_presses, 3);
  hotkey.Remove();
  g_hotkey = nullptr;
  StopKeyboardHooks();
}

}  // namespace
}  // namespace qn
