#pragma once
// Replaces the system's crash dialog and the runtime's abort message with a report of our
// own: a minidump in the data directory, one log line and a message box to the player. An
// unhandled exception, abort(), std::terminate and a pure virtual call all end there.
#include <windows.h>

namespace qn {

class CrashReporter {
 public:
  // A step run before the box, on the reporting thread while the crashed one waits: it must
  // not wait on another thread of the process, which may be the crashed one.
  using Step = void (*)() noexcept;

  // First thing at start-up, so that nothing can fail before it is in place.
  static void Install();
  // At start-up, never at crash time; a step already added, and steps beyond the few kept,
  // are dropped.
  static void AddStepBeforeBox(Step step);
  // The top-level exception filter. Always lets the process end.
  static LONG WINAPI Filter(EXCEPTION_POINTERS* info) noexcept;
};

}  // namespace qn
