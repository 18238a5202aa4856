#include <windows.h>

#include <objbase.h>

#include "app/app.h"
#include "app/single_instance.h"
#include "core/handles.h"
#include "setup/crash_reporter_win.h"
#include "setup/installer.h"

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
  // Before anything that can fail, so that every crash leaves a dump and a note to the player.
  qn::CrashReporter::Install();
  // An install or uninstall switch is the whole run: no COM, no mutex, no application.
  if (int code = 0; qn::Installer::HandleCommandLine(&code)) return code;
  const qn::ComApartment com(COINIT_MULTITHREADED);
  if (!com) {
    // Nothing can work without COM; a non-continuable exception carrying the HRESULT takes
    // the crash path, which records it, instead of limping on.
    RaiseException(static_cast<DWORD>(com.Result()), EXCEPTION_NONCONTINUABLE, 0, nullptr);
  }
  if (!qn::TakeSingleInstance()) {
    qn::NotifyRunningInstance();
    return 0;
  }
  qn::App app(instance);
  const bool running = app.Init();
  const int exit_code = running ? app.Run() : 1;
  app.Shutdown();
  return exit_code;
}
