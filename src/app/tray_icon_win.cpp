#include "app/tray_icon_win.h"

#include <algorithm>
#include <iterator>

#include "app/tray_menu.h"
#include "core/failure_log.h"
#include "core/os.h"

namespace qn {
namespace {

template <size_t N>
void CopyText(wchar_t (&field)[N], std::wstring_view text) {
  const size_t length = std::min(text.size(), N - 1);
  std::copy_n(text.data(), length, field);
  field[length] = L'\0';
}

// LR_DEFAULTSIZE only matters if the metrics read zero; LR_SHARED leaves the icon to the
// system, so nobody destroys it.
HICON LoadSmallIcon(HINSTANCE instance) {
  const auto icon = static_cast<HICON>(
      LoadImageW(instance, MAKEINTRESOURCEW(1), IMAGE_ICON, GetSystemMetrics(SM_CXSMICON),
                 GetSystemMetrics(SM_CYSMICON), LR_DEFAULTSIZE | LR_SHARED));
  if (!icon) LogLastError(L"LoadImageW", kLogWarn);
  return icon;
}

bool AppendEntry(HMENU menu, const TrayMenuEntry& entry) {
  const BOOL appended = entry.command == 0
                            ? AppendMenuW(menu, MF_SEPARATOR, 0, nullptr)
                            : AppendMenuW(menu, MF_STRING, entry.command, entry.text.c_str());
  return appended || LogLastError(L"AppendMenuW", kLogWarn);
}

UniqueHmenu BuildMenu(std::wstring_view hotkey_text, bool signed_in) {
  UniqueHmenu menu(CreatePopupMenu());
  if (!menu) {
    LogLastError(L"CreatePopupMenu", kLogWarn);
    return menu;
  }
  for (const TrayMenuEntry& entry : TrayMenuEntries(hotkey_text, signed_in)) {
    if (!AppendEntry(menu.get(), entry)) return UniqueHmenu();
  }
  return menu;
}

// The chosen entry's id, or zero. A dismissed menu also returns zero; only a set error is a
// failure.
UINT TrackMenu(HMENU menu, HWND owner) {
  POINT cursor = {};
  if (!GetCursorPos(&cursor)) LogLastError(L"GetCursorPos", kLogWarn);
  SetLastError(ERROR_SUCCESS);
  const BOOL command = TrackPopupMenu(menu, TPM_RIGHTBUTTON | TPM_BOTTOMALIGN | TPM_RETURNCMD,
                                      cursor.x, cursor.y, 0, owner, nullptr);
  if (command == 0 && GetLastError() != ERROR_SUCCESS) LogLastError(L"TrackPopupMenu", kLogWarn);
  return static_cast<UINT>(command);
}

// Without a listener the icon still works, but is lost to a shell restart and its menu may stay open when the user clicks away.
UniqueHwnd CreateListener(HINSTANCE instance, WNDPROC proc) {
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = proc;
  window_class.hInstance = instance;
  window_class.lpszClassName = kTrayListenerClass;
  if (!EnsureWindowClass(window_class)) {
    LogLastError(L"RegisterClassExW", kLogWarn);
    return UniqueHwnd();
  }
  UniqueHwnd listener(CreateWindowExW(WS_EX_TOOLWINDOW, kTrayListenerClass, L"", WS_POPUP, 0, 0, 0,
                                      0, nullptr, nullptr, instance, nullptr));
  if (!listener) LogLastError(L"CreateWindowExW", kLogWarn);
  return listener;
}

}  // namespace

TrayIcon::TrayIcon(HWND owner, HINSTANCE instance)
    : owner_(owner),
      icon_(LoadSmallIcon(instance)),
      taskbar_created_(RegisterWindowMessageW(L"TaskbarCreated")),
      listener_(CreateListener(instance, &ListenerProc)) {
  if (taskbar_created_ == 0) LogLastError(L"RegisterWindowMessageW", kLogWarn);
  if (listener_)
    SetWindowLongPtrW(listener_.get(), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
}

// The shell's broadcast arrives here, not at a message-only owner.
LRESULT CALLBACK TrayIcon::ListenerProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  auto* self = reinterpret_cast<TrayIcon*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  try {
    if (self && self->OnShellMessage(message)) return 0;
  } catch (...) {  // only the failure's log line can throw; the icon stays as it was
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

TrayIcon::~TrayIcon() { RemoveTrayIcon(); }

NOTIFYICONDATAW TrayIcon::Identity() const {
  NOTIFYICONDATAW data = {};
  data.cbSize = sizeof(data);
  data.hWnd = owner_;
  data.uID = kTrayIconId;
  return data;
}

bool TrayIcon::AddTrayIcon() {
  NOTIFYICONDATAW data = Identity();
  data.uFlags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
  data.uCallbackMessage = kTrayCallbackMessage;
  data.hIcon = icon_;
  CopyText(data.szTip, kTrayTooltip);
  added_ = Shell_NotifyIconW(NIM_ADD, &data) != FALSE;
  return added_ || LogLastError(L"Shell_NotifyIconW(NIM_ADD)", kLogWarn);
}

void TrayIcon::RemoveTrayIcon() {
  if (!added_) return;
  added_ = false;
  NOTIFYICONDATAW data = Identity();
  if (!Shell_NotifyIconW(NIM_DELETE, &data))
    LogLastError(L"Shell_NotifyIconW(NIM_DELETE)", kLogWarn);
}

// A lost balloon changes nothing else, so its failure is only logged.
void TrayIcon::ShowTrayBalloon(std::wstring_view text) {
  NOTIFYICONDATAW data = Identity();
  data.uFlags = NIF_INFO;
  data.dwInfoFlags = NIIF_INFO;
  CopyText(data.szInfoTitle, kTrayBalloonTitle);
  CopyText(data.szInfo, CutForBalloon(text));
  if (!Shell_NotifyIconW(NIM_MODIFY, &data))
    LogLastError(L"Shell_NotifyIconW(NIM_MODIFY)", kLogWarn);
}

void TrayIcon::ShowTrayMenu(std::wstring_view hotkey_text, bool signed_in) {
  const UniqueHmenu menu = BuildMenu(hotkey_text, signed_in);
  if (!menu) return;
  // Unless its owner is in the foreground, the menu stays open when the user clicks away; a
  // message-only window never is, so the listener owns it.
  const HWND menu_owner = listener_ ? listener_.get() : owner_;
  SetForegroundWindow(menu_owner);
  const UINT command = TrackMenu(menu.get(), menu_owner);
  // Without this the next menu may open and close at once.
  PostMessageW(menu_owner, WM_NULL, 0, 0);
  if (command != 0 && !PostMessageW(owner_, WM_COMMAND, MAKEWPARAM(command, 0), 0))
    LogLastError(L"PostMessageW(WM_COMMAND)", kLogWarn);
}

// Added whether or not it was before: a shell that was not up yet at start-up is the usual
// reason a first add fails.
bool TrayIcon::OnShellMessage(UINT message) {
  if (taskbar_created_ == 0 || message != taskbar_created_) return false;
  added_ = false;
  AddTrayIcon();
  return true;
}

}  // namespace qn
