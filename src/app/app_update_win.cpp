// The player's side of an update: when to ask, the questions and the hand-over to the new
// build. The updater does the work; a prompt is never shown over a running game.
#include <windows.h>

#include "app/app.h"
#include "app/drawer_target.h"
#include "app/target_window_win.h"
#include "core/log.h"

namespace qn {
namespace {

// Nothing in front counts as the desktop: there is no game to interrupt.
bool DesktopInFront() {
  const HWND foreground = GetForegroundWindow();
  return !foreground || IsShellExecutable(ExecutablePathOf(foreground));
}

}  // namespace

// A box runs a message loop of its own, which goes on serving the tray menu, the settings
// window and the drawer's return to the desktop; each of them may ask again, and a second
// prompt under the first would let both apply the update.
bool App::CheckForUpdates(bool report_up_to_date, HWND owner) {
  if (update_prompt_open_) {
    Log(kLogInfo, L"an update prompt is open already; not asking again");
    return false;
  }
  update_prompt_open_ = true;
  const bool handing_over = AskAndApplyUpdate(report_up_to_date, owner);
  update_prompt_open_ = false;
  return handing_over;
}

bool App::AskAndApplyUpdate(bool report_up_to_date, HWND owner) {
  const UpdateInfo info = updater_.Check(session_.Client());
  if (!info.available) {
    if (report_up_to_date) {
      MessageBoxW(owner, info.unreachable ? kUpdateCheckFailedText : UpToDateText().c_str(),
                  kUpdateCaption, info.unreachable ? MB_ICONWARNING : MB_ICONINFORMATION);
    }
    return false;
  }
  if (MessageBoxW(owner, UpdateQuestionText(info).c_str(), kUpdateCaption,
                  MB_YESNO | MB_ICONINFORMATION) != IDYES) {
    return false;
  }
  std::wstring error;
  if (!updater_.Apply(info, error)) {
    MessageBoxW(owner, error.c_str(), kUpdateCaption, MB_ICONWARNING);
    return false;
  }
  // Started only once this process has let go of the hotkey, the tray icon and the
  // single-instance mutex: started now, the new build would find them all taken.
  hand_over_to_ = updater_.ExePath();
  Log(kLogInfo, L"update applied; handing over to the new build");
  return true;
}

bool App::CheckForUpdatesAtStart() {
  if (DesktopInFront()) return !CheckForUpdates(false);
  update_deferred_ = updater_.Check(session_.Client()).available;
  if (update_deferred_) {
    Log(kLogInfo, L"an update is available, but something is in the foreground; deferring the "
                  L"prompt until the player is back at the desktop");
  }
  return true;
}

}  // namespace qn
