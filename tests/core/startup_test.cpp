// What start-up leans on before anything else: the log, the data folder and its migration,
// and the system queries that decide whether the program may start.
#include <windows.h>

#include <gtest/gtest.h>
#include <shlobj.h>

#include <regex>
#include <string>

#include "core/data_dir.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/module_proc.h"
#include "core/os.h"
#include "core/system_dlls.h"
#include "support/test_files.h"

namespace qn {
namespace {

TEST(Log, LinesFollowTheLayoutInUtf8) {
  test::CapturedLog log;
  Log(kLogInfo, L"caf\u00e9 %hs %ls %d%% %08X %I64d", "\xE2\x80\x94", L"w", -7, 0x80070005u,
      -9000000000ll);
  for (const uint32_t level : {0u, 1u, 2u, 3u, 7u}) Log(level, L"level");
  Log(kLogWarn, L"%ls|", std::wstring(5000, L'b').c_str());
  const std::string text = log.Text();
  EXPECT_EQ(text.rfind("\xEF\xBB\xBF=== Hintwick start (Windows 10.0 build ", 0), 0u) << text;
  const std::string first = R"(\r\n\d\d:\d\d:\d\d\.\d\d\d INFO  )"
                            "caf\xC3\xA9 \xE2\x80\x94 w -7% 80070005 -9000000000\r\n";
  EXPECT_TRUE(std::regex_search(text, std::regex(first))) << text;
  for (const char* name : {"DEBUG", "INFO ", "WARN ", "ERROR", "?????"}) {
    EXPECT_TRUE(log.Has(std::string(" ") + name + " level\r\n")) << name;
  }
  // A long message is cut, but its line keeps the stamp and the line end.
  EXPECT_TRUE(log.Has(" WARN  " + std::string(1023, 'b') + "\r\n"));
  EXPECT_EQ(log.Count("\r\n"), 8u);
  log.Clear();  // a new start replaces the previous run's file
  EXPECT_EQ(log.Count("\r\n"), 1u);
}

std::wstring LocalAppData() {
  UniqueCoTaskString path;
  EXPECT_EQ(SHGetKnownFolderPath(FOLDERID_LocalAppData, 0, nullptr, path.put()), S_OK);
  return path.get();
}

// An update from a build before the rename keeps the player's settings and sign-in, and
// never overwrites what the new folder already holds.
TEST(DataDir, IsTheLocalFolderAndTakesOnlyMissingStateFromThePreRenameOne) {
  const std::wstring dir = DataDir(), old_dir = LocalAppData() + L"\\Quillnest";
  EXPECT_EQ(dir, LocalAppData() + L"\\Hintwick");
  const std::wstring names[] = {L"\\config.json", L"\\token.bin", L"\\games.json"};
  for (int kept = 0; kept < 2; ++kept) {
    CreateDirectoryW(old_dir.c_str(), nullptr);
    for (const std::wstring& name : names) {
      DeleteFileW((dir + name).c_str());
      test::WriteFileBytes(old_dir + name, "old");
    }
    test::WriteFileBytes(dir + names[kept], "new");
    MigratePreRenameState();
    EXPECT_EQ(test::ReadFileBytes(dir + names[kept]), "new");
    EXPECT_EQ(test::ReadFileBytes(dir + names[1 - kept]), "old");
    EXPECT_TRUE(test::PathExists(old_dir + names[kept]));
    EXPECT_FALSE(test::PathExists(dir + names[2]));
    for (const std::wstring& name : names) DeleteFileW((old_dir + name).c_str());
    RemoveDirectoryW(old_dir.c_str());
  }
}

// The bench's prefix reports Windows 10, where the program must agree to start.
TEST(Os, SupportedVersionDpiFallbackAndErrorText) {
  EXPECT_TRUE(IsOsSupported());
  EXPECT_EQ(GetWindowDpi(nullptr), 96u);  // GetDpiForWindow answers 0 for no window
  EXPECT_EQ(ErrorText(static_cast<uint32_t>(E_ACCESSDENIED)).rfind(L"0x80070005 (", 0), 0u);
  EXPECT_EQ(ErrorText(0x2000BEEF), L"0x2000BEEF");  // no system text
}

// A DLL by that name beside the program (the Downloads folder, for the installer) is never
// what loads; a missing function is a null rather than a crash at its call.
TEST(Os, SystemDllsComeFromSystem32Only) {
  const std::wstring self = RunningExecutablePath();
  const std::wstring planted = self.substr(0, self.rfind(L'\\')) + L"\\hintwick-planted.dll";
  ASSERT_TRUE(CopyFileW(self.c_str(), planted.c_str(), FALSE));
  const struct {
    const wchar_t* library;
    const char* function;
    bool found;
  } cases[] = {{L"winmm.dll", "PlaySoundW", true},
               {L"winmm.dll", "NoSuchExport", false},
               {L"no-such-library.dll", "PlaySoundW", false}};
  for (const auto& c : cases) {
    EXPECT_EQ(SystemProc<FARPROC>(c.library, c.function) != nullptr, c.found) << c.function;
  }
  EXPECT_FALSE(LoadSystemLibrary(L"hintwick-planted.dll"));
  // The plant itself would load by name: only the search keeps it out.
  EXPECT_TRUE(UniqueHmodule(LoadLibraryW(L"hintwick-planted.dll")));
  DeleteFileW(planted.c_str());
  EXPECT_TRUE(WinHttp() && Bcrypt() && WinRt());
}

}  // namespace
}  // namespace qn
