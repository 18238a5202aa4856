// The hand-over from the build that applied an update to the one it put in place, and the
// way back when the new one does not start.
#include <windows.h>

#include <string>

#include "core/failure_log.h"
#include "core/handles.h"
#include "core/log.h"
#include "setup/updater.h"

namespace qn {
namespace {

// One name per process, so that two hand-overs never answer each other.
std::wstring StartedEventName(DWORD process_id) {
  return L"Local\\HintwickStarted-" + std::to_wstring(process_id);
}

// Without the shell: it would show a box of its own for a file that is no program.
bool Start(const std::wstring& exe, DWORD flags, PROCESS_INFORMATION& started) {
  std::wstring command = L"\"" + exe + L"\"";
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  return CreateProcessW(exe.c_str(), command.data(), nullptr, nullptr, FALSE, flags, nullptr,
                        nullptr, &startup, &started) ||
         LogLastError(L"CreateProcessW", kLogError);
}

// Started suspended: the event exists before the new build can look for it, so that a build
// which starts and ends at once is never taken for one that failed.
bool StartAndWait(const std::wstring& exe, std::chrono::milliseconds patience) {
  PROCESS_INFORMATION started{};
  if (!Start(exe, CREATE_SUSPENDED, started)) return false;
  const UniqueKernelHandle process(started.hProcess), thread(started.hThread);
  const UniqueKernelHandle event(
      CreateEventW(nullptr, TRUE, FALSE, StartedEventName(started.dwProcessId).c_str()));
  if (!event) LogLastError(L"CreateEventW", kLogWarn);
  ResumeThread(thread.get());
  if (!event) return true;  // nothing to wait on: the new build is trusted as before
  const HANDLE either[] = {event.get(), process.get()};
  const DWORD waited = WaitForMultipleObjects(2, either, FALSE, static_cast<DWORD>(patience.count()));
  // Still starting after all that time (a box waiting on the player, perhaps): it is left be.
  return waited != WAIT_OBJECT_0 + 1;
}

}  // namespace

void Updater::ConfirmStarted() {
  // Kept for the life of the process: closed, the event could be gone before the previous
  // build opens it.
  static const UniqueKernelHandle event(
      CreateEventW(nullptr, TRUE, FALSE, StartedEventName(GetCurrentProcessId()).c_str()));
  if (event) SetEvent(event.get());
}

bool Updater::HandOver(std::chrono::milliseconds patience) const {
  const std::wstring exe = ExePath();
  if (exe.empty()) return false;
  if (StartAndWait(exe, patience)) return true;
  Log(kLogError, L"the new build did not start; putting the previous version back");
  // This process's own image is the ".old" file: a running image may be renamed.
  if (!MoveFileExW((exe + L".old").c_str(), exe.c_str(),
                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    LogLastError(L"MoveFileExW", kLogError);
    return false;
  }
  PROCESS_INFORMATION restarted{};
  if (Start(exe, 0, restarted)) {
    const UniqueKernelHandle process(restarted.hProcess), thread(restarted.hThread);
  }
  return false;
}

}  // namespace qn
