#include <windows.h>

#include "app/entry_win.h"
#include "core/module_proc.h"
#include "setup/crash_reporter_win.h"
#include "setup/installer.h"

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
  // Before any DLL is loaded by name: the installer runs from Downloads, where anything
  // downloaded beside it would otherwise be found first.
  qn::SearchSystem32Only();
  // Before anything that can fail, so that every crash leaves a dump and a note to the player.
  qn::CrashReporter::Install();
  // An install or uninstall switch is the whole run: no COM, no mutex, no application.
  if (int code = 0; qn::Installer::HandleCommandLine(&code)) return code;
  return qn::RunHintwick(instance);
}
