#pragma once
// A stand-in for the notification area under Wine, whose Shell_NotifyIconW hands each call to
// the first "Shell_TrayWnd" window it finds: what the program asks of the tray is read back
// exactly. Windows' own shell takes another format, so this only means something under Wine.
#include <windows.h>

#include <shellapi.h>

#include <string>
#include <vector>

#include "core/handles.h"

namespace qn::test {

// What Wine's Shell_NotifyIconW hands the "Shell_TrayWnd" window as WM_COPYDATA, whose
// dwData is the NIM_ message; the icon's pixels follow the record.
struct WineNotifyData {
  LONG owner;
  UINT id, flags, callback_message;
  WCHAR tip[128];
  DWORD state, state_mask;
  WCHAR info[256];
  UINT timeout_or_version;
  WCHAR info_title[64];
  DWORD info_flags;
  GUID guid;
  UINT icon_width, icon_height, icon_planes, icon_bpp;
};

struct Notification {
  ULONG_PTR message;
  HWND owner;
  UINT id, flags, callback;
  std::wstring tip, info, info_title;
  UINT icon_width;
};

inline bool UnderWine() {
  return GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
}

// A class registered by an earlier test stays registered, which is fine.
inline HWND CreateTestWindow(const wchar_t* class_name, WNDPROC proc, DWORD style, HWND parent) {
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = proc;
  window_class.hInstance = GetModuleHandleW(nullptr);
  window_class.lpszClassName = class_name;
  RegisterClassExW(&window_class);
  return CreateWindowExW(0, class_name, nullptr, style, 0, 0, 0, 0, parent, nullptr,
                         GetModuleHandleW(nullptr), nullptr);
}

// Stands in for the notification area, so that what reaches it can be read back exactly.
class FakeTray {
 public:
  FakeTray() : window_(CreateTestWindow(L"Shell_TrayWnd", &Proc, WS_POPUP, nullptr)) {
    SetWindowLongPtrW(window_.get(), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  }
  // The shell's own tray window, if the bench runs one, must not be the one that is found.
  bool IsTheOneFound() const {
    return window_ && FindWindowExW(nullptr, nullptr, L"Shell_TrayWnd", nullptr) == window_.get();
  }

  std::vector<Notification> received;

 private:
  static LRESULT CALLBACK Proc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    auto* self = reinterpret_cast<FakeTray*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message != WM_COPYDATA || !self) return DefWindowProcW(window, message, wparam, lparam);
    const auto* copy = reinterpret_cast<const COPYDATASTRUCT*>(lparam);
    if (copy->cbData < sizeof(WineNotifyData)) return FALSE;
    const auto& data = *static_cast<const WineNotifyData*>(copy->lpData);
    // Other programs on the bench may find this window too; only this one's icons count.
    const HWND owner = reinterpret_cast<HWND>(LongToHandle(data.owner));
    DWORD process = 0;
    GetWindowThreadProcessId(owner, &process);
    if (process != GetCurrentProcessId()) return TRUE;
    self->received.push_back({copy->dwData, owner, data.id, data.flags, data.callback_message,
                              data.tip, data.info, data.info_title, data.icon_width});
    return TRUE;
  }

  UniqueHwnd window_;
};

}  // namespace qn::test
