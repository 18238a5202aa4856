#include "app/crash_steps_win.h"

#include <windows.h>

#include <dwmapi.h>

#include "app/keyboard_hooks_win.h"
#include "gfx/drawer_window.h"
#include "setup/crash_reporter_win.h"

namespace qn {
namespace {

// ShowWindow on another thread's window waits for that thread, which may be the crashed
// one. Cloaking is the window manager's alone; the asynchronous hide also takes the window
// off the screen when its thread still runs.
void HideDrawers() noexcept {
  const DWORD self = GetCurrentProcessId();
  HWND drawer = nullptr;
  while ((drawer = FindWindowExW(nullptr, drawer, kDrawerWindowClass, nullptr))) {
    DWORD owner = 0;
    GetWindowThreadProcessId(drawer, &owner);
    if (owner != self) continue;
    const BOOL cloak = TRUE;
    DwmSetWindowAttribute(drawer, DWMWA_CLOAK, &cloak, sizeof(cloak));
    ShowWindowAsync(drawer, SW_HIDE);
  }
}

}  // namespace

void RegisterCrashSteps() { CrashReporter::AddStepBeforeBox(&PrepareForCrashBox); }

void PrepareForCrashBox() noexcept {
  RemoveKeyboardHooksAtCrash();
  HideDrawers();
}

}  // namespace qn
