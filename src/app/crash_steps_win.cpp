#include "app/crash_steps_win.h"

#include <windows.h>

#include <dwmapi.h>

#include "app/keyboard_hooks_win.h"
#include "core/module_proc.h"
#include "gfx/drawer_window.h"
#include "setup/crash_reporter_win.h"

namespace qn {
namespace {

// Looked up at start: loading a DLL at crash time would need the loader's lock, which the
// crashed thread may hold.
decltype(&::DwmSetWindowAttribute) g_set_window_attribute = nullptr;

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
    if (g_set_window_attribute) {
      g_set_window_attribute(drawer, DWMWA_CLOAK, &cloak, sizeof(cloak));
    }
    ShowWindowAsync(drawer, SW_HIDE);
  }
}

}  // namespace

void RegisterCrashSteps() {
  g_set_window_attribute =
      SystemProc<decltype(&::DwmSetWindowAttribute)>(L"dwmapi.dll", "DwmSetWindowAttribute");
  CrashReporter::AddStepBeforeBox(&PrepareForCrashBox);
}

void PrepareForCrashBox() noexcept {
  RemoveKeyboardHooksAtCrash();
  HideDrawers();
}

}  // namespace qn
