#pragma once
// The system hotkey with its stand-in hook, and the hook that takes the typing for the drawer
// while the game keeps the focus. Both hooks run on the interface thread, through its message
// loop, and only read key states, ask key_capture.h and post.
#include <windows.h>

#include <cstdint>

#include "app/key_capture.h"
#include "core/handles.h"

namespace qn {

class ChatModel;

// The system hotkey (id 1 on the message window), with a low-level keyboard hook standing in
// when the system refuses it. Owned by the application; interface thread only.
class AppHotkey {
 public:
  AppHotkey(HWND message_window, HINSTANCE instance);
  ~AppHotkey();
  AppHotkey(const AppHotkey&) = delete;
  AppHotkey& operator=(const AppHotkey&) = delete;

  // Replaces any earlier registration; false only when neither the hotkey nor the fallback
  // hook could be set.
  bool RegisterAppHotkey(uint32_t modifiers, uint32_t key);
  bool registered() const { return registered_; }
  bool has_fallback() const { return static_cast<bool>(fallback_); }
  // Shutdown: the hotkey and the fallback hook, each only if set.
  void Remove();

 private:
  void Unregister();

  HWND window_;
  HINSTANCE instance_;
  bool registered_ = false;
  UniqueHhook fallback_;
};

// Process-wide, as the hook procedures have no context of their own. Captured key-downs
// reach `window` as PostedMessage<KeyEventRecord>{message}; the receiver adopts the record.
bool StartKeyboardCapture(HWND window, UINT message);
void StopKeyboardCapture();
bool KeyboardCaptureOn();
// The capture hook stays installed once set; this removes it at process end.
void RemoveKeyboardCaptureHook();
// From any thread, when the process has crashed: a hook whose thread has stopped would hold
// every key the player types for the system's time-out. Both hooks go.
void RemoveKeyboardHooksAtCrash() noexcept;

// Types one captured key into the question: an editing key, or the characters it makes under
// the foreground program's keyboard layout, control characters left out.
void TypeKeyRecord(const KeyEventRecord& record, ChatModel& model);

}  // namespace qn
