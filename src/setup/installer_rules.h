#pragma once
// The installer's decisions and texts without platform code: which switches a command line
// holds, where things go, what the uninstall entry says and which files count as the player's
// data. Built natively too.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qn {

enum class InstallerMode { kNone, kInstall, kUninstall };

// What asking a running copy of the program to end came to.
enum class RunningCopy { kNone, kEnded, kStillRunning };

struct InstallerSwitches {
  InstallerMode mode = InstallerMode::kNone;
  bool silent = false;
  bool autostart = false;  // only read by a silent install
  bool purge = false;      // only read by a silent uninstall

  bool operator==(const InstallerSwitches&) const = default;
};

// The arguments after the program's name. Whole, case-sensitive matches; anything else is
// ignored. The first install or uninstall switch decides the mode; later ones are ignored.
InstallerSwitches ParseInstallerSwitches(const std::vector<std::wstring>& arguments);

inline constexpr wchar_t kInstallerName[] = L"Hintwick";
inline constexpr wchar_t kRunKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Run";
inline constexpr wchar_t kUninstallKey[] =
    L"Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\Hintwick";
// Holds the command that deletes a program file that was still running at uninstall.
inline constexpr wchar_t kRunOnceKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\RunOnce";
inline constexpr wchar_t kCleanupValue[] = L"Hintwick cleanup";

std::wstring InstallDirectory(const std::wstring& local_app_data);
std::wstring InstalledExecutable(const std::wstring& install_dir);
std::wstring ShortcutPath(const std::wstring& programs_folder);
// Quoted, so that a profile path with blanks still starts the program.
std::wstring AutostartCommand(const std::wstring& installed_exe);

struct RegistryValue {
  std::wstring name;
  bool is_number = false;
  std::wstring text;
  uint32_t number = 0;

  bool operator==(const RegistryValue&) const = default;
};
// Every value of the uninstall entry, in the order they are written.
std::vector<RegistryValue> UninstallValues(const std::wstring& install_dir,
                                           const std::wstring& installed_exe);

// Update leftovers beside the installed program: they go with the program, not the data.
std::vector<std::wstring> ProgramLeftovers(const std::wstring& installed_exe);
// Whether a file in the data directory is the player's data, which only a purge deletes:
// settings, the stored sign-in, the game list, the log, crash dumps and the temporary files
// of saves that never finished.
bool IsPlayerDataFile(std::wstring_view name);

// What the moved-aside program file is deleted by at the next sign-in.
std::wstring CleanupCommand(const std::wstring& moved_exe);

inline constexpr wchar_t kShortcutDescription[] =
    L"Ask about the game you are playing, without spoilers";
inline constexpr wchar_t kMessageCaption[] = L"Hintwick";
inline constexpr wchar_t kInstallQuestion[] =
    L"Install Hintwick for your user account?\n\nIt goes in your AppData folder, needs no "
    L"administrator rights, and adds a Start Menu entry.\n\nStart it automatically when you "
    L"sign in?";
inline constexpr wchar_t kInstallCaption[] = L"Install Hintwick";
inline constexpr wchar_t kInstalledText[] =
    L"Installed.\n\nPress Shift+Alt+X while a game is in focus. Sign in from the tray icon first.";
inline constexpr wchar_t kUninstallQuestion[] =
    L"Remove Hintwick?\n\nYes also deletes your settings and signs you out.\nNo removes the "
    L"program but keeps them.";
inline constexpr wchar_t kUninstallCaption[] = L"Uninstall Hintwick";
inline constexpr wchar_t kRemovedText[] = L"Hintwick has been removed.";

inline constexpr wchar_t kErrorNoFolder[] = L"Could not work out where to install to.";
inline constexpr wchar_t kErrorCreateDir[] = L"Could not create the install directory.";
inline constexpr wchar_t kErrorCopy[] = L"Could not copy the program into place.";
inline constexpr wchar_t kErrorRegister[] =
    L"Could not add Hintwick to the list of installed programs.";
inline constexpr wchar_t kErrorRemoveProgram[] =
    L"Could not remove the program file. Close Hintwick and try again.";
inline constexpr wchar_t kErrorStillRunning[] =
    L"Hintwick is still running and did not close when asked. Close it from its tray icon and "
    L"try again.";
inline constexpr wchar_t kErrorRemoveEntry[] =
    L"Could not remove Hintwick from the list of installed programs.";

}  // namespace qn
