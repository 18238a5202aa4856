#pragma once
#include <cstdint>

namespace qn {

// Numbers the session's chat turns from 1; 0 is a question that was never sent.
using ChatTurnId = uint64_t;

}  // namespace qn
