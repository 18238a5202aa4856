#include <windows.h>

#include <shlobj.h>
#include <shobjidl.h>

#include <iterator>
#include <string>

#include "core/failure_log.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/os.h"
#include "core/settings.h"
#include "net/catalogue.h"
#include "net/http_client.h"
#include "net/token_store.h"
#include "setup/installer.h"
#include "setup/installer_rules.h"

namespace qn {
namespace {

struct InstallPaths {
  std::wstring local_app_data;
  std::wstring dir;
  std::wstring exe;
};

std::wstring KnownFolder(REFKNOWNFOLDERID id, DWORD flags) {
  UniqueCoTaskString path;
  const HRESULT hr = SHGetKnownFolderPath(id, flags, nullptr, path.put());
  if (!CheckHr(hr, L"SHGetKnownFolderPath", kLogWarn) || !path) return {};
  return path.get();
}

bool FindPaths(InstallPaths& paths) {
  paths.local_app_data = KnownFolder(FOLDERID_LocalAppData, 0);
  if (paths.local_app_data.empty()) return false;
  paths.dir = InstallDirectory(paths.local_app_data);
  paths.exe = InstalledExecutable(paths.dir);
  return true;
}

bool SamePath(const std::wstring& a, const std::wstring& b) {
  return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_EQUAL;
}

bool IsDirectory(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY);
}

bool CreateInstallDirectory(const std::wstring& dir) {
  if (CreateDirectoryW(dir.c_str(), nullptr) || IsDirectory(dir)) return true;
  return LogLastError(L"CreateDirectoryW", kLogError);
}

// Installing from the installed file itself (a repair) has nothing to copy, and copying a
// running image over itself would fail on the sharing check.
bool CopyProgram(const std::wstring& installed) {
  const std::wstring running = RunningExecutablePath();
  if (running.empty()) return LogLastError(L"GetModuleFileNameW", kLogError);
  if (SamePath(running, installed)) return true;
  return CopyFileW(running.c_str(), installed.c_str(), FALSE) ||
         LogLastError(L"CopyFileW", kLogError);
}

// Called before COM is set up for the process, and also from threads that already have it
// in either model: a thread already in the multithreaded apartment can make the object too.
bool CreateShortcut(const std::wstring& installed, const std::wstring& dir) {
  const ComApartment com(COINIT_APARTMENTTHREADED);
  if (!com && com.Result() != RPC_E_CHANGED_MODE) {
    return CheckHr(com.Result(), L"CoInitializeEx", kLogWarn);
  }
  // Made when missing: a fresh profile may not have the folder until something puts a
  // shortcut there.
  const std::wstring programs = KnownFolder(FOLDERID_Programs, KF_FLAG_CREATE);
  if (programs.empty()) return false;
  ComPtr<IShellLinkW> link;
  if (!CheckHr(CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(link.put())),
               L"CoCreateInstance", kLogWarn) ||
      !CheckHr(link->SetPath(installed.c_str()), L"IShellLinkW::SetPath", kLogWarn) ||
      !CheckHr(link->SetWorkingDirectory(dir.c_str()), L"IShellLinkW::SetWorkingDirectory",
               kLogWarn) ||
      !CheckHr(link->SetDescription(kShortcutDescription), L"IShellLinkW::SetDescription",
               kLogWarn)) {
    return false;
  }
  const ComPtr<IPersistFile> file = link.As<IPersistFile>();
  if (!file) return false;
  return CheckHr(file->Save(ShortcutPath(programs).c_str(), TRUE), L"IPersistFile::Save", kLogWarn);
}

bool Succeeded(LSTATUS status, const wchar_t* call, uint32_t level) {
  return CheckHr(HRESULT_FROM_WIN32(static_cast<DWORD>(status)), call, level);
}

bool SetValue(HKEY key, const RegistryValue& value) {
  const DWORD number = value.number;
  const auto* data = value.is_number ? reinterpret_cast<const BYTE*>(&number)
                                     : reinterpret_cast<const BYTE*>(value.text.c_str());
  const DWORD size = value.is_number
                         ? sizeof(number)
                         : static_cast<DWORD>((value.text.size() + 1) * sizeof(wchar_t));
  return Succeeded(
      RegSetValueExW(key, value.name.c_str(), 0, value.is_number ? REG_DWORD : REG_SZ, data, size),
      L"RegSetValueExW", kLogError);
}

bool WriteValues(const wchar_t* key_path, const std::vector<RegistryValue>& values) {
  UniqueHkey key;
  if (!Succeeded(RegCreateKeyExW(HKEY_CURRENT_USER, key_path, 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                                 key.put(), nullptr),
                 L"RegCreateKeyExW", kLogError)) {
    return false;
  }
  for (const RegistryValue& value : values) {
    if (!SetValue(key.get(), value)) return false;
  }
  return true;
}

// A value or key that is not there counts as deleted.
bool Gone(LSTATUS status, const wchar_t* call) {
  return status == ERROR_FILE_NOT_FOUND || Succeeded(status, call, kLogWarn);
}

bool DeleteValue(const wchar_t* key_path, const wchar_t* name) {
  UniqueHkey key;
  const LSTATUS opened = RegOpenKeyExW(HKEY_CURRENT_USER, key_path, 0, KEY_SET_VALUE, key.put());
  if (opened != ERROR_SUCCESS) return Gone(opened, L"RegOpenKeyExW");
  return Gone(RegDeleteValueW(key.get(), name), L"RegDeleteValueW");
}

bool DeleteFileIfThere(const std::wstring& path) {
  if (DeleteFileW(path.c_str()) || GetLastError() == ERROR_FILE_NOT_FOUND ||
      GetLastError() == ERROR_PATH_NOT_FOUND) {
    return true;
  }
  return LogLastError(L"DeleteFileW", kLogWarn);
}

