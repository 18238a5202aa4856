#include "core/log.h"

namespace qn {

const wchar_t* LogLevelName(uint32_t level) {
  static constexpr const wchar_t* kNames[] = {L"DEBUG", L"INFO ", L"WARN ", L"ERROR"};
  return level < std::size(kNames) ? kNames[level] : L"?????";
}

}  // namespace qn
