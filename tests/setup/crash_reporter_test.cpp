// A program that crashes for real, in a process of its own: what the player and a developer
// get afterwards is the dump file, the log line and the box, so that is what is checked.
#include <windows.h>

#include <dbghelp.h>
#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/handles.h"
#include "setup/crash_report.h"
#include "support/test_files.h"

namespace qn {
namespace {

template <typename T>
T ReadAt(std::string_view bytes, size_t offset) {
  T value{};
  if (offset + sizeof(T) <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}

std::wstring ChildPath() {
  wchar_t path[MAX_PATH * 2] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH * 2);
  std::wstring folder(path);
  folder.resize(folder.find_last_of(L'\\'));
  return folder + L"\\hintwick_crash_child.exe";
}

std::wstring NowAsDumpPath(const std::wstring& data_dir) {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return CrashDumpPath(data_dir, {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
                                  now.wSecond});
}

std::vector<std::wstring> Dumps(const std::wstring& folder) {
  std::vector<std::wstring> found;
  std::error_code missing;
  for (const auto& entry : std::filesystem::directory_iterator(folder, missing)) {
    const std::wstring name = entry.path().filename().wstring();
    if (name.starts_with(L"crash-") && name.ends_with(L".dmp")) found.push_back(entry.path().wstring());
  }
  return found;
}

// The exception stream of a minidump, or nothing when the file is no minidump or has none.
std::optional<MINIDUMP_EXCEPTION_STREAM> ReadExceptionStream(std::string_view dump) {
  if (!dump.starts_with("MDMP")) return std::nullopt;
  const auto header = ReadAt<MINIDUMP_HEADER>(dump, 0);
  for (ULONG i = 0; i < header.NumberOfStreams; ++i) {
    const auto entry =
        ReadAt<MINIDUMP_DIRECTORY>(dump, header.StreamDirectoryRva + i * sizeof(MINIDUMP_DIRECTORY));
    if (entry.StreamType == ExceptionStream) {
      return ReadAt<MINIDUMP_EXCEPTION_STREAM>(dump, entry.Location.Rva);
    }
  }
  return std::nullopt;
}

struct Crash {
  test::ProcessResult result;
  std::vector<std::wstring> boxes;
  std::string log;
  std::wstring earliest_dump_path;  // the name a dump made at the start would have
  std::wstring latest_dump_path;    // and at the end
};

// Points the known local application data folder, which the child's data directory is
// built on, at a scratch folder for the life of the object. Wine, like Windows, takes it from
// the user's shell folders key, not from the environment. The key is the bench prefix's own,
// and the old value comes back at the end.
class LocalAppDataRedirect {
 public:
  explicit LocalAppDataRedirect(const std::wstring& folder) {
    RegCreateKeyExW(HKEY_CURRENT_USER, kKey, 0, nullptr, 0, KEY_QUERY_VALUE | KEY_SET_VALUE,
                    nullptr, key_.put(), nullptr);
    DWORD size = sizeof(saved_);
    if (RegQueryValueExW(key_.get(), kValue, nullptr, nullptr, reinterpret_cast<BYTE*>(saved_),
                         &size) != ERROR_SUCCESS) {
      saved_[0] = L'\0';
    }
    Set(folder.c_str());
  }
  ~LocalAppDataRedirect() {
    if (saved_[0]) Set(saved_);
    else RegDeleteValueW(key_.get(), kValue);
  }
  LocalAppDataRedirect(const LocalAppDataRedirect&) = delete;
  LocalAppDataRedirect& operator=(const LocalAppDataRedirect&) = delete;

 private:
  void Set(const wchar_t* folder) {
    RegSetValueExW(key_.get(), kValue, 0, REG_EXPAND_SZ, reinterpret_cast<const BYTE*>(folder),
                   static_cast<DWORD>((std::wcslen(folder) + 1) * sizeof(wchar_t)));
  }

