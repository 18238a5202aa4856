#pragma once
// The program's one presence on the desktop: its notification-area icon, the balloon notes
// on it and its context menu. Interface thread only.
#include <windows.h>

#include <shellapi.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <string_view>

namespace qn {

// What the shell sends the owner for mouse and keyboard events on the icon; the low word of
// lParam is the event (WM_RBUTTONUP, WM_CONTEXTMENU, WM_LBUTTONDBLCLK...).
inline constexpr UINT kTrayCallbackMessage = WM_APP + 1;
inline constexpr UINT kTrayIconId = 1;

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
  // Returns once the menu has closed; a chosen entry reaches the owner as WM_COMMAND.
  void ShowTrayMenu(std::wstring_view hotkey_text, bool signed_in);
  // A restarted shell has forgotten every icon and says so with the "TaskbarCreated"
  // broadcast: the icon is added again. True when `message` was that broadcast. Broadcasts
  // reach top-level windows only, so a message-only owner never hears it.
  bool OnShellMessage(UINT message);
  bool added() const { return added_; }

 private:
  NOTIFYICONDATAW Identity() const;

  HWND owner_;
  HICON icon_;
  UINT taskbar_created_;
  bool added_ = false;
};

}  // namespace qn
