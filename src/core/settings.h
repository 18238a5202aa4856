#pragma once
// The player's preferences and their file, config.json in the data directory.
#include <cstdint>
#include <string>
#include <string_view>

namespace qn {

inline constexpr wchar_t kDefaultBaseUrl[] = L"https://api.hintwick.app";

// RegisterHotKey modifier bits.
constexpr uint32_t kModAlt = 1;
constexpr uint32_t kModCtrl = 2;
constexpr uint32_t kModShift = 4;
constexpr uint32_t kModWin = 8;

constexpr uint32_t kDefaultHotkeyMods = kModShift | kModAlt;
constexpr uint32_t kDefaultHotkeyVk = 'X';

struct Settings {
  std::wstring base_url = kDefaultBaseUrl;
  std::string email;
  uint32_t hotkey_mods = kDefaultHotkeyMods;
  uint32_t hotkey_vk = kDefaultHotkeyVk;
  int32_t drawer_pct = 33;
  int32_t blur_pct = 100;
  bool sound_enabled = true;
  int32_t sound_volume = 40;
  int32_t directness = 1;
  bool spoilers_ok = false;
  // Memory only: an old config.json held the password in clear. Sign-in trades it for a
  // stored token, and the next save drops it from the file.
  bool password_migration_pending = false;
  std::string legacy_password;
};

void NormalizeSettings(Settings& settings);

// Reads whatever keys the text holds over the defaults and normalises. Forgiving by design:
// a key that is missing or of the wrong kind keeps its default.
Settings ParseSettingsText(std::string_view text);

// The whole file in its fixed layout: all ten keys, always in the same order.
std::string SettingsFileText(const Settings& settings);

const char* DirectnessName(int32_t directness);
int32_t ParseDirectness(std::string_view name);

// "Ctrl+Shift+Alt+Win+" prefix in fixed order, then the key's name as the keyboard layout
// gives it, else its letter, else "?".
std::wstring ComposeHotkeyText(uint32_t mods, uint32_t vk, std::wstring_view key_name);

#ifdef _WIN32
std::wstring SettingsPath();
Settings LoadSettings();
bool SaveSettings(const Settings& settings);
Settings LoadSettingsFrom(const std::wstring& path);
bool SaveSettingsTo(const std::wstring& path, const Settings& settings);
std::wstring HotkeyText(uint32_t mods, uint32_t vk);
#endif

}  // namespace qn
