#include "app/foreground_tracker_win.h"

#include <utility>

#include "core/log.h"

namespace qn {
namespace {

ForegroundTracker* g_tracker = nullptr;

}  // namespace

bool ForegroundTracker::Start(Listener listener) {
  Stop();
  listener_ = std::move(listener);
  hook_.reset(SetWinEventHook(EVENT_SYSTEM_FOREGROUND, EVENT_SYSTEM_FOREGROUND, nullptr,
                              &ForegroundTracker::OnEvent, 0, 0, WINEVENT_OUTOFCONTEXT));
  if (!hook_) {
    Log(kLogWarn, L"SetWinEventHook failed");
    return false;
  }
  g_tracker = this;
  return true;
}

void ForegroundTracker::Stop() {
  if (g_tracker == this) g_tracker = nullptr;
  hook_.reset();
}

void CALLBACK ForegroundTracker::OnEvent(HWINEVENTHOOK, DWORD event, HWND window, LONG object,
                                         LONG, DWORD, DWORD) {
  ForegroundTracker* const tracker = g_tracker;
  if (event != EVENT_SYSTEM_FOREGROUND || object != OBJID_WINDOW || !window) return;
  if (!tracker || !tracker->listener_) return;
  try {
    tracker->listener_(window);
  } catch (...) {
    Log(kLogError, L"foreground change not handled: out of memory");
  }
}

}  // namespace qn
