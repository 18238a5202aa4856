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

#include "setup/crash_report.h"
#include "support/saved_registry_value_win.h"
#include "support/test_files.h"

namespace qn {
namespace {

using test::ReadAt;

// The code in a minidump's exception stream; nothing when the file is no minidump or has no
// such stream.
std::optional<ULONG> DumpedExceptionCode(std::string_view dump) {
  if (!dump.starts_with("MDMP")) return std::nullopt;
  const auto header = ReadAt<MINIDUMP_HEADER>(dump, 0);
  for (ULONG i = 0; i < header.NumberOfStreams; ++i) {
    const size_t at = header.StreamDirectoryRva + i * sizeof(MINIDUMP_DIRECTORY);
    const auto entry = ReadAt<MINIDUMP_DIRECTORY>(dump, at);
    if (entry.StreamType != ExceptionStream) continue;
    const auto stream = ReadAt<MINIDUMP_EXCEPTION_STREAM>(dump, entry.Location.Rva);
    return stream.ExceptionRecord.ExceptionCode;
  }
  return std::nullopt;
}

std::wstring NowAsDumpPath(const std::wstring& data_dir) {
  SYSTEMTIME now{};
  GetLocalTime(&now);
  return CrashDumpPath(data_dir, {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
                                  now.wSecond});
}

// The path that the crash line names, as wide text.
std::wstring LoggedDumpPath(const std::string& log) {
  const std::string marker = "; dump written to ";
  const size_t at = log.find(marker);
  if (at == std::string::npos) return {};
  const size_t from = at + marker.size();
  return std::filesystem::path(log.substr(from, log.find('\r', from) - from)).wstring();
}

struct Crash {
  test::ProcessResult result;
  std::vector<std::wstring> boxes;
  std::string log;
  std::wstring earliest, latest;  // the dump's name had it been made at the start, at the end
};

// Runs the child with the local application data folder at `local` and its log at `log_path`.
Crash RunCrashingChild(const std::wstring& local, const std::wstring& log_path) {
  wchar_t self[MAX_PATH * 2] = {};
  GetModuleFileNameW(nullptr, self, MAX_PATH * 2);
  const auto child = std::filesystem::path(self).replace_filename(L"hintwick_crash_child.exe");
  // Wine, like Windows, takes the folder from the user's shell folders, not the environment.
  const test::SavedRegistryValue redirect(test::kShellFoldersKey, L"Local AppData");
  redirect.Set(local);
  Crash crash;
  crash.earliest = NowAsDumpPath(local + L"\\Hintwick");
  crash.result = test::RunProcess(child, L"\"" + log_path + L"\"", 60000, &crash.boxes);
  crash.latest = NowAsDumpPath(local + L"\\Hintwick");
  crash.log = test::ReadFileBytes(log_path).value_or("");
  return crash;
}

// Once with a data directory to write to, once with a file in its place: nothing can be
// created under a file, not even by an administrator, so there the dump fails while the line
// and the box still name the path that was tried.
TEST(CrashReporterTest, ACrashLeavesADumpALogLineAndABox) {
  for (const bool writable : {true, false}) {
    SCOPED_TRACE(writable ? "writable data directory" : "a file in its place");
    const test::TempDir scratch;
    const std::wstring local = scratch.File(L"Local");
    std::filesystem::create_directories(writable ? local + L"\\Hintwick" : local);
    if (!writable) test::WriteFileBytes(local + L"\\Hintwick", "not a folder");
    const Crash crash = RunCrashingChild(local, scratch.File(L"child.log"));

    ASSERT_TRUE(crash.result.finished);
    EXPECT_EQ(crash.result.exit_code, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    EXPECT_NE(crash.log.find("ERROR CRASH: unhandled exception 0xC0000005 at "), std::string::npos)
        << crash.log;
    const std::wstring path = LoggedDumpPath(crash.log);
    // One fixed-width name a second, so text order is time order, and a path between the
    // two is in the data directory.
    EXPECT_GE(path, crash.earliest);
    EXPECT_LE(path, crash.latest);
    const std::optional<ULONG> code =
        writable ? std::optional<ULONG>(EXCEPTION_ACCESS_VIOLATION) : std::nullopt;
    EXPECT_EQ(DumpedExceptionCode(test::ReadFileBytes(path).value_or("")), code);
    EXPECT_EQ(crash.boxes, std::vector<std::wstring>{CrashMessage(path)});
  }
}

}  // namespace
}  // namespace qn
