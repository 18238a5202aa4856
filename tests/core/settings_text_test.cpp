#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#ifndef _WIN32
#include <unistd.h>
#endif

#include "core/settings.h"

namespace qn {
namespace {

constexpr char kDefaultsFile[] =
    "{\n"
    "  \"base_url\": \"https://api.hintwick.app\",\n"
    "  \"email\": \"\",\n"
    "  \"hotkey_mods\": 5,\n"
    "  \"hotkey_vk\": 88,\n"
    "  \"drawer_pct\": 33,\n"
    "  \"blur_pct\": 100,\n"
    "  \"sound_enabled\": true,\n"
    "  \"sound_volume\": 40,\n"
    "  \"directness\": \"hints\",\n"
    "  \"spoilers_ok\": false\n"
    "}\n";

Settings Changed() {
  Settings s;
  s.base_url = L"http://127.0.0.1:8080/caf\u00e9\"q\\";
  s.email = "pl\xC3\xA4yer\t\"one\"@example.org";
  s.hotkey_mods = 2 | 8;
  s.hotkey_vk = 0x74;
  s.drawer_pct = 20;
  s.blur_pct = 0;
  s.sound_enabled = false;
  s.sound_volume = 100;
  s.directness = 2;
  s.spoilers_ok = true;
  return s;
}

void ExpectSameFileFields(const Settings& a, const Settings& b) {
  EXPECT_EQ(a.base_url, b.base_url);
  EXPECT_EQ(a.email, b.email);
  EXPECT_EQ(a.hotkey_mods, b.hotkey_mods);
  EXPECT_EQ(a.hotkey_vk, b.hotkey_vk);
  EXPECT_EQ(a.drawer_pct, b.drawer_pct);
  EXPECT_EQ(a.blur_pct, b.blur_pct);
  EXPECT_EQ(a.sound_enabled, b.sound_enabled);
  EXPECT_EQ(a.sound_volume, b.sound_volume);
  EXPECT_EQ(a.directness, b.directness);
  EXPECT_EQ(a.spoilers_ok, b.spoilers_ok);
}

TEST(SettingsFileText, DefaultsAreWrittenInTheFixedLayout) {
  EXPECT_EQ(SettingsFileText(Settings()), kDefaultsFile);
}

TEST(SettingsFileText, RoundTripsEveryField) {
  const Settings changed = Changed();
  ExpectSameFileFields(ParseSettingsText(SettingsFileText(changed)), changed);
}

TEST(SettingsFileText, NeverCarriesThePassword) {
  Settings s = ParseSettingsText(R"({"email":"a@b.c","password":"hunter2"})");
  ASSERT_TRUE(s.password_migration_pending);
  EXPECT_EQ(s.legacy_password, "hunter2");
  EXPECT_EQ(SettingsFileText(s).find("password"), std::string::npos);
  EXPECT_EQ(SettingsFileText(s).find("hunter2"), std::string::npos);
}

TEST(ParseSettingsText, ReadsForgivinglyAndNormalises) {
  const struct {
    const char* text;
    int32_t drawer, blur, volume;
    uint32_t mods, vk;
    int32_t directness;
    bool sound;
  } cases[] = {
      {R"({"drawer_pct":80})", 50, 100, 40, 5, 88, 1, true},
      {R"({"drawer_pct":5,"blur_pct":-3,"sound_volume":101})", 20, 0, 100, 5, 88, 1, true},
      {R"({"drawer_pct":99999999999,"blur_pct":-99999999999})", 50, 0, 40, 5, 88, 1, true},
      {R"({"drawer_pct":"30","blur_pct":"30"})", 33, 100, 40, 5, 88, 1, true},
      {R"({"drawer_pct":12.9e3,"sound_volume":7.9})", 20, 100, 7, 5, 88, 1, true},
      {R"({"hotkey_vk":0,"hotkey_mods":2})", 33, 100, 40, 5, 88, 1, true},
      {R"({"hotkey_vk":-1,"hotkey_mods":2})", 33, 100, 40, 5, 88, 1, true},
      {R"({"hotkey_vk":112,"hotkey_mods":0})", 33, 100, 40, 0, 112, 1, true},
      {R"({"directness":"Coach"})", 33, 100, 40, 5, 88, 1, true},
      {R"({"directness":"coach","sound_enabled":false})", 33, 100, 40, 5, 88, 0, false},
      {R"({"directness":"answer","sound_enabled":"false"})", 33, 100, 40, 5, 88, 2, true},
      {R"({"directness":2,"sound_enabled":0})", 33, 100, 40, 5, 88, 1, true},
      {R"({"prefs":{"drawer_pct":45},"drawer_pct":21,"drawer_pct":44})", 21, 100, 40, 5, 88, 1, true},
  };
  for (const auto& c : cases) {
    const Settings s = ParseSettingsText(c.text);
    EXPECT_EQ(s.drawer_pct, c.drawer) << c.text;
    EXPECT_EQ(s.blur_pct, c.blur) << c.text;
    EXPECT_EQ(s.sound_volume, c.volume) << c.text;
    EXPECT_EQ(s.hotkey_mods, c.mods) << c.text;
    EXPECT_EQ(s.hotkey_vk, c.vk) << c.text;
    EXPECT_EQ(s.directness, c.directness) << c.text;
    EXPECT_EQ(s.sound_enabled, c.sound) << c.text;
  }
}

TEST(ParseSettingsText, EmptyUrlKeepsTheDefaultButAnEmptyEmailIsTaken) {
  EXPECT_EQ(ParseSettingsText(R"({"base_url":""})").base_url, kDefaultBaseUrl);
  EXPECT_EQ(ParseSettingsText(R"({"email":""})").email, "");
  EXPECT_EQ(ParseSettingsText(R"({"base_url":"http://x\u00e9"})").base_url, L"http://x\u00e9");
  EXPECT_FALSE(ParseSettingsText(R"({"password":""})").password_migration_pending);
}

// Whatever prefix of a good file survives, every text and switch is either its default or
// the file's value. (A number cut mid-way reads as its leading digits, like strtoll.)
TEST(ParseSettingsText, TruncatedFilesGiveDefaultsOrFileValuesOnly) {
  const std::string full = SettingsFileText(Changed());
  const Settings defaults, changed = Changed();
  for (size_t length = 0; length <= full.size(); ++length) {
    const Settings s = ParseSettingsText(std::string_view(full).substr(0, length));
    EXPECT_TRUE(s.email == defaults.email || s.email == changed.email) << length;
    EXPECT_TRUE(s.base_url == defaults.base_url || s.base_url == changed.base_url) << length;
    EXPECT_TRUE(s.drawer_pct == 33 || s.drawer_pct == 20) << length;
    EXPECT_EQ(s.sound_enabled, length < full.find("false", full.find("sound_enabled")) + 5) << length;
    EXPECT_EQ(s.spoilers_ok, length > full.find("true", full.find("spoilers_ok")) + 3) << length;
  }
}

TEST(NormalizeSettings, ClampsToTheRangesAtTheirEdges) {
  const struct {
    int32_t in, drawer, other;
  } cases[] = {{INT32_MIN, 20, 0}, {-1, 20, 0},  {0, 20, 0},     {19, 20, 19}, {20, 20, 20},
               {50, 50, 50},       {51, 50, 51}, {100, 50, 100}, {101, 50, 100}, {INT32_MAX, 50, 100}};
  for (const auto& c : cases) {
    Settings s;
    s.drawer_pct = s.blur_pct = s.sound_volume = c.in;
    NormalizeSettings(s);
    EXPECT_EQ(s.drawer_pct, c.drawer) << c.in;
    EXPECT_EQ(s.blur_pct, c.other) << c.in;
    EXPECT_EQ(s.sound_volume, c.other) << c.in;
  }
}

TEST(Directness, NamesAndParsingAreExact) {
  const struct {
    int32_t value;
    const char* name;
  } names[] = {{0, "coach"}, {1, "hints"}, {2, "answer"}, {3, "hints"}, {-1, "hints"}};
  for (const auto& c : names) EXPECT_STREQ(DirectnessName(c.value), c.name) << c.value;

  const struct {
    const char* text;
    int32_t value;
  } parses[] = {{"coach", 0}, {"hints", 1}, {"answer", 2}, {"Answer", 1},
                {"", 1},      {"coach ", 1}, {"ANSWER", 1}};
  for (const auto& c : parses) EXPECT_EQ(ParseDirectness(c.text), c.value) << c.text;
}

TEST(ComposeHotkeyText, ModifiersInFixedOrderThenNameLetterOrQuestionMark) {
  const struct {
    uint32_t mods, vk;
    const wchar_t* name;
    const wchar_t* text;
  } cases[] = {
      {5, 'X', L"X", L"Shift+Alt+X"},
      {1 | 2 | 4 | 8, 'Q', L"Q", L"Ctrl+Shift+Alt+Win+Q"},
      {8 | 1, 0x70, L"F1", L"Alt+Win+F1"},
      {2, 'K', L"", L"Ctrl+K"},
      {0, 0x7B, L"", L"?"},
      {16 | 4, 'a', L"", L"Shift+?"},
      {2, 0x20, L"Space", L"Ctrl+Space"},
  };
  for (const auto& c : cases) EXPECT_EQ(ComposeHotkeyText(c.mods, c.vk, c.name), c.text);
}

#ifndef _WIN32
// A real JSON parser, not ours, must accept what we write.
TEST(SettingsFileText, IsValidJsonToPython) {
  if (std::system("python3 -c pass") != 0) GTEST_SKIP() << "python3 is not installed";
  char path[] = "/tmp/hintwick-settings-XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  const std::string text = SettingsFileText(Changed());
  ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  close(fd);
  const std::string check = std::string("python3 -m json.tool ") + path + " >/dev/null";
  EXPECT_EQ(std::system(check.c_str()), 0) << text;
  const std::string order =
      std::string("python3 -c 'import json,sys; k=list(json.load(open(sys.argv[1])));"
                  "sys.exit(k != [\"base_url\",\"email\",\"hotkey_mods\",\"hotkey_vk\","
                  "\"drawer_pct\",\"blur_pct\",\"sound_enabled\",\"sound_volume\","
                  "\"directness\",\"spoilers_ok\"])' ") + path;
  EXPECT_EQ(std::system(order.c_str()), 0);
  unlink(path);
}
#endif

}  // namespace
}  // namespace qn
