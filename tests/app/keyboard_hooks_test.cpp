// The hooks fed with real input: SendInput goes through Wine's server like a keyboard would,
// and xdotool types through the X server for the system hotkey.
#include "app/keyboard_hooks_win.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "chat/chat_model.h"
#include "core/posted_message.h"
#include "core/settings.h"
#include "support/test_files.h"

namespace qn {
namespace {

constexpr PostedMessage<KeyEventRecord> kKeyMessage{WM_APP + 5};
constexpr WORD kSentinel = VK_LAUNCH_APP2;  // passes capture, so it marks the end of a batch
using Passed = std::vector<std::pair<WORD, bool>>;  // key, released

std::vector<KeyEventRecord> g_records;
int g_hotkeys = 0;
Passed g_passed;

LRESULT CALLBACK Receiver(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == kKeyMessage.id) g_records.push_back(*AdoptPosted(kKeyMessage, wparam));
  if (message == WM_HOTKEY && wparam == 1) ++g_hotkeys;
  return DefWindowProcW(window, message, wparam, lparam);
}

// Installed before the capture hook, so it runs after it and sees only what passes.
LRESULT CALLBACK Observer(int code, WPARAM wparam, LPARAM lparam) {
  const auto* event = reinterpret_cast<const KBDLLHOOKSTRUCT*>(lparam);
  if (code == HC_ACTION) {
    g_passed.emplace_back(static_cast<WORD>(event->vkCode), (event->flags & LLKHF_UP) != 0);
  }
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

// Low-level hooks run through the installing thread's message loop, so waiting means pumping.
bool PumpUntil(const std::function<bool()>& done) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
    MSG msg;
    while (PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&msg);
  }
  return true;
}

// Each pair is a key and whether it is released; returns what reached the next hook.
Passed Send(const Passed& keys) {
  std::vector<INPUT> inputs;
  Passed all = keys;
  all.insert(all.end(), {{kSentinel, false}, {kSentinel, true}});
  for (const auto& [key, up] : all) {
    INPUT input{};
    input.type = INPUT_KEYBOARD;
    input.ki = {key, static_cast<WORD>(MapVirtualKeyW(key, MAPVK_VK_TO_VSC)),
                up ? KEYEVENTF_KEYUP : 0u, 0, 0};
    inputs.push_back(input);
  }
  g_passed.clear();
  EXPECT_EQ(SendInput(static_cast<UINT>(inputs.size()), inputs.data(), sizeof(INPUT)),
            inputs.size());
  if (!PumpUntil([&] { return !g_passed.empty() && g_passed.back() == all.back(); })) {
    ADD_FAILURE() << "the closing key never passed";
    return g_passed;
  }
  return Passed(g_passed.begin(), g_passed.end() - 2);
}

Passed Tap(std::initializer_list<WORD> keys) {
  Passed strokes;
  for (const WORD key : keys) strokes.emplace_back(key, false);
  for (auto key = std::rbegin(keys); key != std::rend(keys); ++key)
    strokes.emplace_back(*key, true);
  return strokes;
}

Passed operator+(Passed a, const Passed& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

UniqueHwnd MakeWindow(HWND parent) {
  WNDCLASSW window_class{};
  window_class.lpfnWndProc = Receiver;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.lpszClassName = L"KeyboardHooksTest";
  RegisterClassW(&window_class);
  return UniqueHwnd(CreateWindowExW(0, window_class.lpszClassName, L"", parent ? 0 : WS_POPUP, 0, 0,
                                    100, 100, parent, nullptr, nullptr, nullptr));
}

// The observer goes in first, so that it runs after the hooks under test.
class KeyboardHooks : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(window && observer); }
  test::CapturedLog log;
  const UniqueHwnd window = MakeWindow(HWND_MESSAGE);
  const UniqueHhook observer{
      SetWindowsHookExW(WH_KEYBOARD_LL, Observer, GetModuleHandleW(nullptr), 0)};
};

TEST_F(KeyboardHooks, CaptureSwallowsTypingAndPassesSystemKeysAndHeldReleases) {
  EXPECT_EQ(Send({{'B', false}}), (Passed{{'B', false}}));  // held when the drawer opens

  ASSERT_TRUE(StartKeyboardCapture(window.get(), kKeyMessage.id));
  const Passed system =
      Tap({VK_MENU, VK_TAB}) + Tap({VK_CONTROL, VK_ESCAPE}) + Tap({VK_LWIN}) + Tap({VK_VOLUME_UP});
  const Passed b_released{{'B', true}};
  EXPECT_EQ(Send(Tap({'A'}) + b_released + Tap({'B'}) + Tap({VK_SHIFT, 'C'}) + Tap({VK_ESCAPE}) +
                 Tap({VK_TAB}) + system),
            b_released + Tap({VK_SHIFT}) + system);
  ASSERT_TRUE(PumpUntil([] { return g_records.size() >= 5; }));
  std::string typed;
  for (const KeyEventRecord& record : g_records) typed += static_cast<char>(record.key);
  EXPECT_EQ(typed, std::string("ABC") + char{VK_ESCAPE} + char{VK_TAB});
  EXPECT_EQ(g_records[2].shift, 1);
  EXPECT_EQ(g_records[2].scan_code, MapVirtualKeyW('C', MAPVK_VK_TO_VSC));

  StopKeyboardCapture();
  EXPECT_FALSE(KeyboardCaptureOn());
  EXPECT_EQ(Send(Tap({'A'})), Tap({'A'}));
  EXPECT_EQ(log.Count("keyboard capture on; game keeps focus so its frames keep arriving"), 1u);
  EXPECT_EQ(log.Count("keyboard capture off"), 1u);
  RemoveKeyboardCaptureHook();
}

