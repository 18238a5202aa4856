#include <windows.h>

#include <utility>

#include "app/messages.h"
#include "app/single_instance.h"
#include "core/failure_log.h"
#include "core/handles.h"
#include "core/log.h"

namespace qn {
namespace {

// Held for the life of the process and never closed: the system releases it at exit, and
// a handle closed early would let a third start slip in.
HANDLE g_single_instance_mutex = nullptr;

HWND RunningMessageWindow() { return FindWindowExW(HWND_MESSAGE, nullptr, kMessageWindowClass, nullptr); }

}  // namespace

bool TakeSingleInstance() {
  g_single_instance_mutex = CreateMutexW(nullptr, TRUE, kSingleInstanceMutexName);
  return g_single_instance_mutex && GetLastError() != ERROR_ALREADY_EXISTS;
}

void NotifyRunningInstance() {
  if (HWND window = RunningMessageWindow()) PostMessageW(window, kMsgAlreadyRunning, 0, 0);
}

// The window, not the mutex, finds the copy: only a copy that has a window can be asked, and
// one still starting has the mutex before it.
RunningCopy EndRunningCopy(unsigned long patience_ms) {
  const HWND window = RunningMessageWindow();
  if (!window) return RunningCopy::kNone;
  DWORD id = 0;
  GetWindowThreadProcessId(window, &id);
  const UniqueKernelHandle process(OpenProcess(SYNCHRONIZE, FALSE, id));
  if (!process) LogLastError(L"OpenProcess", kLogWarn);
  if (!process || !PostMessageW(window, kMsgEndForSetup, 0, 0)) return RunningCopy::kStillRunning;
  if (WaitForSingleObject(process.get(), patience_ms) != WAIT_OBJECT_0) {
    Log(kLogWarn, L"the running copy (process %lu) did not end within %lu ms", id, patience_ms);
    return RunningCopy::kStillRunning;
  }
  Log(kLogInfo, L"the running copy (process %lu) ended when asked", id);
  return RunningCopy::kEnded;
}

void ReleaseSingleInstance() {
  if (!g_single_instance_mutex) return;
  ReleaseMutex(g_single_instance_mutex);
  CloseHandle(std::exchange(g_single_instance_mutex, nullptr));
}

}  // namespace qn