// A running image cannot be deleted, but it can be renamed: it leaves the install folder
// for the temporary one (or, on another volume, the folder above), and a one-off command at
// the next sign-in deletes it. Both need no administrator rights.
bool MoveProgramAside(const InstallPaths& paths) {
  wchar_t temp[MAX_PATH + 1] = {};
  const DWORD length = GetTempPathW(static_cast<DWORD>(std::size(temp)), temp);
  const std::wstring name = L"Hintwick-removed-" + std::to_wstring(GetCurrentProcessId()) + L".exe";
  for (std::wstring target :
       {std::wstring(temp, length) + name, paths.local_app_data + L"\\" + name}) {
    if (!MoveFileExW(paths.exe.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING)) {
      LogLastError(L"MoveFileExW", kLogWarn);
      continue;
    }
    WriteValues(kRunOnceKey, {{kCleanupValue, false, CleanupCommand(target), 0}});
    Log(kLogInfo, L"moved the running program to %ls until the next sign-in", target.c_str());
    return true;
  }
  return false;
}

// Only this process's own image is moved aside: a file held by anything else stays, or a
// copy that would not end would go on running from the temporary folder.
bool RemoveProgram(const InstallPaths& paths) {
  for (const std::wstring& leftover : ProgramLeftovers(paths.exe)) DeleteFileIfThere(leftover);
  if (DeleteFileIfThere(paths.exe)) return true;
  return SamePath(RunningExecutablePath(), paths.exe) && MoveProgramAside(paths);
}

// The stored sign-in is revoked at the service as well as deleted here: a copy of it taken
// before would otherwise go on working. An unreachable service does not stop the purge.
void SignOutAtService() {
  const std::string refresh_token = TokenStore::Load();
  if (refresh_token.empty()) return;
  HttpClient client;
  if (!client.Init(LoadSettings().base_url)) return;
  const HttpResponse reply = client.Post("/v1/auth/logout", RefreshTokenBody(refresh_token), {});
  if (reply.ok && reply.status == 200) {
    Log(kLogInfo, L"signed out at the service");
  } else {
    Log(kLogWarn, L"could not sign out at the service (status %d); the sign-in is deleted here",
        reply.ok ? static_cast<int>(reply.status) : 0);
  }
}

// Only the files this program makes: anything else the player put there stays, and so does
// the folder then.
void RemovePlayerData(const std::wstring& dir) {
  // The log is one of them, and the runtime will not delete a file it holds open.
  CloseLog();
  WIN32_FIND_DATAW found{};
  const UniqueFindHandle search(FindFirstFileW((dir + L"\\*").c_str(), &found));
  if (!search) return;
  do {
    if (IsPlayerDataFile(found.cFileName)) DeleteFileIfThere(dir + L"\\" + found.cFileName);
  } while (FindNextFileW(search.get(), &found));
}

}  // namespace

bool Installer::Install(bool autostart, std::wstring& error) {
  InstallPaths paths;
  if (!FindPaths(paths))
    error = kErrorNoFolder;
  else if (!CreateInstallDirectory(paths.dir))
    error = kErrorCreateDir;
  else if (!CopyProgram(paths.exe))
    error = kErrorCopy;
  if (!error.empty()) return false;
  if (!CreateShortcut(paths.exe, paths.dir)) {
    Log(kLogWarn, L"could not create the Start Menu shortcut");
  }
  if (!WriteValues(kUninstallKey, UninstallValues(paths.dir, paths.exe))) {
    error = kErrorRegister;
    return false;
  }
  SetAutostart(autostart);
  Log(kLogInfo, L"installed to %ls (autostart %ls)", paths.dir.c_str(), autostart ? L"on" : L"off");
  return true;
}

bool Installer::Uninstall(bool purge, std::wstring& error) {
  InstallPaths paths;
  const bool found = FindPaths(paths);
  if (found && !RemoveProgram(paths)) {
    error = kErrorRemoveProgram;
    return false;
  }
  const std::wstring programs = KnownFolder(FOLDERID_Programs, 0);
  if (!programs.empty()) DeleteFileIfThere(ShortcutPath(programs));
  SetAutostart(false);
  if (!Gone(RegDeleteKeyW(HKEY_CURRENT_USER, kUninstallKey), L"RegDeleteKeyW")) {
    error = kErrorRemoveEntry;
  }
  if (found) {
    if (purge) SignOutAtService();
    if (purge) RemovePlayerData(paths.dir);
    // Fails, as it should, while the folder still holds the player's data or other files.
    if (!RemoveDirectoryW(paths.dir.c_str())) LogLastError(L"RemoveDirectoryW", kLogInfo);
  }
  Log(kLogInfo, L"uninstalled (data %ls)", purge ? L"removed" : L"kept");
  return error.empty();
}

std::wstring Installer::InstalledExecutablePath() {
  InstallPaths paths;
  return FindPaths(paths) ? paths.exe : std::wstring();
}

bool Installer::IsAutostartEnabled() {
  UniqueHkey key;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kRunKey, 0, KEY_QUERY_VALUE, key.put()) != ERROR_SUCCESS) {
    return false;
  }
  return RegQueryValueExW(key.get(), kInstallerName, nullptr, nullptr, nullptr, nullptr) ==
         ERROR_SUCCESS;
}

void Installer::SetAutostart(bool enabled) {
  if (!enabled) {
    DeleteValue(kRunKey, kInstallerName);
    return;
  }
  InstallPaths paths;
  if (FindPaths(paths))
    WriteValues(kRunKey, {{kInstallerName, false, AutostartCommand(paths.exe), 0}});
}

}  // namespace qn
