#include <windows.h>

#include <io.h>
#include <share.h>

#include <cstdio>
#include <iterator>
#include <optional>

#include "core/data_dir.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/settings.h"
#include "core/state_file.h"

namespace qn {
namespace {

// Our own file is a few hundred bytes; anything this large was not written by us and is
// treated as unreadable rather than pulled into memory whole.
constexpr size_t kMaxSettingsBytes = size_t{1} << 20;

bool WriteWholeFile(const std::wstring& path, const std::string& text) {
  UniqueCFile file(_wfsopen(path.c_str(), L"wb", _SH_DENYNO));
  if (!file) {
    Log(kLogWarn, L"could not open %ls for writing", path.c_str());
    return false;
  }
  // Flushed to the disk, not only to the system, before the caller renames it over the old
  // file: a power cut must leave the old settings or the new ones, never an empty file.
  const bool written = fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
                       fflush(file.get()) == 0 &&
                       FlushFileBuffers(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(file.get()))));
  if (fclose(file.release()) != 0 || !written) {
    Log(kLogWarn, L"write failed for %ls", path.c_str());
    return false;
  }
  return true;
}

}  // namespace

std::wstring SettingsPath() {
  const std::wstring dir = DataDir();
  return dir.empty() ? std::wstring() : dir + L"\\config.json";
}

Settings LoadSettings() { return LoadSettingsFrom(SettingsPath()); }

bool SaveSettings(const Settings& settings) { return SaveSettingsTo(SettingsPath(), settings); }

Settings LoadSettingsFrom(const std::wstring& path) {
  std::optional<std::string> text =
      path.empty() ? std::nullopt : ReadStateFile(path, kMaxSettingsBytes);
  if (!text || text->empty()) {
    Log(kLogInfo, L"no config.json; using defaults");
    return Settings();
  }
  Settings settings = ParseSettingsText(*text);
  // An older version kept the password in this text; it must not linger in freed memory.
  SecureZeroMemory(text->data(), text->size());
  if (settings.password_migration_pending) {
    Log(kLogWarn,
        L"config.json holds a plaintext password; migrating to a stored token and removing it");
  }
  Log(kLogInfo, L"settings loaded: hotkey=%ls drawer=%d%% blur=%d%% sound=%ls directness=%hs",
      HotkeyText(settings.hotkey_mods, settings.hotkey_vk).c_str(), settings.drawer_pct,
      settings.blur_pct, settings.sound_enabled ? L"on" : L"off",
      DirectnessName(settings.directness));
  return settings;
}

// Written beside the real file and moved over it, so a reader sees the old file or the
// new one, never half of one.
bool SaveSettingsTo(const std::wstring& path, const Settings& settings) {
  if (path.empty()) {  // no data directory: never fall back to the working directory
    Log(kLogWarn, L"could not open %ls for writing", L"config.json.tmp");
    return false;
  }
  const std::wstring temporary = path + L".tmp";
  if (!WriteWholeFile(temporary, SettingsFileText(settings))) return false;
  if (!MoveFileExW(temporary.c_str(), path.c_str(),
                   MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
    const DWORD error = GetLastError();
    Log(kLogWarn, L"could not replace %ls (%lu)", path.c_str(), error);
    return false;
  }
  return true;
}

std::wstring HotkeyText(uint32_t mods, uint32_t vk) {
  std::wstring name;
  if (const UINT scan = MapVirtualKeyW(vk, MAPVK_VK_TO_VSC)) {
    wchar_t buffer[64];
    const int length =
        GetKeyNameTextW(static_cast<LONG>(scan << 16), buffer, static_cast<int>(std::size(buffer)));
    if (length > 0) name.assign(buffer, static_cast<size_t>(length));
  }
  return ComposeHotkeyText(mods, vk, name);
}

}  // namespace qn
