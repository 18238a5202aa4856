#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>

#include "core/settings.h"

namespace qn {
namespace {

// Every key read from a file comes back in the fixed layout; the password never does.
TEST(SettingsText, EveryKeyIsReadAndWrittenInTheFixedLayout) {
  const Settings s = ParseSettingsText(
      R"({"spoilers_ok":true,"password":"hunter2","base_url":"http://h\u00e9/\"q\\",)"
      R"("email":"p\t\"1\"","hotkey_mods":4294967295,"hotkey_vk":116,"drawer_pct":20,"blur_pct":0,)"
      R"("sound_enabled":false,"sound_volume":100,"directness":"answer"})");
  EXPECT_EQ(s.legacy_password, "hunter2");
  EXPECT_FALSE(ParseSettingsText(R"({"password":""})").password_migration_pending);
  EXPECT_EQ(std::string(DirectnessName(0)) + DirectnessName(1) + DirectnessName(7),
            "coachhintshints");
  EXPECT_EQ(SettingsFileText(s),
            "{\n"
            "  \"base_url\": \"http://h\xC3\xA9/\\\"q\\\\\",\n"
            "  \"email\": \"p\\t\\\"1\\\"\",\n"
            "  \"hotkey_mods\": 4294967295,\n"
            "  \"hotkey_vk\": 116,\n"
            "  \"drawer_pct\": 20,\n"
            "  \"blur_pct\": 0,\n"
            "  \"sound_enabled\": false,\n"
            "  \"sound_volume\": 100,\n"
            "  \"directness\": \"answer\",\n"
            "  \"spoilers_ok\": true\n"
            "}\n");
}

// Loading is forgiving: a key of the wrong kind keeps its default, numbers are clamped.
TEST(SettingsText, LoadingClampsAndKeepsDefaultsForWrongKinds) {
  using Fields = std::array<int64_t, 8>;  // drawer blur volume mods vk directness sound spoilers
  const std::pair<const char*, Fields> cases[] = {
      {R"({"drawer_pct":5,"blur_pct":"30","sound_enabled":"false"})",
       {20, 100, 40, 5, 88, 1, 1, 0}},
      // Past 32 bits a number saturates before the clamp: its low bits would say 1, 1, 2, 100, 1.
      {R"({"drawer_pct":4294967297,"blur_pct":-4294967295,"hotkey_mods":4294967298})",
       {50, 0, 40, 4294967295, 88, 1, 1, 0}},
      {R"({"hotkey_vk":4294967396,"sound_volume":4294967297,"blur_pct":101})",
       {33, 100, 100, 5, 4294967295, 1, 1, 0}},
      {R"({"hotkey_vk":0,"hotkey_mods":2,"spoilers_ok":true})", {33, 100, 40, 5, 88, 1, 1, 1}},
      {R"({"hotkey_vk":112,"hotkey_mods":0,"directness":"Coach"})", {33, 100, 40, 0, 112, 1, 1, 0}},
      {R"({"directness":"coach","sound_enabled":false,"sound_volume":7.9})",
       {33, 100, 7, 5, 88, 0, 0, 0}},
      {R"({"directness":"answer","p":{"drawer_pct":45},"drawer_pct":21})",
       {21, 100, 40, 5, 88, 2, 1, 0}},
  };
  for (const auto& [text, want] : cases) {
    const Settings s = ParseSettingsText(text);
    EXPECT_EQ((Fields{s.drawer_pct, s.blur_pct, s.sound_volume, s.hotkey_mods, s.hotkey_vk,
                      s.directness, s.sound_enabled, s.spoilers_ok}),
              want)
        << text;
  }
  Settings cleared;  // as the settings window hands over an emptied address box
  cleared.base_url.clear();
  NormalizeSettings(cleared);
  EXPECT_EQ(cleared.base_url, kDefaultBaseUrl);
}

// The layout's name for the key, else its letter, else "?"; bits naming no modifier are ignored.
TEST(SettingsText, HotkeyTextPutsTheModifiersInAFixedOrder) {
  EXPECT_EQ(ComposeHotkeyText(0x1F, 'Z', L""), L"Ctrl+Shift+Alt+Win+Z");
  EXPECT_EQ(ComposeHotkeyText(kModAlt, 'A', L"") + ComposeHotkeyText(kModShift, 'A', L"F1") +
                ComposeHotkeyText(0, '@', L"") + ComposeHotkeyText(0, '[', L""),
            L"Alt+AShift+F1??");
}

}  // namespace
}  // namespace qn
