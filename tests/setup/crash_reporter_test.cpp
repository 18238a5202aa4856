// A program that crashes for real, in a process of its own: what the player and a developer
// get afterwards is the dump file, the log line and the box, so that is what is checked.
#include <windows.h>

#include <dbghelp.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <cwchar>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/utf.h"
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
  return std::wstring(CrashDumpPath(data_dir, {now.wYear, now.wMonth, now.wDay, now.wHour,
                                               now.wMinute, now.wSecond})
                          .view());
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
Crash RunCrashingChild(const std::wstring& local, const std::wstring& log_path, const wchar_t* how) {
  wchar_t self[MAX_PATH * 2] = {};
  GetModuleFileNameW(nullptr, self, MAX_PATH * 2);
  const auto child = std::filesystem::path(self).replace_filename(L"hintwick_crash_child.exe");
  // Wine, like Windows, takes the folder from the user's shell folders, not the environment.
  const test::SavedRegistryValue redirect(test::kShellFoldersKey, L"Local AppData");
  redirect.Set(local);
  Crash crash;
  crash.earliest = NowAsDumpPath(local + L"\\Hintwick");
  crash.result = test::RunProcess(child, L"\"" + log_path + L"\" " + how, 60000, &crash.boxes);
  crash.latest = NowAsDumpPath(local + L"\\Hintwick");
  crash.log = test::ReadFileBytes(log_path).value_or("");
  return crash;
}

// Every way the program can die reaches the same report, on a thread of its own: a stack
// overflow leaves no room on the crashed one. Once the data directory is a file instead:
// nothing can be created under a file, not even by an administrator, so there the dump
// fails while the line and the box still name the path that was tried.
TEST(CrashReporterTest, ACrashLeavesADumpALogLineAndABox) {
  const struct {
    const wchar_t* how;
    bool writable;
    DWORD code;
  } cases[] = {
      {L"access", true, EXCEPTION_ACCESS_VIOLATION},
      {L"access", false, EXCEPTION_ACCESS_VIOLATION},
      {L"overflow", true, EXCEPTION_STACK_OVERFLOW},
      {L"abort", true, kAbortCrashCode},
      {L"terminate", true, kTerminateCrashCode},
      {L"purecall", true, kPureCallCrashCode},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.how << (c.writable ? "" : ", a file for the folder"));
    const test::TempDir scratch;
    const std::wstring local = scratch.File(L"Local");
    std::filesystem::create_directories(c.writable ? local + L"\\Hintwick" : local);
    if (!c.writable) test::WriteFileBytes(local + L"\\Hintwick", "not a folder");
    const Crash crash = RunCrashingChild(local, scratch.File(L"child.log"), c.how);

    ASSERT_TRUE(crash.result.finished);
    EXPECT_EQ(crash.result.exit_code, c.code);
    char hex[16];
    std::snprintf(hex, sizeof(hex), "0x%08lX", static_cast<unsigned long>(c.code));
    const std::string line = "ERROR CRASH: " + WideToUtf8(CrashCause(c.code)) + " " + hex + " at ";
    EXPECT_NE(crash.log.find(line), std::string::npos) << crash.log;
    EXPECT_NE(crash.log.find("INFO  step before the box (box up: no)"), std::string::npos);
    const std::wstring path = LoggedDumpPath(crash.log);
    // One fixed-width name a second, so text order is time order, and a path between the
    // two is in the data directory.
    EXPECT_GE(path, crash.earliest);
    EXPECT_LE(path, crash.latest);
    const std::optional<ULONG> code = c.writable ? std::optional<ULONG>(c.code) : std::nullopt;
    EXPECT_EQ(DumpedExceptionCode(test::ReadFileBytes(path).value_or("")), code);
    EXPECT_EQ(crash.boxes, std::vector<std::wstring>{std::wstring(CrashMessage(path).view())});
  }
}

}  // namespace
}  // namespace qn
