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

}  // namespace

int wmain(int argc, wchar_t** argv) {
  qn::CrashReporter::Install();
  if (argc > 1) qn::OpenLogAt(argv[1]);
  *reinterpret_cast<volatile int*>(unmapped_address) = argc;
  return 0;
}
