#include <windows.h>

#include <shellapi.h>

#include <string>
#include <utility>

#include "core/handles.h"
#include "core/log.h"
#include "core/os.h"
#include "setup/installer.h"
#include "setup/installer_rules.h"

namespace qn {
namespace {

std::function<void(const std::wstring&)>& LaunchHook() {
  static std::function<void(const std::wstring&)> hook;
  return hook;
}

void Launch(const std::wstring& exe) {
  if (LaunchHook()) {
    LaunchHook()(exe);
    return;
  }
  StartProgram(exe, kLogWarn);
}

std::function<RunningCopy()>& EndRunningCopyHook() {
  static std::function<RunningCopy()> hook;
  return hook;
}

RunningCopy EndRunningCopy() {
  return EndRunningCopyHook() ? EndRunningCopyHook()() : RunningCopy::kNone;
}

const wchar_t* Outcome(bool succeeded) { return succeeded ? L"succeeded" : L"FAILED"; }

// A copy that was running is started again once its file is replaced: an upgrade leaves the
// program running as it found it.
int SilentInstall(bool autostart) {
  OpenLog();
  const RunningCopy copy = EndRunningCopy();
  std::wstring error;
  const bool installed = copy != RunningCopy::kStillRunning && Installer::Install(autostart, error);
  Log(kLogInfo, L"silent install %ls (autostart %ls)", Outcome(installed),
      autostart ? L"on" : L"off");
  if (installed && copy == RunningCopy::kEnded) Launch(Installer::InstalledExecutablePath());
  return installed ? 0 : 1;
}

int SilentUninstall(bool purge) {
  OpenLog();
  std::wstring error;
  const bool removed =
      EndRunningCopy() != RunningCopy::kStillRunning && Installer::Uninstall(purge, error);
  Log(kLogInfo, L"silent uninstall %ls (data %ls)", Outcome(removed), purge ? L"removed" : L"kept");
  return removed ? 0 : 1;
}

// Yes, No or nothing: Cancel, and a box that could not be shown, change nothing.
int Ask(const wchar_t* text, const wchar_t* caption) {
  return MessageBoxW(nullptr, text, caption, MB_YESNOCANCEL | MB_ICONQUESTION);
}

int ShowError(const std::wstring& error) {
  MessageBoxW(nullptr, error.c_str(), kMessageCaption, MB_ICONERROR);
  return 1;
}

// The log opens only once the player has agreed: opening it makes the data folder, and a
// cancelled install leaves nothing behind.
int InteractiveInstall() {
  const int answer = Ask(kInstallQuestion, kInstallCaption);
  if (answer != IDYES && answer != IDNO) return 0;
  OpenLog();
  if (EndRunningCopy() == RunningCopy::kStillRunning) return ShowError(kErrorStillRunning);
  std::wstring error;
  if (!Installer::Install(answer == IDYES, error)) return ShowError(error);
  MessageBoxW(nullptr, kInstalledText, kMessageCaption, MB_ICONINFORMATION);
  Launch(Installer::InstalledExecutablePath());
  return 0;
}

// A failed removal says so rather than claiming the program is gone.
int InteractiveUninstall() {
  const int answer = Ask(kUninstallQuestion, kUninstallCaption);
  if (answer != IDYES && answer != IDNO) return 0;
  OpenLog();
  if (EndRunningCopy() == RunningCopy::kStillRunning) return ShowError(kErrorStillRunning);
  std::wstring error;
  if (!Installer::Uninstall(answer == IDYES, error)) return ShowError(error);
  MessageBoxW(nullptr, kRemovedText, kMessageCaption, MB_ICONINFORMATION);
  return 0;
}

int Run(const InstallerSwitches& switches) {
  if (switches.mode == InstallerMode::kInstall) {
    return switches.silent ? SilentInstall(switches.autostart) : InteractiveInstall();
  }
  return switches.silent ? SilentUninstall(switches.purge) : InteractiveUninstall();
}

}  // namespace

bool Installer::HandleCommandLine(int* exit_code) {
  int count = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &count);
  const UniqueLocalMemory owner(reinterpret_cast<HLOCAL>(argv));
  if (!argv || count < 1) return false;
  return HandleArguments(std::vector<std::wstring>(argv + 1, argv + count), exit_code);
}

bool Installer::HandleArguments(const std::vector<std::wstring>& arguments, int* exit_code) {
  const InstallerSwitches switches = ParseInstallerSwitches(arguments);
  if (switches.mode == InstallerMode::kNone) return false;
  *exit_code = Run(switches);
  return true;
}

void Installer::SetEndRunningCopy(std::function<RunningCopy()> end) {
  EndRunningCopyHook() = std::move(end);
}

void Installer::SetLaunchForTesting(std::function<void(const std::wstring& exe)> launch) {
  LaunchHook() = std::move(launch);
}

}  // namespace qn
