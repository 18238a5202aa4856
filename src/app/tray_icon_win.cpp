#include "app/tray_icon_win.h"

#include <algorithm>
#include <iterator>

#include "app/tray_menu.h"
#include "core/failure_log.h"
#include "core/handles.h"

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

}  // namespace

TrayIcon::TrayIcon(HWND owner, HINSTANCE instance)
    : owner_(owner),
      icon_(LoadSmallIcon(instance)),
      taskbar_created_(RegisterWindowMessageW(L"TaskbarCreated")) {
  if (taskbar_created_ == 0) LogLastError(L"RegisterWindowMessageW", kLogWarn);
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
  UniqueHmenu menu(CreatePopupMenu());
  if (!menu) {
    LogLastError(L"CreatePopupMenu", kLogWarn);
    return;
  }
  for (const TrayMenuEntry& entry : TrayMenuEntries(hotkey_text, signed_in)) {
    if (!AppendEntry(menu.get(), entry)) return;
  }
  POINT cursor = {};
  if (!GetCursorPos(&cursor)) LogLastError(L"GetCursorPos", kLogWarn);
  // Unless its owner is in the foreground, the menu stays open when the user clicks away.
  SetForegroundWindow(owner_);
  // Without TPM_RETURNCMD a dismissed menu may also return zero; only a set error is a failure.
  SetLastError(ERROR_SUCCESS);
  if (!TrackPopupMenu(menu.get(), TPM_RIGHTBUTTON | TPM_BOTTOMALIGN, cursor.x, cursor.y, 0, owner_,
                      nullptr) &&
      GetLastError() != ERROR_SUCCESS) {
    LogLastError(L"TrackPopupMenu", kLogWarn);
  }
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
