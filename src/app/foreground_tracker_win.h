#pragma once
// Tells the interface thread which window came to the foreground. The system's event hooks
// call a procedure without any context, so a process has one tracker at a time.
#include <windows.h>

#include <functional>

#include "core/handles.h"

namespace qn {

class ForegroundTracker {
 public:
  using Listener = std::function<void(HWND foreground)>;

  ForegroundTracker() = default;
  ~ForegroundTracker() { Stop(); }
  ForegroundTracker(const ForegroundTracker&) = delete;
  ForegroundTracker& operator=(const ForegroundTracker&) = delete;

  // The listener runs on this thread, from its message loop.
  bool Start(Listener listener);
  void Stop();

 private:
  static void CALLBACK OnEvent(HWINEVENTHOOK hook, DWORD event, HWND window, LONG object,
                               LONG child, DWORD thread, DWORD time);

  UniqueWinEventHook hook_;
  Listener listener_;
};

}  // namespace qn
