#include "setup/installer_rules.h"

#include <algorithm>
#include <utility>

namespace qn {

InstallerSwitches ParseInstallerSwitches(const std::vector<std::wstring>& arguments) {
  static constexpr std::pair<std::wstring_view, InstallerSwitches> kModes[] = {
      {L"--install", {InstallerMode::kInstall, false}},
      {L"--uninstall", {InstallerMode::kUninstall, false}},
      {L"--install-silent", {InstallerMode::kInstall, true}},
      {L"--uninstall-silent", {InstallerMode::kUninstall, true}},
  };
  InstallerSwitches result;
  for (const std::wstring& argument : arguments) {
    result.autostart = result.autostart || argument == L"--autostart";
    result.purge = result.purge || argument == L"--purge";
    if (result.mode != InstallerMode::kNone) continue;
    for (const auto& [name, mode] : kModes) {
      if (argument != name) continue;
      result.mode = mode.mode;
      result.silent = mode.silent;
    }
  }
  return result;
}

std::wstring InstallDirectory(const std::wstring& local_app_data) {
  return local_app_data + L"\\" + kInstallerName;
}

std::wstring InstalledExecutable(const std::wstring& install_dir) {
  return install_dir + L"\\" + kInstallerName + L".exe";
}

std::wstring ShortcutPath(const std::wstring& programs_folder) {
  return programs_folder + L"\\" + kInstallerName + L".lnk";
}

std::wstring AutostartCommand(const std::wstring& installed_exe) {
  return L"\"" + installed_exe + L"\"";
}

std::vector<RegistryValue> UninstallValues(const std::wstring& install_dir,
                                           const std::wstring& installed_exe) {
  // "DisplayVersion" stays at the first published version on purpose: the list of installed
  // programs shows the release line, and updates replace the file without an installer run.
  return {
      {L"DisplayName", false, kInstallerName, 0},
      {L"DisplayVersion", false, L"0.1.0", 0},
      {L"Publisher", false, kInstallerName, 0},
      {L"DisplayIcon", false, installed_exe, 0},
      {L"InstallLocation", false, install_dir, 0},
      {L"UninstallString", false, AutostartCommand(installed_exe) + L" --uninstall", 0},
      {L"NoModify", true, {}, 1},
      {L"NoRepair", true, {}, 1},
      {L"EstimatedSize", true, {}, 4096},
  };
}

std::vector<std::wstring> ProgramLeftovers(const std::wstring& installed_exe) {
  return {installed_exe + L".new", installed_exe + L".old"};
}

namespace {

bool MatchesPattern(std::wstring_view name, std::wstring_view pattern) {
  if (name.size() != pattern.size()) return false;
  for (size_t i = 0; i < name.size(); ++i) {
    const bool digit = name[i] >= L'0' && name[i] <= L'9';
    if (pattern[i] == L'#' ? !digit : name[i] != pattern[i]) return false;
  }
  return true;
}

// "<file>.tmp" or "<file>.<thread id>.tmp": what a save cut short by a crash or power cut
// leaves beside the file it was replacing.
bool IsLeftoverSaveOf(std::wstring_view name, std::wstring_view file) {
  if (!name.starts_with(file) || !name.ends_with(L".tmp")) return false;
  std::wstring_view middle = name.substr(file.size(), name.size() - file.size() - 4);
  if (middle.empty()) return true;
  if (middle.size() < 2 || middle[0] != L'.') return false;
  middle.remove_prefix(1);
  return std::all_of(middle.begin(), middle.end(), [](wchar_t c) { return c >= L'0' && c <= L'9'; });
}

}  // namespace

bool IsPlayerDataFile(std::wstring_view name) {
  static constexpr std::wstring_view kNamed[] = {L"config.json", L"token.bin", L"games.json",
                                                 L"hintwick.log"};
  for (const std::wstring_view file : kNamed) {
    if (name == file || IsLeftoverSaveOf(name, file)) return true;
  }
  // crash-YYYYMMDD-HHMMSS.dmp, and nothing looser: the folder may hold files we did not make.
  return MatchesPattern(name, L"crash-########-######.dmp");
}

std::wstring CleanupCommand(const std::wstring& moved_exe) {
  // /d skips the user's AutoRun commands; /f deletes a read-only copy too.
  return L"cmd.exe /d /c del /f /q \"" + moved_exe + L"\"";
}

}  // namespace qn
