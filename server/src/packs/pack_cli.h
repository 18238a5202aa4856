#pragma once
// The pack command of hintwick-server, for authors and operators:
//   pack check FILE...                  every error of every file, as FILE:LINE: message
//   pack import FILE... [--database URL] the same check, then each pack into the store
// Nothing is imported unless every file is free of errors.
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "store/store.h"

namespace hintwick {

using StoreOpener = std::function<StoreResult<std::unique_ptr<Store>>()>;

// `args` are the words after "pack". An import without --database goes to the store that
// `configured_store` opens (the service's own, for the operator); without either it is refused.
// Gives the exit status: 0 done, 1 a pack has errors or the store failed, 2 the command was not
// understood.
int RunPackCommand(const std::vector<std::string>& args, std::ostream& out, std::ostream& err,
                   const StoreOpener& configured_store = {});

}  // namespace hintwick
