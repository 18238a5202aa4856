#include "core/failure_log.h"

#include <algorithm>

#include "core/os.h"

namespace qn {

bool CheckHr(HRESULT hr, const wchar_t* call, uint32_t level) {
  if (SUCCEEDED(hr)) return true;
  Log(level, L"%ls failed: %ls", call, ErrorText(static_cast<uint32_t>(hr)).c_str());
  return false;
}

bool LogLastError(const wchar_t* call, uint32_t level) {
  Log(level, L"%ls failed: %lu", call, GetLastError());
  return false;
}

bool RepeatedFailures::Check(HRESULT hr, const wchar_t* call, uint32_t level) {
  const auto known = std::find(failing_.begin(), failing_.end(), call);
  if (SUCCEEDED(hr)) {
    if (known != failing_.end()) failing_.erase(known);
    return true;
  }
  if (known == failing_.end()) {
    failing_.push_back(call);
    CheckHr(hr, call, level);
  }
  return false;
}

}  // namespace qn
