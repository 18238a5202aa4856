#include "app/entry_win.h"

#include <objbase.h>

#include <utility>

#include "app/single_instance.h"
#include "core/handles.h"
#include "setup/updater.h"

namespace qn {

int RunHintwick(HINSTANCE instance, StartChecks checks) {
  const ComApartment com(COINIT_MULTITHREADED);
  if (!com) {
    // Nothing can work without COM; a non-continuable exception carrying the HRESULT takes
    // the crash path, which records it, instead of limping on.
    RaiseException(static_cast<DWORD>(com.Result()), EXCEPTION_NONCONTINUABLE, 0, nullptr);
  }
  // Before the mutex: the previous instance may still be ending and holding the old file.
  Updater(checks.updater).RemoveLeftover();
  if (!TakeSingleInstance()) {
    NotifyRunningInstance();
    return 0;
  }
  App app(instance, std::move(checks));
  const bool running = app.Init();
  // A start cut short by an update is no failure.
  const int exit_code = running ? app.Run() : (app.HandOverTo() ? 0 : 1);
  app.Shutdown();
  if (app.HandOverTo()) HandOverInstance(*app.HandOverTo());
  return exit_code;
}

}  // namespace qn
