#pragma once
// The one way a failed platform call reaches the log: "<call> failed: <error>", at the level
// the caller gives (set-up failures are errors, recoverable and per-frame ones warnings).
#include <windows.h>

#include <cstdint>
#include <vector>

#include "core/log.h"

namespace qn {

// Returns whether the call succeeded; a failure is logged with the system's text for hr.
bool CheckHr(HRESULT hr, const wchar_t* call, uint32_t level);
// For calls that report through GetLastError: logs it as a number, then returns false.
bool LogLastError(const wchar_t* call, uint32_t level);

// For calls made every frame or every keystroke: the first failure of a call is logged and
// its repeats are not, until the call succeeds again. Calls are told apart by the address
// of their name, so pass string literals.
class RepeatedFailures {
 public:
  bool Check(HRESULT hr, const wchar_t* call, uint32_t level = kLogWarn);

 private:
  std::vector<const wchar_t*> failing_;
};

}  // namespace qn
