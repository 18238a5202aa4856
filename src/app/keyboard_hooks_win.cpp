#include "app/keyboard_hooks_win.h"

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>

#include "chat/chat_model.h"
#include "core/failure_log.h"
#include "core/log.h"
#include "core/posted_message.h"
#include "core/settings.h"

namespace qn {
namespace {

constexpr WPARAM kSystemHotkeyId = 1;
constexpr WPARAM kHookHotkeyId = 2;
// ToUnicodeEx leaves the keyboard state alone (dead keys included), so reading a captured
// key cannot disturb what the game's own keyboard handling sees.
constexpr UINT kKeepKeyboardState = 0x4;
constexpr UINT kMsgSetHook = WM_APP + 1;   // to the hook thread: set the hook anew
constexpr UINT kMsgDropHook = WM_APP + 2;  // to the hook thread: as if Windows had removed it

// Shared between the interface thread, which sets it, and the hook thread, which reads it:
// hook procedures carry no context of their own.
struct HookShared {
  std::atomic<uint64_t> hotkey{0};  // HotkeyMirror, modifiers in the high half
  std::atomic<HWND> hotkey_window{nullptr};
  std::atomic<bool> capture_on{false};
  std::atomic<HWND> capture_window{nullptr};
  std::atomic<UINT> capture_message{0};
  std::array<std::atomic<bool>, kKeyCodeCount> held{};  // down when the capture started
  std::atomic<HHOOK> hook{nullptr};  // for a crash report, which runs on a thread of its own
};
HookShared g_shared;

HotkeyMirror LoadHotkey() {
  const uint64_t packed = g_shared.hotkey.load();
  return {static_cast<uint32_t>(packed >> 32), static_cast<uint32_t>(packed)};
}

bool IsDown(int key) { return (GetAsyncKeyState(key) & 0x8000) != 0; }

KeyStroke StrokeOf(WPARAM message, const KBDLLHOOKSTRUCT& event) {
  KeyAction action = KeyAction::kOther;
  if (message == WM_KEYDOWN || message == WM_SYSKEYDOWN) action = KeyAction::kDown;
  if (message == WM_KEYUP || message == WM_SYSKEYUP) action = KeyAction::kUp;
  return {
      event.vkCode,
      action,
      {IsDown(VK_CONTROL), IsDown(VK_SHIFT), IsDown(VK_MENU), IsDown(VK_LWIN) || IsDown(VK_RWIN)}};
}

// Hook thread only.
HotkeyWatch g_watch;

// The input's time goes along: it pairs this signal with the system's for the same press.
void WatchHotkey(const KeyStroke& stroke, DWORD input_ms) {
  const HWND window = g_shared.hotkey_window.load();
  if (window && g_watch.Fires(stroke, LoadHotkey())) {
    PostMessageW(window, WM_HOTKEY, kHookHotkeyId, static_cast<LPARAM>(input_ms));
  }
}

void ForwardKey(const KBDLLHOOKSTRUCT& event, Modifiers held) noexcept {
  const HWND window = g_shared.capture_window.load();
  if (!window) return;
  // The toggle state as the system keeps it for the input the game receives.
  const uint8_t caps_lock = (GetKeyState(VK_CAPITAL) & 1) != 0;
  std::unique_ptr<KeyEventRecord> record(new (std::nothrow) KeyEventRecord{
      event.vkCode, event.scanCode, held.ctrl, held.shift, held.alt, caps_lock});
  if (!record) return;
  try {
    PostOwned(window, PostedMessage<KeyEventRecord>{g_shared.capture_message.load()},
              std::move(record));
  } catch (...) {  // only the failure's log line can throw; the key stays swallowed
  }
}

// True when the key is the drawer's and nobody else sees it.
bool CaptureKey(const KeyStroke& stroke, const KBDLLHOOKSTRUCT& event) {
  std::atomic<bool>& held = g_shared.held[stroke.key];
  switch (DecideCapturedKey(stroke, LoadHotkey(), held.load())) {
    case CaptureDecision::kPassHeldRelease:
      held = false;
      return false;
    case CaptureDecision::kSwallowAndForward:
      ForwardKey(event, stroke.held);
      return true;
    case CaptureDecision::kSwallow:
      return true;
    case CaptureDecision::kPass:
      return false;
  }
  return false;
}

LRESULT CALLBACK KeyboardProc(int code, WPARAM wparam, LPARAM lparam) {
  const auto* event = reinterpret_cast<const KBDLLHOOKSTRUCT*>(lparam);
  if (code == HC_ACTION && event && event->vkCode < kKeyCodeCount) {
    const KeyStroke stroke = StrokeOf(wparam, *event);
    WatchHotkey(stroke, event->time);
    if (g_shared.capture_on && CaptureKey(stroke, *event)) return 1;
  }
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

// The hook's own thread. It sets the one low-level hook and runs the message loop through
// which the system calls it, and nothing else: Windows silently removes a hook that does not
// answer in time, and the interface thread waits on disk, the service and shader compiles.
class HookThread {
 public:
  ~HookThread() { Stop(); }
  bool Start();
  DWORD error() const { return error_; }
  void Stop();
  // Returns once the thread has done it.
  void Command(UINT message);

 private:
  void Run() noexcept;
  void Done();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::thread thread_;
  DWORD thread_id_ = 0;
  bool started_ = false, hooked_ = false;
  DWORD error_ = 0;
  uint64_t commands_sent_ = 0, commands_done_ = 0;
};
HookThread g_hook_thread;

bool HookThread::Start() {
  std::unique_lock lock(mutex_);
  if (thread_.joinable() && hooked_) return true;
  if (thread_.joinable()) thread_.join();  // ended when its hook could not be set: try again
  started_ = false;
  thread_ = std::thread([this] { Run(); });
  changed_.wait(lock, [this] { return started_; });
  return hooked_;
}

void HookThread::Stop() {
  if (!thread_.joinable()) return;
  PostThreadMessageW(thread_id_, WM_QUIT, 0, 0);
  thread_.join();
  std::lock_guard lock(mutex_);
  hooked_ = false;
}

void HookThread::Command(UINT message) {
  std::unique_lock lock(mutex_);
  if (!thread_.joinable() || !PostThreadMessageW(thread_id_, message, 0, 0)) return;
  const uint64_t wanted = ++commands_sent_;
  changed_.wait_for(lock, std::chrono::seconds(2), [&] { return commands_done_ >= wanted; });
}

void HookThread::Done() {
  {
    std::lock_guard lock(mutex_);
    ++commands_done_;
  }
  changed_.notify_all();
}

void HookThread::Run() noexcept {
  MSG message;
  PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);  // the queue exists before anyone posts
  UniqueHhook hook(SetWindowsHookExW(WH_KEYBOARD_LL, KeyboardProc, GetModuleHandleW(nullptr), 0));
  g_shared.hook = hook.get();
  {
    std::lock_guard lock(mutex_);
    error_ = hook ? 0 : GetLastError();
    thread_id_ = GetCurrentThreadId();
    hooked_ = static_cast<bool>(hook);
    started_ = true;
  }
  changed_.notify_all();
  if (!hook) return;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    if (message.hwnd || (message.message != kMsgSetHook && message.message != kMsgDropHook)) {
      continue;
    }
    g_shared.hook = nullptr;
    hook.reset();
    if (message.message == kMsgSetHook) {
      hook.reset(SetWindowsHookExW(WH_KEYBOARD_LL, KeyboardProc, GetModuleHandleW(nullptr), 0));
      g_shared.hook = hook.get();
      g_watch.Forget();
    }
    Done();
  }
}

bool StartHookThread() {
  if (g_hook_thread.Start()) return true;
  Log(kLogError, L"low-level keyboard hook failed: %lu", g_hook_thread.error());
  return false;
}

}  // namespace

