#include "setup/crash_reporter_win.h"

#include <dbghelp.h>
#include <stdlib.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <iterator>

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
// How long a crashed thread waits for its dump. A reporting thread stuck on a lock the
// crash left taken must not keep a dead program on the screen for ever.
constexpr DWORD kDumpPatienceMs = 60000;
// Room on a crashed thread's stack for the filter, even after a stack overflow.
constexpr ULONG kStackGuaranteeBytes = 64 * 1024;
constexpr size_t kMaxSteps = 8;

// Everything the report needs is made at start-up: at crash time the heap, the loader and
// any of our own locks may be held by the crashed thread. The events live as long as the
// process and are never closed.
struct ReporterState {
  FixedText<kCrashDumpPathLimit> data_dir;
  HANDLE start = nullptr;   // a crash is waiting to be reported
  HANDLE dumped = nullptr;  // the dump is written (or could not be)
  HANDLE done = nullptr;    // the player closed the box
  DWORD reporting_thread = 0;
  std::atomic<bool> claimed{false};
  EXCEPTION_POINTERS* info = nullptr;
  DWORD crashed_thread = 0;
  std::atomic<size_t> step_count{0};
  CrashReporter::Step steps[kMaxSteps] = {};
};
ReporterState g_state;

CrashTime LocalCrashTime() {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond};
}

void WriteDump(const wchar_t* path, EXCEPTION_POINTERS* info, DWORD thread) {
  CreateDirectoryW(g_state.data_dir.c_str(), nullptr);  // usually there already
  const UniqueFileHandle file(CreateFileW(path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file || !g_write_dump) return;  // the log line and the box still name the path tried
  MINIDUMP_EXCEPTION_INFORMATION exception{thread, info, FALSE};
  g_write_dump(GetCurrentProcess(), GetCurrentProcessId(), file.get(), kDumpType,
               info ? &exception : nullptr, nullptr, nullptr);
}

// Deliberately the same line whether or not the dump could be written.
void LogCrash(const wchar_t* path, const EXCEPTION_POINTERS* info) {
  const EXCEPTION_RECORD* record = info ? info->ExceptionRecord : nullptr;
  const DWORD code = record ? record->ExceptionCode : 0;
  wchar_t line[kCrashDumpPathLimit + 128];
  _snwprintf_s(line, std::size(line), _TRUNCATE, L"CRASH: %ls 0x%08lX at %p; dump written to %ls",
               CrashCause(code), code, record ? record->ExceptionAddress : nullptr, path);
  LogWithoutWaiting(kLogError, line);
}

// The dump first: it is what a developer needs, and the later steps are the likelier to
// hang. The player's game is let go of before the box, which must be seen above it.
void MakeReport(EXCEPTION_POINTERS* info, DWORD crashed_thread) {
  const auto path = CrashDumpPath(g_state.data_dir.view(), LocalCrashTime());
  WriteDump(path.c_str(), info, crashed_thread);
  if (g_state.dumped) SetEvent(g_state.dumped);
  LogCrash(path.c_str(), info);
  const size_t steps = g_state.step_count.load();
  for (size_t i = 0; i < steps && i < kMaxSteps; ++i) g_state.steps[i]();
  MessageBoxW(nullptr, CrashMessage(path.view()).c_str(), L"Hintwick",
              MB_ICONERROR | MB_TOPMOST | MB_SETFOREGROUND);
}

// A thread of its own, with its own stack: a dump written by the crashed thread itself
// lacks that thread's true state, and after a stack overflow it has no room to work in.
DWORD WINAPI ReportingThread(void*) noexcept {
  WaitForSingleObject(g_state.start, INFINITE);
  MakeReport(g_state.info, g_state.crashed_thread);
  SetEvent(g_state.done);
  return 0;
}

// On the crashed thread: as little as possible, so that it fits in what is left of a stack.
void ReportAndWait(EXCEPTION_POINTERS* info) noexcept {
  if (g_state.claimed.exchange(true)) {
    // The reporting thread itself failed: let the process end now.
    if (GetCurrentThreadId() == g_state.reporting_thread) return;
    Sleep(INFINITE);  // one report is enough; the first crash ends the process
  }
  if (!g_state.reporting_thread) {  // no thread could be made at start-up
    MakeReport(info, GetCurrentThreadId());
    return;
  }
  g_state.info = info;
  g_state.crashed_thread = GetCurrentThreadId();
  SetEvent(g_state.start);
  if (WaitForSingleObject(g_state.dumped, kDumpPatienceMs) == WAIT_OBJECT_0) {
    WaitForSingleObject(g_state.done, INFINITE);
  }
}

// For the endings that raise no exception: the same report, with this thread's state in
// place of an exception's. Ends without running anything of the process's exit, which
// could wait on a lock the crash holds.
[[noreturn]] void ReportAndEnd(DWORD code) noexcept {
  CONTEXT context{};
  RtlCaptureContext(&context);
  EXCEPTION_RECORD record{};
  record.ExceptionCode = code;
  record.ExceptionFlags = EXCEPTION_NONCONTINUABLE;
  record.ExceptionAddress = reinterpret_cast<void*>(context.Rip);  // x64, as the program
  EXCEPTION_POINTERS pointers{&record, &context};
  ReportAndWait(&pointers);
  TerminateProcess(GetCurrentProcess(), code);
  std::_Exit(static_cast<int>(code));
}

void OnAbortSignal(int) { ReportAndEnd(kAbortCrashCode); }
[[noreturn]] void OnTerminate() noexcept { ReportAndEnd(kTerminateCrashCode); }
#if defined(_MSC_VER) || defined(_UCRT)
void __cdecl OnPureCall() { ReportAndEnd(kPureCallCrashCode); }
#endif

bool StartReportingThread() {
  g_state.start = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  g_state.dumped = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  g_state.done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (!g_state.start || !g_state.dumped || !g_state.done) return false;
  DWORD id = 0;
  const UniqueKernelHandle thread(CreateThread(nullptr, 0, &ReportingThread, nullptr, 0, &id));
  if (!thread) return false;
  g_state.reporting_thread = id;
  return true;
}

}  // namespace
}  // namespace qn