  static constexpr const wchar_t* kKey =
      L"Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\User Shell Folders";
  static constexpr const wchar_t* kValue = L"Local AppData";
  UniqueHkey key_;
  wchar_t saved_[MAX_PATH * 2] = {};
};

class CrashReporterTest : public ::testing::Test {
 protected:
  std::wstring LocalAppData() const { return scratch_.File(L"Local"); }
  std::wstring DataDir() const { return LocalAppData() + L"\\Hintwick"; }

  Crash RunCrashingChild() {
    Crash crash;
    const LocalAppDataRedirect redirect(LocalAppData());
    crash.earliest_dump_path = NowAsDumpPath(DataDir());
    crash.result = test::RunProcess(ChildPath(), L"\"" + scratch_.File(L"child.log") + L"\"",
                                    60000, &crash.boxes);
    crash.latest_dump_path = NowAsDumpPath(DataDir());
    crash.log = test::ReadFileBytes(scratch_.File(L"child.log")).value_or("");
    return crash;
  }

  test::TempDir scratch_;
};

// The path that the crash line names, as wide text.
std::wstring LoggedDumpPath(const std::string& log) {
  const std::string marker = "; dump written to ";
  const size_t at = log.find(marker);
  if (at == std::string::npos) return {};
  const size_t from = at + marker.size();
  return std::filesystem::path(log.substr(from, log.find('\r', from) - from)).wstring();
}

TEST_F(CrashReporterTest, AnAccessViolationLeavesADumpALogLineAndABox) {
  std::filesystem::create_directories(DataDir());
  const Crash crash = RunCrashingChild();
  ASSERT_TRUE(crash.result.finished);
  EXPECT_EQ(crash.result.exit_code, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));

  const std::vector<std::wstring> dumps = Dumps(DataDir());
  ASSERT_EQ(dumps.size(), 1u);
  const std::wstring& path = dumps[0];
  // Same fixed-width format throughout, so text order is time order.
  EXPECT_GE(path, crash.earliest_dump_path);
  EXPECT_LE(path, crash.latest_dump_path);

  const std::string dump = test::ReadFileBytes(path).value_or("");
  const auto exception = ReadExceptionStream(dump);
  ASSERT_TRUE(exception) << "not a minidump with an exception stream";
  // Threads, referenced memory, unloaded modules, scanned memory; no full memory.
  EXPECT_EQ(ReadAt<MINIDUMP_HEADER>(dump, 0).Flags, 0x1070u);
  EXPECT_EQ(exception->ExceptionRecord.ExceptionCode, static_cast<ULONG>(EXCEPTION_ACCESS_VIOLATION));
  EXPECT_NE(exception->ExceptionRecord.ExceptionAddress, 0u);
  EXPECT_NE(exception->ThreadId, 0u);

  EXPECT_NE(crash.log.find("ERROR CRASH: unhandled exception 0xC0000005 at "), std::string::npos)
      << crash.log;
  EXPECT_EQ(LoggedDumpPath(crash.log), path);
  EXPECT_EQ(crash.boxes, std::vector<std::wstring>{CrashMessage(path)});
}

// A file where the data directory should be: nothing can be created under it, not even by
// an administrator, so the dump fails while the line and the box still name the path tried.
TEST_F(CrashReporterTest, AnUnwritableDataDirectoryStillGivesTheLineAndTheBox) {
  std::filesystem::create_directories(LocalAppData());
  test::WriteFileBytes(DataDir(), "not a folder");
  const Crash crash = RunCrashingChild();
  ASSERT_TRUE(crash.result.finished);

  EXPECT_TRUE(Dumps(LocalAppData()).empty());
  EXPECT_NE(crash.log.find("ERROR CRASH: unhandled exception 0xC0000005 at "), std::string::npos)
      << crash.log;
  const std::wstring tried = LoggedDumpPath(crash.log);
  EXPECT_GE(tried, crash.earliest_dump_path);
  EXPECT_LE(tried, crash.latest_dump_path);
  EXPECT_EQ(crash.boxes, std::vector<std::wstring>{CrashMessage(tried)});
}

}  // namespace
}  // namespace qn
