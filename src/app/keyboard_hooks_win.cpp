#include "app/keyboard_hooks_win.h"

#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <string>

#include "chat/chat_model.h"
#include "core/failure_log.h"
#include "core/log.h"
#include "core/posted_message.h"
#include "core/settings.h"

namespace qn {
namespace {

constexpr int kHotkeyId = 1;
// ToUnicodeEx leaves the keyboard state alone (dead keys included), so reading a captured
// key cannot disturb what the game's own keyboard handling sees.
constexpr UINT kKeepKeyboardState = 0x4;

// Process-wide because hook procedures carry no context. All written on the interface thread,
// which is also where the hooks run; only the capture flag is touched from elsewhere.
HotkeyMirror g_hotkey;
HWND g_fallback_target = nullptr;  // the message window while the system refuses the hotkey

struct CaptureState {
  std::atomic<bool> on{false};
  UniqueHhook hook;
  HWND window = nullptr;
  UINT message = 0;
  std::array<bool, kKeyCodeCount> held{};  // down when the capture started
};
CaptureState g_capture;
// Copies of both hooks' handles for a crash report, which runs on a thread of its own.
std::atomic<HHOOK> g_fallback_hook{nullptr};
std::atomic<HHOOK> g_capture_hook{nullptr};

bool IsDown(int key) { return (GetAsyncKeyState(key) & 0x8000) != 0; }

KeyStroke StrokeOf(WPARAM message, const KBDLLHOOKSTRUCT& event) {
  KeyAction action = KeyAction::kOther;
  if (message == WM_KEYDOWN || message == WM_SYSKEYDOWN) action = KeyAction::kDown;
  if (message == WM_KEYUP || message == WM_SYSKEYUP) action = KeyAction::kUp;
  return {event.vkCode, action, {IsDown(VK_CONTROL), IsDown(VK_SHIFT), IsDown(VK_MENU)}};
}

// Never swallows: the hook only watches for the hotkey the system would not take. While the
// system hotkey holds it stays silent, or one press would arrive twice and toggle back.
LRESULT CALLBACK FallbackHotkeyProc(int code, WPARAM wparam, LPARAM lparam) {
  const auto* event = reinterpret_cast<const KBDLLHOOKSTRUCT*>(lparam);
  if (code == HC_ACTION && event && g_fallback_target &&
      FiresFallbackHotkey(StrokeOf(wparam, *event), g_hotkey)) {
    PostMessageW(g_fallback_target, WM_HOTKEY, kHotkeyId,
                 MAKELPARAM(g_hotkey.modifiers, g_hotkey.key));
  }
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

void ForwardKey(const KBDLLHOOKSTRUCT& event, Modifiers held) noexcept {
  if (!g_capture.window) return;
  std::unique_ptr<KeyEventRecord> record(new (std::nothrow) KeyEventRecord{
      event.vkCode, event.scanCode, held.ctrl, held.shift, held.alt});
  if (!record) return;
  try {
    PostOwned(g_capture.window, PostedMessage<KeyEventRecord>{g_capture.message},
              std::move(record));
  } catch (...) {  // only the failure's log line can throw; the key stays swallowed
  }
}

LRESULT CALLBACK CaptureProc(int code, WPARAM wparam, LPARAM lparam) {
  const auto* event = reinterpret_cast<const KBDLLHOOKSTRUCT*>(lparam);
  if (code != HC_ACTION || !g_capture.on || !event || event->vkCode >= kKeyCodeCount) {
    return CallNextHookEx(nullptr, code, wparam, lparam);
  }
  const KeyStroke stroke = StrokeOf(wparam, *event);
  switch (DecideCapturedKey(stroke, g_hotkey, g_capture.held[stroke.key])) {
    case CaptureDecision::kPassHeldRelease:
      g_capture.held[stroke.key] = false;
      break;
    case CaptureDecision::kSwallowAndForward:
      ForwardKey(*event, stroke.held);
      return 1;
    case CaptureDecision::kSwallow:
      return 1;
    case CaptureDecision::kPass:
      break;
  }
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

}  // namespace

AppHotkey::AppHotkey(HWND message_window, HINSTANCE instance)
    : window_(message_window), instance_(instance) {}

AppHotkey::~AppHotkey() { Remove(); }

void AppHotkey::Unregister() {
  if (registered_ && !UnregisterHotKey(window_, kHotkeyId)) {
    LogLastError(L"UnregisterHotKey", kLogWarn);
  }
  registered_ = false;
}

bool AppHotkey::RegisterAppHotkey(uint32_t modifiers, uint32_t key) {
  Unregister();
  g_hotkey = {modifiers, key};
  if (RegisterHotKey(window_, kHotkeyId, modifiers | MOD_NOREPEAT, key)) {
    registered_ = true;
    g_fallback_target = nullptr;
    Log(kLogInfo, L"hotkey registered: %ls", HotkeyText(modifiers, key).c_str());
    return true;
  }
  Log(kLogWarn, L"RegisterHotKey failed (%lu); falling back to a low-level keyboard hook",
      GetLastError());
  g_fallback_target = window_;
  if (!fallback_) {
    fallback_.reset(SetWindowsHookExW(WH_KEYBOARD_LL, FallbackHotkeyProc, instance_, 0));
    if (!fallback_) {
      Log(kLogError, L"low-level keyboard hook also failed: %lu", GetLastError());
      return false;
    }
    g_fallback_hook = fallback_.get();
  }
  return true;
}

void AppHotkey::Remove() {
  Unregister();
  g_fallback_target = nullptr;
  g_fallback_hook = nullptr;
  fallback_.reset();
}

bool StartKeyboardCapture(HWND window, UINT message) {
  if (g_capture.on) return true;
  g_capture.window = window;
  g_capture.message = message;
  for (uint32_t key = 0; key < kKeyCodeCount; ++key) {
    g_capture.held[key] = IsDown(static_cast<int>(key));
  }
  if (!g_capture.hook) {
    g_capture.hook.reset(
        SetWindowsHookExW(WH_KEYBOARD_LL, CaptureProc, GetModuleHandleW(nullptr), 0));
    if (!g_capture.hook) {
      Log(kLogError, L"keyboard capture hook failed: %lu", GetLastError());
      return false;
    }
    g_capture_hook = g_capture.hook.get();
  }
  g_capture.on = true;
  Log(kLogInfo, L"keyboard capture on; game keeps focus so its frames keep arriving");
  return true;
}

void StopKeyboardCapture() {
  if (!g_capture.on.exchange(false)) return;
  g_capture.held = {};
  Log(kLogInfo, L"keyboard capture off");
}

bool KeyboardCaptureOn() { return g_capture.on; }

void RemoveKeyboardCaptureHook() {
  StopKeyboardCapture();
  g_capture_hook = nullptr;
  g_capture.hook.reset();
}

void RemoveKeyboardHooksAtCrash() noexcept {
  g_capture.on = false;
  // The owners' handles are left as they are: the process ends before they are closed.
  for (std::atomic<HHOOK>* hook : {&g_fallback_hook, &g_capture_hook}) {
    if (const HHOOK removed = hook->exchange(nullptr)) UnhookWindowsHookEx(removed);
  }
}

void TypeKeyRecord(const KeyEventRecord& record, ChatModel& model) {
  if (model.HandleKey(record.key, record.ctrl != 0)) return;
  BYTE state[256] = {};
  state[VK_CONTROL] = record.ctrl ? 0x80 : 0;
  state[VK_SHIFT] = record.shift ? 0x80 : 0;
  state[VK_MENU] = record.alt ? 0x80 : 0;
  // The game's thread, not ours: its layout is the one the player is typing with.
  const HKL layout = GetKeyboardLayout(GetWindowThreadProcessId(GetForegroundWindow(), nullptr));
  wchar_t produced[8] = {};
  const int count =
      ToUnicodeEx(record.key, record.scan_code, state, produced, 8, kKeepKeyboardState, layout);
  if (count <= 0) return;
  for (const wchar_t c : PrintableText({produced, static_cast<size_t>(count)})) {
    model.InsertChar(c);
  }
}

}  // namespace qn
