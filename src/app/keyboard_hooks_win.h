#pragma once
// The system hotkey, and the low-level hook that watches for it beside the system and takes
// the typing for the drawer while the game keeps the focus. The hook runs on a thread of its
// own, through that thread's message loop, and only reads key states, asks key_capture.h and
// posts: whatever the interface thread is waiting for, it answers in time.
#include <windows.h>

#include <cstdint>

#include "app/key_capture.h"
#include "core/handles.h"

namespace qn {

class ChatModel;

// The system hotkey (id 1 on the message window) and the hook's watch for it (id 2), which
// also sees it in games that keep system hotkeys from arriving. Owned by the application;
// interface thread only.
class AppHotkey {
 public:
  explicit AppHotkey(HWND message_window);
  ~AppHotkey();
  AppHotkey(const AppHotkey&) = delete;
  AppHotkey& operator=(const AppHotkey&) = delete;

  // Replaces any earlier registration; false only when neither the system nor the hook could
  // take the hotkey.
  bool RegisterAppHotkey(uint32_t modifiers, uint32_t key);
  bool registered() const { return registered_; }
  bool watched() const { return watched_; }
  // For each WM_HOTKEY: true when it is a press to act on, not the same press told twice.
  bool TakePress(WPARAM id, LPARAM lparam);
  // Shutdown: the hotkey, and the hook's watch for it.
  void Remove();

 private:
  void Unregister();

  HWND window_;
  bool registered_ = false;
  bool watched_ = false;
  HotkeyPresses presses_;
};

// Process-wide, as the hook procedures have no context of their own. Captured key-downs
// reach `window` as PostedMessage<KeyEventRecord>{message}; the receiver adopts the record.
bool StartKeyboardCapture(HWND window, UINT message);
void StopKeyboardCapture();
bool KeyboardCaptureOn();
// The hook stays set once the hotkey or the capture needed it; this ends its thread at exit.
void StopKeyboardHooks();
// Takes the hook away as Windows does when a hook answers too late.
void DropKeyboardHookForTest();
// From any thread, when the process has crashed: a hook whose thread has stopped would hold
// every key the player types for the system's time-out.
void RemoveKeyboardHooksAtCrash() noexcept;

// Types one captured key into the question: an editing key, or the characters it makes under
// the foreground program's keyboard layout (a dead key with the key after it), control
// characters left out.
void TypeKeyRecord(const KeyEventRecord& record, KeyTyping& typing, ChatModel& model);

}  // namespace qn