// Wine cannot start a Linux program through CreateProcess; its own helpers use this export.
int RunOnX(std::vector<const char*> argv) {
  using Spawn = LONG(__cdecl*)(const char* const* argv, int wait);
  const auto spawn = reinterpret_cast<Spawn>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "__wine_unix_spawnvp")));
  if (!spawn) return -1;
  argv.push_back(nullptr);
  return spawn(argv.data(), 1);
}

TEST_F(KeyboardHooks, HotkeyFromTheXServerAndTheFallbackWhenTaken) {
  AppHotkey hotkey(window.get(), GetModuleHandleW(nullptr));
  ASSERT_TRUE(hotkey.RegisterAppHotkey(kModShift | kModAlt, 'X'));
  EXPECT_TRUE(hotkey.registered());
  EXPECT_FALSE(hotkey.has_fallback());
  EXPECT_TRUE(log.Has("hotkey registered: Shift+Alt+X"));

  // X delivers keys to the focused window, so the typing needs a Wine window to land in.
  const UniqueHwnd target = MakeWindow(nullptr);
  SetWindowTextW(target.get(), L"hotkey target");
  ShowWindow(target.get(), SW_SHOW);
  ASSERT_EQ(RunOnX({"xdotool", "search", "--name", "hotkey target", "windowfocus", "--sync", "key",
                    "shift+alt+x"}),
            0);
  EXPECT_TRUE(PumpUntil([] { return g_hotkeys == 1; }));

  hotkey.Remove();
  const UniqueHwnd other = MakeWindow(HWND_MESSAGE);
  ASSERT_TRUE(RegisterHotKey(other.get(), 7, MOD_SHIFT | MOD_ALT, 'X'));
  ASSERT_TRUE(hotkey.RegisterAppHotkey(kModShift | kModAlt, 'X'));
  EXPECT_FALSE(hotkey.registered());
  EXPECT_TRUE(hotkey.has_fallback());
  EXPECT_TRUE(log.Has("RegisterHotKey failed (1409); falling back to a low-level keyboard hook"));
  g_hotkeys = 0;
  Send(Tap({VK_SHIFT, VK_MENU, 'X'}) + Tap({VK_LWIN, VK_SHIFT, VK_MENU, 'X'}) +
       Tap({VK_CONTROL, VK_SHIFT, VK_MENU, 'X'}) + Tap({VK_MENU, 'X'}));
  EXPECT_TRUE(PumpUntil([] { return g_hotkeys >= 2; }));
  Send({});
  EXPECT_EQ(g_hotkeys, 2);  // Ctrl or a missing Shift spoils the combination

  // The hook stays, but with the system hotkey back it must not post a second message.
  UnregisterHotKey(other.get(), 7);
  ASSERT_TRUE(hotkey.RegisterAppHotkey(kModShift | kModAlt, 'X'));
  EXPECT_TRUE(hotkey.registered() && hotkey.has_fallback());
  Send(Tap({VK_SHIFT, VK_MENU, 'X'}));
  EXPECT_TRUE(PumpUntil([] { return g_hotkeys >= 3; }));
  Send({});
  EXPECT_EQ(g_hotkeys, 3);
}

KeyEventRecord Record(uint32_t key, bool shift = false, bool ctrl = false, bool alt = false) {
  return {key, MapVirtualKeyW(key, MAPVK_VK_TO_VSC), ctrl, shift, alt};
}

TEST(KeyTyping, EditingKeysAndCharactersWithoutControlCharacters) {
  ChatModel model;
  for (const KeyEventRecord& record :
       {Record('H', true), Record('I'), Record('X'), Record(VK_BACK), Record('1', true),
        Record('A', false, true), Record(VK_TAB), Record(VK_OEM_7)}) {
    TypeKeyRecord(record, model);
  }
  EXPECT_EQ(model.Input(), L"Hi!'");
}

TEST(KeyTyping, TheGamesLayoutDecidesTheCharacters) {
  ASSERT_TRUE(LoadKeyboardLayoutW(L"00000407", KLF_ACTIVATE));
  if (GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version")) {
    GTEST_SKIP() << "Wine 8 maps keys with the X server's keymap, whatever layout is asked for";
  }
  ChatModel model;
  TypeKeyRecord(Record(VK_OEM_7), model);
  TypeKeyRecord(Record('Q', false, true, true), model);  // AltGr
  EXPECT_EQ(model.Input(), L"\u00e4@");
}

}  // namespace
}  // namespace qn
