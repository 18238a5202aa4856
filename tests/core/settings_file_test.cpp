#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "core/handles.h"
#include "core/settings.h"
#include "support/test_files.h"

namespace qn {
namespace {

class SettingsFileTest : public ::testing::Test {
 protected:
  test::CapturedLog log_;
  test::TempDir dir_;
  std::wstring config_ = dir_.File(L"config.json");
};

// An old file's plaintext password is flagged for sign-in to trade for a token, and the
// next save, which writes the fixed layout, drops it from the disk.
TEST_F(SettingsFileTest, APasswordIsNotedAndTheNextSaveDropsIt) {
  test::WriteFileBytes(config_, R"({"password":"hunter2","drawer_pct":44,"directness":"coach"})");
  const Settings loaded = LoadSettingsFrom(config_);
  EXPECT_TRUE(loaded.password_migration_pending);
  EXPECT_TRUE(
      log_.Has("WARN  config.json holds a plaintext password; migrating to a stored "
               "token and removing it\r\n"));
  EXPECT_TRUE(
      log_.Has("INFO  settings loaded: hotkey=Shift+Alt+X drawer=44% blur=100% "
               "sound=on directness=coach\r\n"));
  ASSERT_TRUE(SaveSettingsTo(config_, loaded));
  EXPECT_EQ(test::ReadFileBytes(config_), SettingsFileText(loaded));
  EXPECT_FALSE(test::PathExists(config_ + L".tmp"));
  const Settings reloaded = LoadSettingsFrom(config_);
  EXPECT_FALSE(reloaded.password_migration_pending);
  EXPECT_EQ(SettingsFileText(reloaded), SettingsFileText(loaded));
}

TEST_F(SettingsFileTest, MissingOrUnreadableFilesLoadAsDefaults) {
  test::WriteFileBytes(config_, std::string(64, '\0'));
  EXPECT_EQ(SettingsFileText(LoadSettingsFrom(config_)), SettingsFileText(Settings()));
  EXPECT_EQ(LoadSettingsFrom(dir_.File(L"absent.json")).drawer_pct, 33);
  EXPECT_TRUE(log_.Has("INFO  no config.json; using defaults\r\n"));
}

TEST_F(SettingsFileTest, AReplaceBlockedByAReaderLeavesTheOldFile) {
  test::WriteFileBytes(config_, "{\"drawer_pct\": 45}\n");
  const UniqueFileHandle reader(CreateFileW(config_.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                            OPEN_EXISTING, 0, nullptr));
  ASSERT_TRUE(reader);
  EXPECT_FALSE(SaveSettingsTo(config_, Settings()));
  EXPECT_EQ(test::ReadFileBytes(config_), "{\"drawer_pct\": 45}\n");
  EXPECT_TRUE(log_.Has("WARN  could not replace ")) << log_.Text();
}

}  // namespace
}  // namespace qn
