#pragma once
// File and process helpers shared by the Windows tests.
#include <windows.h>

#include <cstring>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qn::test {

// A fresh folder under the temporary directory, removed with everything in it at the end.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::wstring& path() const { return path_; }
  std::wstring File(const std::wstring& name) const { return path_ + L"\\" + name; }

 private:
  std::wstring path_;
};

// Sends the process-wide log to a fresh file for the life of the object, and reads it back.
class CapturedLog {
 public:
  CapturedLog();
  ~CapturedLog();
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::string Text() const;
  bool Has(const std::string& fragment) const { return Count(fragment) > 0; }
  size_t Count(const std::string& fragment) const;
  // Starts a new, empty file.
  void Clear();

 private:
  TempDir dir_;
};

std::optional<std::string> ReadFileBytes(const std::wstring& path);
// A value of a file format at `offset`; zero past the end, so a short file reads as empty.
template <typename T>
T ReadAt(std::string_view bytes, size_t offset) {
  T value{};
  if (offset + sizeof(T) <= bytes.size()) std::memcpy(&value, bytes.data() + offset, sizeof(T));
  return value;
}
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
bool PathExists(const std::wstring& path);

// A program built with the test helpers, in tests/support beside the test folders.
std::wstring SupportProgram(const wchar_t* name);

// The Windows path of a program built next to the tests, from HINTWICK_EXE.
std::optional<std::wstring> HintwickExePath();

struct ProcessResult {
  bool finished = false;
  DWORD exit_code = 0;
};
// Starts a program and waits for it, at most timeout_ms. With `boxes`, each message box the
// program shows is answered with `answer` (IDOK, IDYES...) as it appears, and its text kept there.
ProcessResult RunProcess(const std::wstring& program, const std::wstring& arguments,
                         DWORD timeout_ms, std::vector<std::wstring>* boxes = nullptr,
                         WPARAM answer = IDOK);

}  // namespace qn::test
