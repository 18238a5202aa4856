#include "app/drawer_control_win.h"

#include <psapi.h>

#include <utility>

#include "app/keyboard_hooks_win.h"
#include "app/messages.h"
#include "core/failure_log.h"
#include "core/log.h"

namespace qn {

DrawerControl::DrawerControl(ChatView& view, UINT idle_release_ms, Callbacks callbacks)
    : view_(view), idle_release_ms_(idle_release_ms), callbacks_(std::move(callbacks)) {}

// The game keeps the focus, so the typing meant for the drawer has to be taken from the
// keyboard; the device is made here so that the first frame does not wait for it later.
void DrawerControl::Open() {
  KillTimer(window_, kIdleReleaseTimer);
  if (!renderer_.Init()) return;
  view_ready_ = view_ready_ || ReadyView();
  StartKeyboardCapture(window_, kMsgCapturedKey.id);
  if (!SetTimer(window_, kTickTimer, kTickMs, nullptr)) LogLastError(L"SetTimer", kLogWarn);
  open_ = true;
  Log(kLogInfo, L"drawer opened");
}

void DrawerControl::Close() {
  if (!open_) return;
  open_ = false;
  KillTimer(window_, kTickTimer);
  StopKeyboardCapture();
  ArmIdleRelease();
  Log(kLogInfo, L"drawer closed");
  if (callbacks_.closed) callbacks_.closed();
}

void DrawerControl::Toggle() {
  if (open_) {
    Close();
  } else {
    Open();
  }
}

DrawerFacts DrawerControl::Facts() const {
  return {game_key_, view_ready_, open_, renderer_.Device() != nullptr};
}

void DrawerControl::ArmIdleRelease() {
  if (!SetTimer(window_, kIdleReleaseTimer, idle_release_ms_, nullptr)) {
    LogLastError(L"SetTimer", kLogWarn);
  }
}

// Trimming gives the pages of the released device back to the system at once, which is what
// a player looking at the Task Manager after a session expects.
void DrawerControl::ReleaseIdleGraphics() {
  KillTimer(window_, kIdleReleaseTimer);
  if (!renderer_.Device()) return;
  renderer_.Release();
  K32EmptyWorkingSet(GetCurrentProcess());
  Log(kLogInfo, L"idle: released GPU stack and drawer window");
}

bool DrawerControl::ReadyView() {
  if (!write_factory_ &&
      !CheckHr(DWriteCreateFactory(DWRITE_FACTORY_TYPE_SHARED, __uuidof(IDWriteFactory),
                                   reinterpret_cast<IUnknown**>(write_factory_.put())),
               L"DWriteCreateFactory", kLogError)) {
    return false;
  }
  return view_.Init(write_factory_.get());
}

}  // namespace qn
