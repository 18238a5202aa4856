#include "support/test_game_win.h"

#include <string>

#include "support/test_files.h"

namespace qn::test {
namespace {

HWND FindGameOf(DWORD process_id) {
  for (HWND window = FindWindowW(L"HintwickTestGame", nullptr); window;
       window = FindWindowExW(nullptr, window, L"HintwickTestGame", nullptr)) {
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    if (owner == process_id) return window;
  }
  return nullptr;
}

}  // namespace

TestGame::TestGame(const RECT& rect) {
  std::wstring command = L"\"" + SupportProgram(L"hintwick_test_game.exe") + L"\" " + std::to_wstring(rect.left) + L" " +
                         std::to_wstring(rect.top) + L" " + std::to_wstring(rect.right - rect.left) +
                         L" " + std::to_wstring(rect.bottom - rect.top);
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION info = {};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                      nullptr, &startup, &info)) {
    return;
  }
  process_.reset(info.hProcess);
  CloseHandle(info.hThread);
  const DWORD id = info.dwProcessId;
  PumpUntil([&] { return (window_ = FindGameOf(id)) != nullptr; });
  if (window_ && !BringToFront()) window_ = nullptr;
}

TestGame::~TestGame() { Quit(); }

bool TestGame::BringToFront() const {
  return PumpUntil([&] {
    if (GetForegroundWindow() == window_) return true;
    SetForegroundWindow(window_);
    return false;
  });
}

void TestGame::Quit() {
  if (!process_) return;
  if (IsWindow(window_)) PostMessageW(window_, WM_CLOSE, 0, 0);
  if (WaitForSingleObject(process_.get(), 10000) != WAIT_OBJECT_0) {
    TerminateProcess(process_.get(), 1);
  }
  process_.reset();
  window_ = nullptr;
}

int RunOnX(std::vector<const char*> argv) {
  using Spawn = LONG(__cdecl*)(const char* const* argv, int wait);
  const auto spawn = reinterpret_cast<Spawn>(reinterpret_cast<void*>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "__wine_unix_spawnvp")));
  if (!spawn) return -1;
  argv.push_back(nullptr);
  return spawn(argv.data(), 1);
}

}  // namespace qn::test
