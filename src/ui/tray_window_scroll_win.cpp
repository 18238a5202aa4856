// The account and settings window's size and place, and its scrolling on screens too short
// for it: one column of controls is taller than a 1080p laptop at 150 % has room for.
#include <windows.h>

#include <algorithm>

#include "core/os.h"
#include "ui/tray_window_layout.h"
#include "ui/tray_window_state_win.h"

namespace qn {
namespace {

int ContentHeight(const TrayWindowState& state) {
  return Scaled(TrayWindowClient().height, state.dpi);
}

int ViewHeight(HWND window) {
  RECT client = {};
  GetClientRect(window, &client);
  return client.bottom;
}

// Setting the range shows or hides the scroll bar as the view needs it.
void SetScrollRange(const TrayWindowState& state) {
  SCROLLINFO info = {};
  info.cbSize = sizeof(info);
  info.fMask = SIF_RANGE | SIF_PAGE | SIF_POS;
  info.nMax = ContentHeight(state) - 1;
  info.nPage = static_cast<UINT>(ViewHeight(state.window));
  info.nPos = state.scroll;
  SetScrollInfo(state.window, SB_VERT, &info, TRUE);
}

SIZE OuterSize(const TrayWindowState& state, LONG available_height) {
  RECT rect = {0, 0, Scaled(TrayWindowClient().width, state.dpi), ContentHeight(state)};
  const auto style = static_cast<DWORD>(GetWindowLongPtrW(state.window, GWL_STYLE) & ~WS_VSCROLL);
  AdjustWindowRectForDpi(
      &rect, style, static_cast<DWORD>(GetWindowLongPtrW(state.window, GWL_EXSTYLE)), state.dpi);
  SIZE size = {rect.right - rect.left, rect.bottom - rect.top};
  if (size.cy > available_height) {
    size.cy = available_height;
    size.cx += SystemMetricForDpi(SM_CXVSCROLL, state.dpi);
  }
  return size;
}

}  // namespace

void PlaceTrayWindow(TrayWindowState& state, const RECT& work_area, std::optional<POINT> top_left) {
  const SIZE size = OuterSize(state, work_area.bottom - work_area.top);
  POINT at =
      top_left.value_or(POINT{work_area.left + (work_area.right - work_area.left - size.cx) / 2,
                              work_area.top + (work_area.bottom - work_area.top - size.cy) / 2});
  at.x = std::max(work_area.left, std::min(at.x, work_area.right - size.cx));
  at.y = std::clamp(at.y, work_area.top, work_area.bottom - size.cy);
  SetWindowPos(state.window, nullptr, at.x, at.y, size.cx, size.cy, SWP_NOZORDER | SWP_NOACTIVATE);
  SetScrollRange(state);
  // The scroll bar is as wide as the system draws it, which may not be what it said.
  RECT client = {};
  GetClientRect(state.window, &client);
  const int missing = Scaled(TrayWindowClient().width, state.dpi) - client.right;
  if (missing != 0) {
    SetWindowPos(state.window, nullptr, 0, 0, size.cx + missing, size.cy,
                 SWP_NOMOVE | SWP_NOZORDER | SWP_NOACTIVATE);
  }
  ScrollTrayWindow(state, state.scroll);
}

void ScrollTrayWindow(TrayWindowState& state, int top) {
  top = ClampScroll(top, ViewHeight(state.window), ContentHeight(state));
  const int moved = state.scroll - top;
  if (moved == 0) return;
  state.scroll = top;
  ScrollWindowEx(state.window, 0, moved, nullptr, nullptr, nullptr, nullptr,
                 SW_SCROLLCHILDREN | SW_INVALIDATE | SW_ERASE);
  SetScrollPos(state.window, SB_VERT, top, TRUE);
}

void OnTrayWindowScroll(TrayWindowState& state, WORD action) {
  SCROLLINFO info = {};
  info.cbSize = sizeof(info);
  info.fMask = SIF_ALL;
  GetScrollInfo(state.window, SB_VERT, &info);
  const int line = Scaled(kRowHeight, state.dpi);
  const int page = static_cast<int>(info.nPage);
  switch (action) {
    case SB_LINEUP:
      ScrollTrayWindow(state, state.scroll - line);
      break;
    case SB_LINEDOWN:
      ScrollTrayWindow(state, state.scroll + line);
      break;
    case SB_PAGEUP:
      ScrollTrayWindow(state, state.scroll - page);
      break;
    case SB_PAGEDOWN:
      ScrollTrayWindow(state, state.scroll + page);
      break;
    case SB_TOP:
      ScrollTrayWindow(state, 0);
      break;
    case SB_BOTTOM:
      ScrollTrayWindow(state, info.nMax);
      break;
    case SB_THUMBTRACK:
    case SB_THUMBPOSITION:
      ScrollTrayWindow(state, info.nTrackPos);
      break;
    default:
      break;
  }
}

// Three rows a notch, as lists scroll.
void OnTrayWindowWheel(TrayWindowState& state, short delta) {
  const int rows = -delta * 3 / WHEEL_DELTA;
  ScrollTrayWindow(state, state.scroll + rows * Scaled(kRowHeight, state.dpi));
}

void ShowFocusedControl(TrayWindowState& state, HWND control) {
  if (GetParent(control) != state.window) return;
  RECT rect = {};
  GetWindowRect(control, &rect);
  MapWindowPoints(nullptr, state.window, reinterpret_cast<POINT*>(&rect), 2);
  const int top = rect.top + state.scroll;
  ScrollTrayWindow(state, ScrollToShow(state.scroll, ViewHeight(state.window), top,
                                       top + (rect.bottom - rect.top)));
}

}  // namespace qn
