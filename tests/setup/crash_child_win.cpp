// Crashes on purpose with the crash reporter installed first, as the product's entry point
// does. Usage: hintwick_crash_child LOG_PATH (the log goes there, since the data directory
// may be the very thing that cannot be written).
#include <windows.h>

#include <cstdint>

#include "core/log.h"
#include "setup/crash_reporter_win.h"

namespace {

// An address the compiler cannot prove null, so the write stays a real access violation
// instead of becoming a trap instruction.
volatile std::uintptr_t unmapped_address = 8;

void WriteToUnmappedMemory(int value) { *reinterpret_cast<volatile int*>(unmapped_address) = value; }

// Called through a volatile pointer so that the crashing function keeps a frame of its own,
// which the dump's stack must name.
void (*volatile crash)(int) = &WriteToUnmappedMemory;

}  // namespace

int wmain(int argc, wchar_t** argv) {
  qn::CrashReporter::Install();
  if (argc > 1) qn::OpenLogAt(argv[1]);
  qn::Log(qn::kLogInfo, L"about to crash");
  crash(argc);
  return 0;
}
