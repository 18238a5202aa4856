#pragma once
// Starts the stand-in game (test_game_main_win.cpp) in a process of its own and drives it
// from the test: the drawer only opens over another process's window.
#include <windows.h>

#include <vector>

#include "core/handles.h"

namespace qn::test {

class TestGame {
 public:
  // The window at `rect`, in front; window() is null when it could not be had in time.
  explicit TestGame(const RECT& rect);
  ~TestGame();
  TestGame(const TestGame&) = delete;
  TestGame& operator=(const TestGame&) = delete;

  HWND window() const { return window_; }
  // Brings the game in front and waits until the system says it is.
  bool BringToFront() const;
  // Closes the window and waits for the process to end.
  void Quit();

 private:
  UniqueKernelHandle process_;
  HWND window_ = nullptr;
};

// Runs a Linux program (xdotool) on the bench's X display and waits for it. Wine cannot start
// a Linux program through CreateProcess; its own helpers use this export.
int RunOnX(std::vector<const char*> argv);

// Waits, pumping this thread's messages, until `done` holds; false after the deadline.
// One message at a time: a drawer tick slower than its timer under llvmpipe always has the
// next WM_TIMER ready, and draining the queue first would never come back to `done`.
template <typename Done>
bool PumpUntil(Done done, DWORD timeout_ms = 20000) {
  MSG message;
  for (const ULONGLONG deadline = GetTickCount64() + timeout_ms; !done();) {
    if (GetTickCount64() > deadline) return false;
    if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
      continue;
    }
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return true;
}

}  // namespace qn::test
