#pragma once
// File and process helpers shared by the Windows tests.
#include <windows.h>

#include <optional>
#include <string>

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

std::optional<std::string> ReadFileBytes(const std::wstring& path);
void WriteFileBytes(const std::wstring& path, const std::string& bytes);
bool PathExists(const std::wstring& path);

// The Windows path of a program built next to the tests, from HINTWICK_EXE.
std::optional<std::wstring> HintwickExePath();

struct ProcessResult {
  bool finished = false;
  DWORD exit_code = 0;
};
// Starts a program and waits for it, at most timeout_ms.
ProcessResult RunProcess(const std::wstring& program, const std::wstring& arguments,
                         DWORD timeout_ms);

}  // namespace qn::test
