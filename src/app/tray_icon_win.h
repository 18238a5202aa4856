#pragma once
// The program's one presence on the desktop: its notification-area icon, the balloon notes
// on it and its context menu. Interface thread only.
#include <windows.h>

// After windows.h, which it needs.
#include <shellapi.h>

#include <string_view>

#include "core/handles.h"

namespace qn {

// What the shell sends the owner for mouse and keyboard events on the icon; the low word of
// lParam is the event (WM_RBUTTONUP, WM_CONTEXTMENU, WM_LBUTTONDBLCLK...).
inline constexpr UINT kTrayCallbackMessage = WM_APP + 1;
inline constexpr UINT kTrayIconId = 1;
// The hidden top-level window each TrayIcon keeps for what its message-only owner cannot do.
inline constexpr wchar_t kTrayListenerClass[] = L"HintwickTrayListener";

class TrayIcon {
 public:
  // Loads the program's icon (resource 1) at the small-icon size; the shared icon is the
  // system's to free.
  TrayIcon(HWND owner, HINSTANCE instance);
  ~TrayIcon();
  TrayIcon(const TrayIcon&) = delete;
  TrayIcon& operator=(const TrayIcon&) = delete;

  // False leaves the program running without an icon; the hotkey still works.
  bool AddTrayIcon();
  // Does nothing unless the icon is there.
  void RemoveTrayIcon();
  void ShowTrayBalloon(std::wstring_view text);
  // Returns once the menu has closed; a chosen entry is posted to the owner as WM_COMMAND.
  void ShowTrayMenu(std::wstring_view hotkey_text, bool signed_in);
  // A restarted shell has forgotten every icon and says so with the "TaskbarCreated"
  // broadcast: the icon is added again. True when `message` was that broadcast. Broadcasts
  // reach top-level windows only, so the icon's own listener window hears it for a
  // message-only owner.
  bool OnShellMessage(UINT message);
  bool added() const { return added_; }

 private:
  static LRESULT CALLBACK ListenerProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  NOTIFYICONDATAW Identity() const;

  HWND owner_;
  HICON icon_;
  UINT taskbar_created_;
  bool added_ = false;
  // Hidden, never in Alt+Tab: hears the shell's broadcast and owns the menu, which needs a
  // window that can be in the foreground.
  UniqueHwnd listener_;
};

}  // namespace qn
