#pragma once
// The operator's commands, run against the configured database instead of serving:
//   game add KEY[,KEY...] TITLE [--has-index]
//   user delete EMAIL
#include <string>
#include <vector>

#include "store/store.h"

namespace hintwick {

// The process's exit status: 0 done, 1 refused or failed, 2 not a command.
int RunAdmin(Store& store, const std::vector<std::string>& words);
std::string AdminUsage();

}  // namespace hintwick
