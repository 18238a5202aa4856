#pragma once
// Installs the running executable for the current user only (a folder under the local
// application data, a Start Menu shortcut, the uninstall entry and optionally the start-up
// entry, all under HKEY_CURRENT_USER) and removes it again. Driven by command-line switches
// before anything else of the program starts.
#include <functional>
#include <string>
#include <vector>

#include "setup/installer_rules.h"

namespace qn {

class Installer {
 public:
  // Reads the process command line. True when a switch was handled: the caller exits with
  // *exit_code and starts nothing else.
  static bool HandleCommandLine(int* exit_code);
  // The same for arguments already split, without the program's name.
  static bool HandleArguments(const std::vector<std::wstring>& arguments, int* exit_code);

  // Stops at the first failed step, without undoing the earlier ones; `error` is the
  // player's text. A missing shortcut does not fail the install.
  static bool Install(bool autostart, std::wstring& error);
  // The program file goes first and the uninstall entry last: a file that cannot be removed
  // stops the uninstall with everything else in place, so that it can be tried again from the
  // list of installed programs. Past that, single failures are gone past.
  static bool Uninstall(bool purge, std::wstring& error);

  // Where the program is, or would be, installed; empty when the folder is unknown.
  static std::wstring InstalledExecutablePath();

  static bool IsAutostartEnabled();
  static void SetAutostart(bool enabled);

  // How a running copy of the program is asked to end before a switch replaces or removes
  // its file; the entry point gives the application's way. Unset, none is taken to run.
  static void SetEndRunningCopy(std::function<RunningCopy()> end);

  // How the freshly installed program is started after an interactive install; tests put a
  // recorder here instead of starting a copy of themselves.
  static void SetLaunchForTesting(std::function<void(const std::wstring& exe)> launch);
};

}  // namespace qn
