#include <windows.h>

#include <gtest/gtest.h>
#include <shlobj.h>

#include <map>
#include <string>

#include "core/data_dir.h"
#include "core/handles.h"
#include "support/test_files.h"

namespace qn {
namespace {

std::wstring LocalAppData() {
  UniqueCoTaskString path;
  EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, path.put()), S_OK);
  return path.get();
}

TEST(DataDir, IsTheLocalFolderPlusHintwickAndExists) {
  const std::wstring dir = DataDir();
  EXPECT_EQ(dir, LocalAppData() + L"\\Hintwick");
  EXPECT_TRUE(GetFileAttributesW(dir.c_str()) & FILE_ATTRIBUTE_DIRECTORY);
}

using Files = std::map<std::wstring, std::string>;

Files ReadAll(const test::TempDir& dir) {
  Files files;
  for (const wchar_t* name : {L"config.json", L"token.bin", L"games.json", L"hintwick.log"}) {
    if (auto bytes = test::ReadFileBytes(dir.File(name))) files[name] = *bytes;
  }
  return files;
}

void WriteAll(const test::TempDir& dir, const Files& files) {
  for (const auto& [name, bytes] : files) test::WriteFileBytes(dir.File(name), bytes);
}

TEST(MoveStateFiles, MovesOnlyStateFilesThatAreMissingInTheNewFolder) {
  const struct {
    const char* what;
    Files old_before, new_before, old_after, new_after;
  } cases[] = {
      {"both move", {{L"config.json", "oc"}, {L"token.bin", "ot"}}, {},
       {}, {{L"config.json", "oc"}, {L"token.bin", "ot"}}},
      {"existing config stays, token moves",
       {{L"config.json", "oc"}, {L"token.bin", "ot"}}, {{L"config.json", "nc"}},
       {{L"config.json", "oc"}}, {{L"config.json", "nc"}, {L"token.bin", "ot"}}},
      {"both exist in both", {{L"config.json", "oc"}, {L"token.bin", "ot"}},
       {{L"config.json", "nc"}, {L"token.bin", "nt"}},
       {{L"config.json", "oc"}, {L"token.bin", "ot"}},
       {{L"config.json", "nc"}, {L"token.bin", "nt"}}},
      {"other files never move", {{L"games.json", "g"}, {L"hintwick.log", "l"}}, {},
       {{L"games.json", "g"}, {L"hintwick.log", "l"}}, {}},
  };
  for (const auto& c : cases) {
    test::TempDir old_dir, new_dir;
    WriteAll(old_dir, c.old_before);
    WriteAll(new_dir, c.new_before);
    MoveStateFiles(old_dir.path(), new_dir.path());
    EXPECT_EQ(ReadAll(old_dir), c.old_after) << c.what;
    EXPECT_EQ(ReadAll(new_dir), c.new_after) << c.what;
    EXPECT_TRUE(test::PathExists(old_dir.path())) << c.what;
  }
}

TEST(MigratePreRenameState, MovesFromTheOldFolderAndLeavesIt) {
  const std::wstring old_dir = LocalAppData() + L"\\Quillnest";
  CreateDirectoryW(old_dir.c_str(), nullptr);
  const std::wstring moved_token = DataDir() + L"\\token.bin";
  DeleteFileW(moved_token.c_str());
  test::WriteFileBytes(old_dir + L"\\token.bin", "sealed");
  test::WriteFileBytes(old_dir + L"\\notes.txt", "mine");

  MigratePreRenameState();

  EXPECT_EQ(test::ReadFileBytes(moved_token), "sealed");
  EXPECT_FALSE(test::PathExists(old_dir + L"\\token.bin"));
  EXPECT_EQ(test::ReadFileBytes(old_dir + L"\\notes.txt"), "mine");
  DeleteFileW(moved_token.c_str());
  DeleteFileW((old_dir + L"\\notes.txt").c_str());
  RemoveDirectoryW(old_dir.c_str());
}

}  // namespace
}  // namespace qn
