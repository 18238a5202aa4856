#pragma once
// Small queries about the system that several subsystems share.
#include <cstdint>
#include <string>

#ifdef _WIN32
#include <windows.h>
#endif

namespace qn {

struct OsVersion {
  uint32_t major = 0;
  uint32_t minor = 0;
  uint32_t build = 0;
};

// The first build with the window capture interface that the drawer's backdrop needs.
constexpr uint32_t kMinimumOsBuild = 18362;

#ifdef _WIN32
OsVersion GetOsVersion();
bool IsOsSupported();
unsigned GetWindowDpi(HWND window);
// The per-DPI forms of three user32 calls. They exist from Windows 10 1607 on and are looked
// up at run time, so that older systems reach the version refusal rather than a loader
// error; where missing, the system-DPI form answers instead.
bool SystemParametersForDpi(UINT action, UINT size, void* value, UINT dpi);
bool AdjustWindowRectForDpi(RECT* rect, DWORD style, DWORD ex_style, UINT dpi);
int SystemMetricForDpi(int index, UINT dpi);
// Registers the class, or finds it registered by an earlier object of this process. False
// with GetLastError set when it cannot be had.
bool EnsureWindowClass(const WNDCLASSEXW& window_class);
std::wstring ErrorText(uint32_t code);
// The full path of this process's executable; empty, with GetLastError set, when it cannot
// be had whole.
std::wstring RunningExecutablePath();
// Starts the program at `path` as the shell would; a refusal is logged at `level`.
bool StartProgram(const std::wstring& path, uint32_t level);
#endif

}  // namespace qn
