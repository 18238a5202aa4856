#include <windows.h>

#include <shlobj.h>

#include "core/data_dir.h"
#include "core/handles.h"

namespace qn {
namespace {

std::wstring LocalAppDataFolder() {
  UniqueCoTaskString path;
  if (FAILED(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, path.put())) || !path) {
    return {};
  }
  return path.get();
}

bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

}  // namespace

std::wstring DataDirPath() {
  const std::wstring base = LocalAppDataFolder();
  return base.empty() ? base : base + L"\\Hintwick";
}

std::wstring DataDir() {
  std::wstring dir = DataDirPath();
  if (!dir.empty()) CreateDirectoryW(dir.c_str(), nullptr);  // usually exists already
  return dir;
}

void MigratePreRenameState() {
  const std::wstring base = LocalAppDataFolder();
  if (base.empty()) return;
  const std::wstring old_dir = base + L"\\Quillnest";
  if (!Exists(old_dir)) return;
  MoveStateFiles(old_dir, DataDir());
}

int MoveStateFiles(const std::wstring& old_dir, const std::wstring& new_dir) {
  int moved = 0;
  for (const wchar_t* name : {L"config.json", L"token.bin"}) {
    const std::wstring source = old_dir + L"\\" + name;
    const std::wstring destination = new_dir + L"\\" + name;
    if (!Exists(source) || Exists(destination)) continue;
    if (!MoveFileW(source.c_str(), destination.c_str())) continue;  // retried next start
    // The log is not open yet when this runs, so the note goes to the debugger only.
    OutputDebugStringW(L"migrated state from the pre-rename directory\n");
    ++moved;
  }
  return moved;
}

}  // namespace qn