AppHotkey::AppHotkey(HWND message_window) : window_(message_window) {}

AppHotkey::~AppHotkey() { Remove(); }

void AppHotkey::Unregister() {
  if (registered_ && !UnregisterHotKey(window_, kSystemHotkeyId)) {
    LogLastError(L"UnregisterHotKey", kLogWarn);
  }
  registered_ = false;
}

bool AppHotkey::RegisterAppHotkey(uint32_t modifiers, uint32_t key) {
  Unregister();
  g_shared.hotkey = uint64_t{modifiers} << 32 | key;
  g_shared.hotkey_window = window_;
  watched_ = StartHookThread();
  if (RegisterHotKey(window_, kSystemHotkeyId, modifiers | MOD_NOREPEAT, key)) {
    registered_ = true;
    Log(kLogInfo, L"hotkey registered: %ls", HotkeyText(modifiers, key).c_str());
  } else {
    Log(kLogWarn, L"RegisterHotKey failed (%lu); the keyboard hook watches for it alone",
        GetLastError());
  }
  return registered_ || watched_;
}

bool AppHotkey::TakePress(WPARAM id, LPARAM lparam) {
  if (id == kHookHotkeyId) return presses_.Accept(HotkeySource::kHook, static_cast<DWORD>(lparam));
  // The system's WM_HOTKEY carries the time of the input that made it.
  if (id == kSystemHotkeyId) return presses_.Accept(HotkeySource::kSystem, GetMessageTime());
  return false;
}