#if !defined(_MSC_VER)
// What GCC's and Clang's code calls for a pure virtual call. The C++ runtime's own is only
// referenced weakly on this target and so never linked in: without this one, the call would
// jump to address zero and be reported as a stray access.
extern "C" [[noreturn]] void __cxa_pure_virtual();
extern "C" void __cxa_pure_virtual() { qn::ReportAndEnd(qn::kPureCallCrashCode); }
#endif

namespace qn {

void CrashReporter::Install() {
  g_write_dump = SystemProc<decltype(&::MiniDumpWriteDump)>(L"dbghelp.dll", "MiniDumpWriteDump");
  if (g_state.start) return;
  g_state.data_dir += DataDirPath();
  if (!StartReportingThread()) Log(kLogWarn, L"CreateThread failed: %lu", GetLastError());
  SetUnhandledExceptionFilter(&CrashReporter::Filter);
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  ULONG guarantee = kStackGuaranteeBytes;
  SetThreadStackGuarantee(&guarantee);
  std::signal(SIGABRT, &OnAbortSignal);
  std::set_terminate(&OnTerminate);
  // abort() would otherwise show the runtime's own box and call the system's fault reporting.
#if defined(_MSC_VER) || defined(_UCRT)
  _set_abort_behavior(0, _WRITE_ABORT_MSG | _CALL_REPORTFAULT);
  _set_purecall_handler(&OnPureCall);
#else
  // The older msvcrt.dll has no such switch: its abort() shows its box unless the error mode
  // sends the message to standard error, which a windowed program does not have.
  _set_error_mode(_OUT_TO_STDERR);
#endif
}

void CrashReporter::AddStepBeforeBox(Step step) {
  const size_t index = g_state.step_count.load();
  if (index >= kMaxSteps) return;
  for (size_t i = 0; i < index; ++i) {
    if (g_state.steps[i] == step) return;  // each application object of a run adds its own
  }
  g_state.steps[index] = step;
  g_state.step_count.store(index + 1);
}

LONG WINAPI CrashReporter::Filter(EXCEPTION_POINTERS* info) noexcept {
  ReportAndWait(info);
  return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace qn
