#include <windows.h>

#include <utility>

#include "app/messages.h"
#include "app/single_instance.h"
#include "core/log.h"
#include "core/os.h"

namespace qn {
namespace {

// Held for the life of the process and never closed: the system releases it at exit, and
// a handle closed early would let a third start slip in.
HANDLE g_single_instance_mutex = nullptr;

}  // namespace

bool TakeSingleInstance() {
  g_single_instance_mutex = CreateMutexW(nullptr, TRUE, kSingleInstanceMutexName);
  return g_single_instance_mutex && GetLastError() != ERROR_ALREADY_EXISTS;
}

void NotifyRunningInstance() {
  if (HWND window = FindWindowExW(HWND_MESSAGE, nullptr, kMessageWindowClass, nullptr)) {
    PostMessageW(window, kMsgAlreadyRunning, 0, 0);
  }
}

void HandOverInstance(const std::wstring& path) {
  if (g_single_instance_mutex) {
    ReleaseMutex(g_single_instance_mutex);
    CloseHandle(std::exchange(g_single_instance_mutex, nullptr));
  }
  StartProgram(path, kLogError);
}

}  // namespace qn
