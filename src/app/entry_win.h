#pragma once
// The program's run after the crash filter and the installer's switches: COM, the single
// instance, the repair of an update cut short, the application, the previous build's removal
// once this one has started and, after an update, the hand-over.
#include <windows.h>

#include "app/app.h"

namespace qn {

// Returns the process's exit code.
int RunHintwick(HINSTANCE instance, StartChecks checks = {});

}  // namespace qn
