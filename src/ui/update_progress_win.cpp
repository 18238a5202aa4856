#include "ui/update_progress_win.h"

#include <commctrl.h>

#include <utility>

#include "core/failure_log.h"
#include "core/log.h"
#include "core/os.h"
#include "ui/message_font_win.h"

namespace qn {
namespace {

constexpr DWORD kStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU;
constexpr DWORD kExStyle = WS_EX_DLGMODALFRAME | WS_EX_TOPMOST;
constexpr wchar_t kTitle[] = L"Hintwick update";
constexpr int kProgressRange = 1000;

// Pixels at 96 DPI.
constexpr int kClientWidth = 380;
constexpr int kClientHeight = 112;
constexpr int kMargin = 12;
constexpr RECT kTextBox = {kMargin, kMargin, kClientWidth - kMargin, kMargin + 20};
constexpr RECT kBarBox = {kMargin, 40, kClientWidth - kMargin, 58};
constexpr RECT kCancelBox = {kClientWidth - kMargin - 88, 74, kClientWidth - kMargin, 100};

void PlaceScaled(HWND control, const RECT& box, UINT dpi) {
  SetWindowPos(control, nullptr, Scaled(box.left, dpi), Scaled(box.top, dpi),
               Scaled(box.right - box.left, dpi), Scaled(box.bottom - box.top, dpi),
               SWP_NOZORDER | SWP_NOACTIVATE);
}

RECT WorkAreaNear(HWND owner) {
  POINT cursor = {};
  GetCursorPos(&cursor);
  const HMONITOR monitor = owner ? MonitorFromWindow(owner, MONITOR_DEFAULTTONEAREST)
                                 : MonitorFromPoint(cursor, MONITOR_DEFAULTTONEAREST);
  MONITORINFO info = {};
  info.cbSize = sizeof(info);
  if (!GetMonitorInfoW(monitor, &info)) return {0, 0, 1024, 768};
  return info.rcWork;
}

}  // namespace

bool UpdateProgressWindow::Open(HINSTANCE instance, HWND owner, const std::wstring& text,
                                std::function<void()> on_cancel) {
  Close();
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &Procedure;
  window_class.hInstance = instance;
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
  window_class.lpszClassName = kUpdateProgressClass;
  if (!EnsureWindowClass(window_class)) return LogLastError(L"RegisterClassExW", kLogError);
  const RECT area = WorkAreaNear(owner);
  window_.reset(CreateWindowExW(kExStyle, kUpdateProgressClass, kTitle, kStyle, area.left,
                                area.top, kClientWidth, kClientHeight, owner, nullptr, instance,
                                this));
  if (!window_) return LogLastError(L"CreateWindowExW", kLogError);
  on_cancel_ = std::move(on_cancel);
  if (!CreateControls(instance)) {
    Close();
    return false;
  }
  LayOut();
  Show(text, 0, 0);
  ShowWindow(window_.get(), SW_SHOW);
  SetForegroundWindow(window_.get());
  SetFocus(cancel_);
  return true;
}

bool UpdateProgressWindow::CreateControls(HINSTANCE instance) {
  const INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_PROGRESS_CLASS};
  if (!InitCommonControlsEx(&controls)) Log(kLogWarn, L"InitCommonControlsEx failed");
  const auto make = [&](const wchar_t* kind, const wchar_t* text, DWORD style, int id) {
    return CreateWindowExW(0, kind, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 0, 0, window_.get(),
                           reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), instance, nullptr);
  };
  text_ = make(L"STATIC", L"", SS_LEFT | SS_NOPREFIX | SS_ENDELLIPSIS, 0);
  bar_ = make(PROGRESS_CLASSW, L"", 0, 0);
  cancel_ = make(L"BUTTON", L"Cancel", BS_DEFPUSHBUTTON | WS_TABSTOP, IDCANCEL);
  if (!text_ || !bar_ || !cancel_) return LogLastError(L"CreateWindowExW", kLogError);
  SendMessageW(bar_, PBM_SETRANGE32, 0, kProgressRange);
  return true;
}

// Sized and placed for the DPI of the monitor the window is on: centred on its work area.
void UpdateProgressWindow::LayOut() {
  const UINT dpi = GetWindowDpi(window_.get());
  font_ = MessageFont(dpi);
  for (const HWND control : {text_, bar_, cancel_}) {
    SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(font_.get()), FALSE);
  }
  PlaceScaled(text_, kTextBox, dpi);
  PlaceScaled(bar_, kBarBox, dpi);
  PlaceScaled(cancel_, kCancelBox, dpi);
  RECT frame = {0, 0, Scaled(kClientWidth, dpi), Scaled(kClientHeight, dpi)};
  AdjustWindowRectForDpi(&frame, kStyle, kExStyle, dpi);
  const RECT area = WorkAreaNear(window_.get());
  const int width = frame.right - frame.left;
  const int height = frame.bottom - frame.top;
  SetWindowPos(window_.get(), nullptr, (area.left + area.right - width) / 2,
               (area.top + area.bottom - height) / 2, width, height,
               SWP_NOZORDER | SWP_NOACTIVATE);
}

void UpdateProgressWindow::Show(const std::wstring& text, uint64_t got, uint64_t total) {
  if (!window_) return;
  SetWindowTextW(text_, text.c_str());
  // Without a size the bar cannot say how far along it is, so it only shows that it moves.
  const bool known = total != 0;
  const LONG_PTR style = GetWindowLongPtrW(bar_, GWL_STYLE);
  if (((style & PBS_MARQUEE) != 0) == known) {
    SetWindowLongPtrW(bar_, GWL_STYLE, known ? style & ~PBS_MARQUEE : style | PBS_MARQUEE);
    SendMessageW(bar_, PBM_SETMARQUEE, known ? FALSE : TRUE, 0);
  }
  if (known) {
    SendMessageW(bar_, PBM_SETPOS, static_cast<WPARAM>(got * kProgressRange / total), 0);
  }
}

void UpdateProgressWindow::Cancel() {
  if (!on_cancel_) return;
  EnableWindow(cancel_, FALSE);
  std::exchange(on_cancel_, nullptr)();
}

LRESULT CALLBACK UpdateProgressWindow::Procedure(HWND window, UINT message, WPARAM wparam,
                                                 LPARAM lparam) {
  if (message == WM_NCCREATE) {
    const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lparam);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(create->lpCreateParams));
  }
  auto* self = reinterpret_cast<UpdateProgressWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  switch (message) {
    case WM_COMMAND:
      if (LOWORD(wparam) == IDCANCEL && self) self->Cancel();
      return 0;
    case WM_CLOSE:
      if (self) self->Cancel();
      return 0;
    case WM_DPICHANGED:
      if (self && self->window_) self->LayOut();
      return 0;
    default:
      return DefWindowProcW(window, message, wparam, lparam);
  }
}

}  // namespace qn
