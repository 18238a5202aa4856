#pragma once
// Replaces the system's crash dialog and the runtime's abort message with a report of our
// own: a minidump in the data directory, one log line and a message box to the player.
#include <windows.h>

namespace qn {

class CrashReporter {
 public:
  // First thing at start-up, so that nothing can fail before it is in place.
  static void Install();
  // The top-level exception filter. Always lets the process end.
  static LONG WINAPI Filter(EXCEPTION_POINTERS* info) noexcept;
};

}  // namespace qn
