#pragma once
// What the account and settings window keeps while it exists: created with the window,
// attached to it, and freed when it is destroyed. Shared by the window's source files only.
#include <windows.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/handles.h"
#include "core/settings.h"
#include "ui/message_font_win.h"
#include "ui/tray_window_text.h"

namespace qn {

class Session;
class TrayWindow;

struct TrayWindowState {
  TrayWindow* owner = nullptr;  // forgets the window when it goes
  Session* session = nullptr;
  std::string game_key;
  Settings working;  // what the controls edit; the session gets it on Save
  HWND window = nullptr;
  UINT dpi = USER_DEFAULT_SCREEN_DPI;
  UniqueHfont font;
  UniqueHfont bold_font;
  bool capturing_hotkey = false;
  int scroll = 0;                // how far the content is scrolled up, in pixels
  HWND focus = nullptr;          // given back when the window is activated again
  bool awaiting = false;         // a request runs, and its result comes here
  uint64_t awaited = 0;          // that request's number
  HWND parked_focus = nullptr;   // the control that had the focus when a request disabled it
  bool progress_wanted = false;  // asked for while a request ran
  bool reset_allowed = false;    // a progress record was read
  std::vector<HWND> controls;    // in the order of the layout

  static TrayWindowState* Of(HWND window) {
    return reinterpret_cast<TrayWindowState*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  }
};

// The controls: made once, then laid out and given fonts again at each DPI.
bool CreateTrayWindowControls(TrayWindowState& state, HINSTANCE instance);
void LayOutForDpi(TrayWindowState& state, UINT dpi);
// Sizes the window for its DPI, no taller than `work_area`, with its top left at `top_left`
// or, without one, centred; a window cut short scrolls its content.
void PlaceTrayWindow(TrayWindowState& state, const RECT& work_area, std::optional<POINT> top_left);
void ScrollTrayWindow(TrayWindowState& state, int top);
void OnTrayWindowScroll(TrayWindowState& state, WORD action);
void OnTrayWindowWheel(TrayWindowState& state, short delta);
// Brings a control that took the focus into view.
void ShowFocusedControl(TrayWindowState& state, HWND control);
// Sent by a control to the window when it takes the focus; WPARAM is the control.
inline constexpr UINT kMsgControlFocused = WM_APP + 12;

// The controls as the working copy says.
void ShowWorkingSettings(const TrayWindowState& state);
void ShowHotkey(const TrayWindowState& state);
void StartHotkeyCapture(TrayWindowState& state);
// A key pressed while capturing: taken, refused with a reason, or ending the capture.
void OnHotkeyKey(TrayWindowState& state, uint32_t key);
// A slider moved: its value into the working copy, and its label redrawn.
void TakeSliderPosition(TrayWindowState& state, HWND slider);
void ShowAccountStatus(const TrayWindowState& state, const std::wstring& last_error);
// Which of the controls that start a request take input now.
void ShowRequestControls(const TrayWindowState& state);
// The progress text for what is known without asking the service, or `read` from it.
void ShowProgressText(TrayWindowState& state, const std::optional<ProgressRead>& read);
// Enter signs in while the window offers that, and saves otherwise; that button gets the
// default button's frame.
int DefaultButtonId(const TrayWindowState& state);
void ShowDefaultButton(const TrayWindowState& state);
// A status line is announced to a screen reader when it changes, as a live region.
void MarkLiveRegion(HWND control);
// A status line's new text, announced to a screen reader as a live region's change.
void SetStatus(const TrayWindowState& state, int control, const wchar_t* text);

std::wstring ControlText(HWND window, int id);
bool IsChecked(HWND window, int id);
void EnableControl(HWND window, int id, bool enabled);

// Keeps the password from being copied out, and control characters from being pasted in.
void SubclassPasswordBox(HWND box);
// The box's text, read into a buffer that is wiped after `use`; the box is emptied either way.
void TakePassword(HWND box, const std::function<void(const std::string&)>& use);

}  // namespace qn
