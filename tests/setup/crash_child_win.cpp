// Crashes on purpose with the crash reporter installed first, as the product's entry point
// does. Usage: hintwick_crash_child LOG_PATH HOW, HOW being one of the ways below (the log
// goes to LOG_PATH, since the data directory may be the very thing that cannot be written).
// A step before the box logs whether the box is up yet.
#include <windows.h>

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <string_view>

#include "core/log.h"
#include "setup/crash_reporter_win.h"

// Called through a pointer the compiler cannot see through, while only the base's table is
// in place. Outside the unnamed namespace, so that the compiler cannot take Derived for the
// only class there is and call its function directly.
struct Base;
Base* volatile g_constructing = nullptr;
struct Base {
  Base() {
    g_constructing = this;
    g_constructing->Pure();
  }
  virtual ~Base() = default;
  virtual void Pure() = 0;
};
struct Derived : Base {
  void Pure() override {}
};

namespace {

// An address the compiler cannot prove null, so the write stays a real access violation
// instead of becoming a trap instruction.
volatile std::uintptr_t unmapped_address = 8;
volatile bool keep_going = true;

int Deeper(int depth) {
  volatile char frame[4096] = {};
  frame[0] = static_cast<char>(depth);
  return keep_going ? Deeper(depth + 1) + frame[0] : 0;
}

void StepBeforeBox() noexcept {
  const bool box_up = FindWindowW(L"#32770", L"Hintwick") != nullptr;
  qn::Log(qn::kLogInfo, L"step before the box (box up: %ls)", box_up ? L"yes" : L"no");
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  qn::CrashReporter::Install();
  qn::CrashReporter::AddStepBeforeBox(&StepBeforeBox);
  if (argc > 1) qn::OpenLogAt(argv[1]);
  const std::wstring_view how = argc > 2 ? argv[2] : L"access";
  if (how == L"overflow") return Deeper(0);
  if (how == L"abort") std::abort();
  if (how == L"terminate") std::terminate();
  if (how == L"purecall") Derived();
  *reinterpret_cast<volatile int*>(unmapped_address) = argc;
  return 0;
}
