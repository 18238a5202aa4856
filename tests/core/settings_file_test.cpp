#include <windows.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "core/handles.h"
#include "core/log.h"
#include "core/settings.h"
#include "support/test_files.h"

namespace qn {
namespace {

class SettingsFileTest : public ::testing::Test {
 protected:
  void SetUp() override { OpenLogAt(log_path_); }
  void TearDown() override { CloseLog(); }

  std::string LogText() const { return test::ReadFileBytes(log_path_).value_or(""); }
  static std::string RegexEscape(const std::string& text) {
    return std::regex_replace(text, std::regex(R"([\\^$.|?*+()\[\]{}])"), R"(\$&)");
  }
  std::string Narrow(const std::wstring& wide) const {
    return std::string(wide.begin(), wide.end());  // the temp paths are ASCII
  }

  test::TempDir dir_;
  std::wstring log_path_ = dir_.File(L"hintwick.log");
  std::wstring config_ = dir_.File(L"config.json");
};

TEST_F(SettingsFileTest, SaveWritesTheFixedTextAndLoadReadsItBack) {
  Settings s;
  s.email = "player@example.org";
  s.drawer_pct = 44;
  s.directness = 0;
  ASSERT_TRUE(SaveSettingsTo(config_, s));
  EXPECT_EQ(test::ReadFileBytes(config_), SettingsFileText(s));
  EXPECT_FALSE(test::PathExists(config_ + L".tmp"));

  const Settings loaded = LoadSettingsFrom(config_);
  EXPECT_EQ(loaded.email, s.email);
  EXPECT_EQ(loaded.drawer_pct, 44);
  EXPECT_EQ(loaded.directness, 0);
  EXPECT_NE(LogText().find("INFO  settings loaded: hotkey=Shift+Alt+X drawer=44% blur=100% "
                           "sound=on directness=coach\r\n"),
            std::string::npos)
      << LogText();
}

TEST_F(SettingsFileTest, UnreadableFilesLoadAsDefaultsWithOneNote) {
  std::string binary(4096, '\0');
  for (size_t i = 0; i < binary.size(); ++i) binary[i] = static_cast<char>((i * 7919) ^ (i >> 3));
  const struct {
    const char* what;
    std::string bytes;
    bool noted;  // "no config.json" rather than a parse that found nothing
  } cases[] = {
      {"missing", "", true},
      {"empty", "", true},
      {"binary", binary, false},
      {"nul bytes", std::string(64, '\0'), false},
      {"unclosed", "{\"email\":\"abc", false},
      {"deep nesting", std::string(100000, '[') + std::string(100000, '{'), false},
      {"oversized", "{\"drawer_pct\":45," + std::string(2 << 20, ' ') + "}", true},
  };
  for (const auto& c : cases) {
    DeleteFileW(config_.c_str());
    if (std::string(c.what) != "missing") test::WriteFileBytes(config_, c.bytes);
    CloseLog();
    OpenLogAt(log_path_);
    const Settings loaded = LoadSettingsFrom(config_);
    EXPECT_EQ(loaded.drawer_pct, 33) << c.what;
    EXPECT_EQ(loaded.email, "") << c.what;
    EXPECT_EQ(LogText().find("no config.json; using defaults") != std::string::npos, c.noted)
        << c.what;
    EXPECT_EQ(test::ReadFileBytes(config_).value_or(""), c.bytes) << c.what;  // left as found
  }
}

TEST_F(SettingsFileTest, AFolderWhereTheFileShouldBeLoadsAsDefaults) {
  ASSERT_TRUE(CreateDirectoryW(config_.c_str(), nullptr));
  EXPECT_EQ(LoadSettingsFrom(config_).hotkey_vk, 88u);
  EXPECT_NE(LogText().find("no config.json; using defaults"), std::string::npos);
}

TEST_F(SettingsFileTest, AReplaceBlockedByAnOpenReaderLeavesTheOldFileIntact) {
  const std::string old_text = "{\"drawer_pct\": 45}\n";
  test::WriteFileBytes(config_, old_text);
  const UniqueFileHandle reader(CreateFileW(config_.c_str(), GENERIC_READ, FILE_SHARE_READ,
                                            nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(reader);
  EXPECT_FALSE(SaveSettingsTo(config_, Settings()));
  EXPECT_EQ(test::ReadFileBytes(config_), old_text);
  // Windows answers 5 or 32 here depending on the version; Wine answers 32.
  EXPECT_TRUE(std::regex_search(
      LogText(), std::regex("WARN  could not replace " + RegexEscape(Narrow(config_)) +
                            R"( \((5|32)\)\r\n)")))
      << LogText();
}

TEST_F(SettingsFileTest, ATemporaryFileThatCannotBeOpenedFailsBeforeTouchingTheFile) {
  test::WriteFileBytes(config_, "old");
  ASSERT_TRUE(CreateDirectoryW((config_ + L".tmp").c_str(), nullptr));
  EXPECT_FALSE(SaveSettingsTo(config_, Settings()));
  EXPECT_EQ(test::ReadFileBytes(config_), "old");
  EXPECT_NE(LogText().find("WARN  could not open " + Narrow(config_) + ".tmp for writing"),
            std::string::npos)
      << LogText();
}

TEST_F(SettingsFileTest, PasswordIsNotedOnLoadAndGoneAfterTheNextSave) {
  test::WriteFileBytes(config_, R"({"email":"p@example.org","password":"hunter2","drawer_pct":41,)"
                                R"("sound_enabled":false,"directness":"answer"})");
  const Settings loaded = LoadSettingsFrom(config_);
  EXPECT_TRUE(loaded.password_migration_pending);
  EXPECT_EQ(loaded.legacy_password, "hunter2");
  EXPECT_NE(LogText().find("WARN  config.json holds a plaintext password; migrating to a stored "
                           "token and removing it"),
            std::string::npos);

  ASSERT_TRUE(SaveSettingsTo(config_, loaded));
  const std::string saved = test::ReadFileBytes(config_).value_or("");
  EXPECT_EQ(saved.find("password"), std::string::npos);
  EXPECT_EQ(saved.find("hunter2"), std::string::npos);
  const Settings reloaded = LoadSettingsFrom(config_);
  EXPECT_FALSE(reloaded.password_migration_pending);
  EXPECT_EQ(reloaded.email, "p@example.org");
  EXPECT_EQ(reloaded.drawer_pct, 41);
  EXPECT_FALSE(reloaded.sound_enabled);
  EXPECT_EQ(reloaded.directness, 2);
}

TEST(HotkeyText, NamesKeysThroughTheKeyboardLayout) {
  EXPECT_EQ(HotkeyText(5, 'X'), L"Shift+Alt+X");
  EXPECT_EQ(HotkeyText(2 | 8, VK_F5), L"Ctrl+Win+F5");
  EXPECT_EQ(HotkeyText(0, 0xFF), L"?");  // no scan code for this key
}

}  // namespace
}  // namespace qn
