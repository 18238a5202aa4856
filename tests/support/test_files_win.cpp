#include "support/test_files.h"

#include "core/handles.h"
#include "core/log.h"

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

namespace qn::test {

TempDir::TempDir() {
  static std::atomic<unsigned> counter{0};
  wchar_t base[MAX_PATH + 1];
  GetTempPathW(static_cast<DWORD>(std::size(base)), base);
  path_ = std::wstring(base) + L"hintwick-test-" + std::to_wstring(GetCurrentProcessId()) +
          L"-" + std::to_wstring(counter++);
  std::filesystem::remove_all(path_);
  std::filesystem::create_directories(path_);
}

TempDir::~TempDir() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

CapturedLog::CapturedLog() { Clear(); }

CapturedLog::~CapturedLog() { CloseLog(); }

void CapturedLog::Clear() { OpenLogAt(dir_.File(L"test.log")); }

std::string CapturedLog::Text() const {
  return ReadFileBytes(dir_.File(L"test.log")).value_or(std::string());
}

size_t CapturedLog::Count(const std::string& fragment) const {
  if (fragment.empty()) return 0;
  const std::string text = Text();
  size_t count = 0;
  for (size_t at = text.find(fragment); at != std::string::npos;
       at = text.find(fragment, at + fragment.size())) {
    ++count;
  }
  return count;
}

std::optional<std::string> ReadFileBytes(const std::wstring& path) {
  std::ifstream in(std::filesystem::path(path), std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes) {
  std::ofstream out(std::filesystem::path(path), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

bool PathExists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::wstring SupportProgram(const wchar_t* name) {
  wchar_t path[MAX_PATH * 2] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH * 2);
  std::wstring folder(path);
  folder.resize(folder.find_last_of(L'\\'));
  return folder + L"\\..\\support\\" + name;
}

std::optional<std::wstring> HintwickExePath() {
  wchar_t buffer[MAX_PATH * 2];
  const DWORD length =
      GetEnvironmentVariableW(L"HINTWICK_EXE", buffer, static_cast<DWORD>(std::size(buffer)));
  if (length == 0 || length >= std::size(buffer)) return std::nullopt;
  return std::wstring(buffer, length);
}

namespace {

struct BoxSearch {
  DWORD process_id;
  std::vector<std::wstring>* texts;
  WPARAM answer;
};

BOOL CALLBACK AnswerBox(HWND window, LPARAM search_address) {
  const auto& search = *reinterpret_cast<const BoxSearch*>(search_address);
  DWORD owner = 0;
  GetWindowThreadProcessId(window, &owner);
  wchar_t kind[16] = {};
  if (owner != search.process_id || !IsWindowVisible(window) || !GetClassNameW(window, kind, 16) ||
      std::wstring_view(kind) != L"#32770") {
    return TRUE;
  }
  wchar_t text[1024] = {};
  GetDlgItemTextW(window, 0xFFFF, text, 1024);  // a message box's static text
  search.texts->push_back(text);
  SendMessageW(window, WM_COMMAND, search.answer, 0);
  return TRUE;
}

// Polled: a message box of another process announces itself to nobody.
bool WaitAnsweringBoxes(HANDLE process, DWORD process_id, DWORD timeout_ms,
                        std::vector<std::wstring>* boxes, WPARAM answer) {
  const ULONGLONG deadline = GetTickCount64() + timeout_ms;
  BoxSearch search{process_id, boxes, answer};
  while (WaitForSingleObject(process, boxes ? 50 : timeout_ms) == WAIT_TIMEOUT) {
    if (!boxes || GetTickCount64() > deadline) return false;
    EnumWindows(&AnswerBox, reinterpret_cast<LPARAM>(&search));
  }
  return true;
}

}  // namespace

ProcessResult RunProcess(const std::wstring& program, const std::wstring& arguments,
                         DWORD timeout_ms, std::vector<std::wstring>* boxes, WPARAM answer) {
  std::wstring command_line = L"\"" + program + L"\" " + arguments;
  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process{};
  if (!CreateProcessW(program.c_str(), command_line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                      nullptr, &startup, &process)) {
    return {};
  }
  const UniqueKernelHandle thread(process.hThread);
  const UniqueKernelHandle handle(process.hProcess);
  ProcessResult result;
  result.finished =
      WaitAnsweringBoxes(handle.get(), process.dwProcessId, timeout_ms, boxes, answer);
  if (result.finished) {
    GetExitCodeProcess(handle.get(), &result.exit_code);
  } else {
    TerminateProcess(handle.get(), 1);
  }
  return result;
}

}  // namespace qn::test
