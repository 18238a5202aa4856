#pragma once
#include <string>

#include "setup/installer_rules.h"

namespace qn {

inline constexpr wchar_t kSingleInstanceMutexName[] = L"Local\\HintwickSingleInstance";
inline constexpr wchar_t kMessageWindowClass[] = L"HintwickMessageWindow";

// Takes the process-lifetime mutex; false when another instance holds it (or it could
// not be made, which is treated the same way).
bool TakeSingleInstance();

// Tells the running instance that the player started us again. Posts nothing while that
// instance is still starting and has no message window yet.
void NotifyRunningInstance();

#ifdef _WIN32
// Asks the running copy of the program, if there is one, to end, and waits for it at most
// `patience_ms`: an install or uninstall replaces or removes its file.
RunningCopy EndRunningCopy(unsigned long patience_ms);

// Lets go of the mutex before the new build of an update starts, which must find itself the
// first instance.
void ReleaseSingleInstance();
#endif

}  // namespace qn