void AppHotkey::Remove() {
  Unregister();
  g_shared.hotkey_window = nullptr;
  watched_ = false;
}

bool StartKeyboardCapture(HWND window, UINT message) {
  if (g_shared.capture_on) return true;
  g_shared.capture_window = window;
  g_shared.capture_message = message;
  for (uint32_t key = 0; key < kKeyCodeCount; ++key) {
    g_shared.held[key] = IsDown(static_cast<int>(key));
  }
  if (!StartHookThread()) return false;
  // Windows may have removed the hook while the drawer was closed; set anew, it surely lives.
  g_hook_thread.Command(kMsgSetHook);
  g_shared.capture_on = true;
  Log(kLogInfo, L"keyboard capture on; game keeps focus so its frames keep arriving");
  return true;
}

void StopKeyboardCapture() {
  if (!g_shared.capture_on.exchange(false)) return;
  for (std::atomic<bool>& held : g_shared.held) held = false;
  Log(kLogInfo, L"keyboard capture off");
}

bool KeyboardCaptureOn() { return g_shared.capture_on; }

void StopKeyboardHooks() {
  StopKeyboardCapture();
  g_shared.hotkey_window = nullptr;
  g_hook_thread.Stop();
}

void DropKeyboardHookForTest() { g_hook_thread.Command(kMsgDropHook); }

void RemoveKeyboardHooksAtCrash() noexcept {
  g_shared.capture_on = false;
  g_shared.hotkey_window = nullptr;
  // The hook thread's own handle is left as it is: the process ends before it is closed.
  if (const HHOOK removed = g_shared.hook.exchange(nullptr)) UnhookWindowsHookEx(removed);
}

// What `record` types under `layout`; `count` is ToUnicodeEx's (below 0: a dead key).
std::wstring TypedText(const KeyEventRecord& record, UINT flags, HKL layout, int& count) {
  BYTE state[256] = {};
  state[VK_CONTROL] = record.ctrl ? 0x80 : 0;
  state[VK_SHIFT] = record.shift ? 0x80 : 0;
  state[VK_MENU] = record.alt ? 0x80 : 0;
  state[VK_CAPITAL] = record.caps_lock ? 0x01 : 0;
  wchar_t produced[8] = {};
  count = ToUnicodeEx(record.key, record.scan_code, state, produced, 8, flags, layout);
  return count > 0 ? std::wstring(produced, static_cast<size_t>(count)) : std::wstring();
}

void TypeKeyRecord(const KeyEventRecord& record, KeyTyping& typing, ChatModel& model) {
  // AltGr is Ctrl+Alt: AltGr+V types '@' on Hungarian and Czech layouts, it does not paste.
  if (model.HandleKey(record.key, record.ctrl && !record.alt)) return typing.Forget();
  // The game's thread, not ours: its layout is the one the player is typing with.
  const HKL layout = GetKeyboardLayout(GetWindowThreadProcessId(GetForegroundWindow(), nullptr));
  const TranslateKey translate = [layout](const KeyEventRecord* dead, const KeyEventRecord& key) {
    int count = 0;
    if (!dead) {
      std::wstring text = TypedText(key, kKeepKeyboardState, layout, count);
      return ProducedText{std::move(text), count < 0};
    }
    // The layout composes a dead key with the next one only through its own state: both are
    // given back to back, so nothing stays pending afterwards.
    TypedText(*dead, 0, layout, count);
    std::wstring text = TypedText(key, 0, layout, count);
    if (count < 0) TypedText(KeyEventRecord{VK_SPACE, 0x39}, 0, layout, count);
    return ProducedText{std::move(text), false};
  };
  for (const wchar_t c : typing.Type(record, translate)) model.InsertChar(c);
}

}  // namespace qn
