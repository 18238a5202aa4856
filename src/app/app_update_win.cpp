// Where the update flow meets the rest of the program: what counts as the desktop, and the
// hand-over that ends this process for the new build.
#include <windows.h>

#include "app/app.h"
#include "app/drawer_target.h"
#include "app/target_window_win.h"

namespace qn {
namespace {

// Nothing in front counts as the desktop: there is no game to interrupt.
bool DesktopInFront() {
  const HWND foreground = GetForegroundWindow();
  return !foreground || IsShellExecutable(ExecutablePathOf(foreground));
}

}  // namespace

UpdateFlow::Hooks App::UpdateHooks() {
  return {&DesktopInFront, [this](const std::wstring& exe) {
            hand_over_to_ = exe;
            PostQuitMessage(0);
          }};
}

}  // namespace qn
