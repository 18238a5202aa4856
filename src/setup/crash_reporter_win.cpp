#include "setup/crash_reporter_win.h"

#include <dbghelp.h>
#include <stdlib.h>

#include "core/data_dir.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/module_proc.h"
#include "setup/crash_report.h"

namespace qn {
namespace {

// Stacks, thread state and the memory they point at, but no full memory: no game footage
// or captured frames end up in a file the player is asked to send.
constexpr auto kDumpType =
    static_cast<MINIDUMP_TYPE>(MiniDumpWithThreadInfo | MiniDumpWithIndirectlyReferencedMemory |
                               MiniDumpWithUnloadedModules | MiniDumpScanMemory);
static_assert(kDumpType == 0x1070);

// Looked up at install: loading a DLL from the filter would need the loader's lock, which
// the crashing thread may be holding.
decltype(&::MiniDumpWriteDump) g_write_dump = nullptr;

CrashTime LocalCrashTime() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

void WriteDump(const std::wstring& path, EXCEPTION_POINTERS* info) {
  const UniqueFileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
  // The log line and the box still name the path that was tried.
  if (!file || !g_write_dump) return;
  MINIDUMP_EXCEPTION_INFORMATION exception{GetCurrentThreadId(), info, FALSE};
  g_write_dump(GetCurrentProcess(), GetCurrentProcessId(), file.get(), kDumpType,
               info ? &exception : nullptr, nullptr, nullptr);
}

}  // namespace

void CrashReporter::Install() {
  g_write_dump = SystemProc<decltype(&::MiniDumpWriteDump)>(L"dbghelp.dll", "MiniDumpWriteDump");
  SetUnhandledExceptionFilter(&CrashReporter::Filter);
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  // abort() would otherwise show the runtime's own box and call the system's fault reporting.
#if defined(_MSC_VER) || defined(_UCRT)
  _set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
#else
  // The older msvcrt.dll has no such switch: its abort() shows its box unless the error mode
  // sends the message to standard error, which a windowed program does not have.
  _set_error_mode(_OUT_TO_STDERR);
#endif
}

// Runs on the crashing thread while the others go on; it takes no lock and makes no attempt
// to survive a second fault of its own.
LONG WINAPI CrashReporter::Filter(EXCEPTION_POINTERS* info) noexcept {
  const std::wstring path = CrashDumpPath(DataDir(), LocalCrashTime());
  WriteDump(path, info);
  const EXCEPTION_RECORD* record = info ? info->ExceptionRecord : nullptr;
  const DWORD code = record ? record->ExceptionCode : 0;
  const void* address = record ? record->ExceptionAddress : nullptr;
  // Deliberately the same line whether or not the dump could be written.
  Log(kLogError, L"CRASH: unhandled exception 0x%08lX at %p; dump written to %ls", code, address,
      path.c_str());
  MessageBoxW(nullptr, CrashMessage(path).c_str(), L"Hintwick", MB_ICONERROR);
  return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace qn
