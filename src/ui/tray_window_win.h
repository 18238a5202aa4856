#pragma once
// The account and settings window: the program's one ordinary desktop window, opened from
// the tray. Sign-in, the settings, the recorded progress and the update check. Its service
// requests run one at a time on a worker; meanwhile the window says what it waits for and
// keeps answering.
#include <windows.h>

#include <atomic>
#include <functional>
#include <string>

#include "ui/tray_window_requests_win.h"

namespace qn {

class Session;

inline constexpr wchar_t kTrayWindowClass[] = L"HintwickTrayWindow";
// Posted by anyone who learnt that the recorded progress changed.
inline constexpr UINT kMsgRefreshProgress = WM_APP + 11;

struct TrayWindowCallbacks {
  std::function<void()> settings_applied;   // after a Save reached the session
  std::function<void()> check_for_updates;  // the player asked; may end the program
};

class TrayWindow {
 public:
  TrayWindow(HINSTANCE instance, TrayWindowCallbacks callbacks);
  ~TrayWindow();
  TrayWindow(const TrayWindow&) = delete;
  TrayWindow& operator=(const TrayWindow&) = delete;

  // Shows the window for the session and the game last seen under the drawer (may be empty);
  // when it is already open, brings it to the front instead. False when it could not be made.
  bool Open(Session& session, const std::string& game_key);
  bool IsOpen() const { return get() != nullptr; }
  // For IsDialogMessageW; null while closed.
  HWND get() const { return window_.load(); }
  // Destroys the window and waits for a request it started, as the program's end must: the
  // request uses the session. Cancel the session's client first, or this waits on the network.
  void Close();
  // Reads the recorded progress again once the window gets to it; nothing while closed.
  void RefreshProgress() const {
    if (const HWND window = get()) PostMessageW(window, kMsgRefreshProgress, 0, 0);
  }

 private:
  friend struct TrayWindowAccess;

  HINSTANCE instance_;
  TrayWindowCallbacks callbacks_;
  // The window owns its state and destroys itself on Close or Cancel; this only names it,
  // for the interface thread and for the worker that posts a result to it.
  std::atomic<HWND> window_{nullptr};
  // Outlives the window, so that one closed during a request cannot start a second beside it.
  TrayRequests requests_{window_};
};

}  // namespace qn
