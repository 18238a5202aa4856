#include "core/settings.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "core/json.h"
#include "core/utf.h"

namespace qn {
namespace {

// Values wider than 32 bits saturate before the range clamp, so a huge drawer size
// becomes the largest drawer rather than whatever its low bits happen to be.
template <typename Field>
void TakeInt(std::string_view text, std::string_view key, Field& field) {
  if (std::optional<int64_t> value = JsonGetInt(text, key)) {
    const int64_t low = std::numeric_limits<Field>::min();
    const int64_t high = std::numeric_limits<Field>::max();
    field = static_cast<Field>(std::clamp<int64_t>(*value, low, high));
  }
}

void TakeBool(std::string_view text, std::string_view key, bool& field) {
  if (std::optional<bool> value = JsonGetBool(text, key)) field = *value;
}

void AppendKey(std::string& out, std::string_view key, std::string_view value, bool last) {
  out += "  \"";
  out += key;
  out += "\": ";
  out += value;
  out += last ? "\n" : ",\n";
}

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }
const char* BoolText(bool value) { return value ? "true" : "false"; }

}  // namespace

void NormalizeSettings(Settings& settings) {
  settings.drawer_pct = std::clamp(settings.drawer_pct, 20, 50);
  settings.blur_pct = std::clamp(settings.blur_pct, 0, 100);
  settings.sound_volume = std::clamp(settings.sound_volume, 0, 100);
  // Modifiers of 0 are left alone on purpose: only an unset key means "no hotkey chosen".
  if (settings.hotkey_vk == 0) {
    settings.hotkey_mods = kDefaultHotkeyMods;
    settings.hotkey_vk = kDefaultHotkeyVk;
  }
  if (settings.base_url.empty()) settings.base_url = kDefaultBaseUrl;
}

Settings ParseSettingsText(std::string_view text) {
  Settings settings;
  if (auto url = JsonGetString(text, "base_url"); url && !url->empty()) {
    settings.base_url = Utf8ToWide(*url);
  }
  if (auto email = JsonGetString(text, "email")) settings.email = std::move(*email);
  if (auto password = JsonGetString(text, "password"); password && !password->empty()) {
    settings.password_migration_pending = true;
    settings.legacy_password = std::move(*password);
  }
  TakeInt(text, "hotkey_mods", settings.hotkey_mods);
  TakeInt(text, "hotkey_vk", settings.hotkey_vk);
  TakeInt(text, "drawer_pct", settings.drawer_pct);
  TakeInt(text, "blur_pct", settings.blur_pct);
  TakeInt(text, "sound_volume", settings.sound_volume);
  TakeBool(text, "sound_enabled", settings.sound_enabled);
  TakeBool(text, "spoilers_ok", settings.spoilers_ok);
  if (auto name = JsonGetString(text, "directness")) settings.directness = ParseDirectness(*name);
  NormalizeSettings(settings);
  return settings;
}

// Written line by line rather than by a general writer: the layout is part of the
// file's contract, and it never carries the legacy password.
std::string SettingsFileText(const Settings& settings) {
  std::string out = "{\n";
  AppendKey(out, "base_url", Quoted(JsonEscape(WideToUtf8(settings.base_url))), false);
  AppendKey(out, "email", Quoted(JsonEscape(settings.email)), false);
  AppendKey(out, "hotkey_mods", std::to_string(settings.hotkey_mods), false);
  AppendKey(out, "hotkey_vk", std::to_string(settings.hotkey_vk), false);
  AppendKey(out, "drawer_pct", std::to_string(settings.drawer_pct), false);
  AppendKey(out, "blur_pct", std::to_string(settings.blur_pct), false);
  AppendKey(out, "sound_enabled", BoolText(settings.sound_enabled), false);
  AppendKey(out, "sound_volume", std::to_string(settings.sound_volume), false);
  AppendKey(out, "directness", Quoted(DirectnessName(settings.directness)), false);
  AppendKey(out, "spoilers_ok", BoolText(settings.spoilers_ok), true);
  out += "}\n";
  return out;
}

const char* DirectnessName(int32_t directness) {
  if (directness == 0) return "coach";
  if (directness == 2) return "answer";
  return "hints";
}

int32_t ParseDirectness(std::string_view name) {
  if (name == "coach") return 0;
  if (name == "answer") return 2;
  return 1;
}

std::wstring ComposeHotkeyText(uint32_t mods, uint32_t vk, std::wstring_view key_name) {
  std::wstring text;
  if (mods & kModCtrl) text += L"Ctrl+";
  if (mods & kModShift) text += L"Shift+";
  if (mods & kModAlt) text += L"Alt+";
  if (mods & kModWin) text += L"Win+";
  if (!key_name.empty()) {
    text += key_name;
  } else if (vk >= 'A' && vk <= 'Z') {
    text += static_cast<wchar_t>(vk);
  } else {
    text += L'?';
  }
  return text;
}

}  // namespace qn
