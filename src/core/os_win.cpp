#include "core/os.h"

#include <shellapi.h>

#include <cstdio>
#include <iterator>

#include "core/handles.h"
#include "core/log.h"
#include "core/module_proc.h"

namespace qn {

OsVersion GetOsVersion() {
  // RtlGetVersion is not shimmed by the compatibility layer, so it reports the true build
  // whatever the manifest says.
  using RtlGetVersionFn = LONG(WINAPI*)(OSVERSIONINFOW*);
  auto rtl_get_version = GetModuleProc<RtlGetVersionFn>(L"ntdll.dll", "RtlGetVersion");
  if (!rtl_get_version) return {};
  OSVERSIONINFOW info{};
  info.dwOSVersionInfoSize = sizeof(info);
  rtl_get_version(&info);
  return {info.dwMajorVersion, info.dwMinorVersion, info.dwBuildNumber};
}

bool IsOsSupported() { return GetOsVersion().build >= kMinimumOsBuild; }

unsigned GetWindowDpi(HWND window) {
  // Looked up at run time: the call only exists from Windows 10 1607 on.
  using GetDpiForWindowFn = UINT(WINAPI*)(HWND);
  auto get_dpi = GetModuleProc<GetDpiForWindowFn>(L"user32.dll", "GetDpiForWindow");
  const UINT dpi = get_dpi ? get_dpi(window) : 0;
  return dpi ? dpi : USER_DEFAULT_SCREEN_DPI;
}

bool SystemParametersForDpi(UINT action, UINT size, void* value, UINT dpi) {
  static const auto for_dpi = GetModuleProc<decltype(&::SystemParametersInfoForDpi)>(
      L"user32.dll", "SystemParametersInfoForDpi");
  if (!for_dpi) return SystemParametersInfoW(action, size, value, 0) != FALSE;
  return for_dpi(action, size, value, 0, dpi) != FALSE;
}

bool AdjustWindowRectForDpi(RECT* rect, DWORD style, DWORD ex_style, UINT dpi) {
  static const auto for_dpi = GetModuleProc<decltype(&::AdjustWindowRectExForDpi)>(
      L"user32.dll", "AdjustWindowRectExForDpi");
  if (!for_dpi) return AdjustWindowRectEx(rect, style, FALSE, ex_style) != FALSE;
  return for_dpi(rect, style, FALSE, ex_style, dpi) != FALSE;
}

int SystemMetricForDpi(int index, UINT dpi) {
  static const auto for_dpi =
      GetModuleProc<decltype(&::GetSystemMetricsForDpi)>(L"user32.dll", "GetSystemMetricsForDpi");
  return for_dpi ? for_dpi(index, dpi) : GetSystemMetrics(index);
}

std::wstring ErrorText(uint32_t code) {
  wchar_t hex[16];
  _snwprintf_s(hex, std::size(hex), _TRUNCATE, L"0x%08X", code);
  UniqueLocalMemory buffer;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, code, 0, reinterpret_cast<LPWSTR>(buffer.put()), 0, nullptr);
  std::wstring text(length ? static_cast<const wchar_t*>(buffer.get()) : L"", length);
  while (!text.empty() && (text.back() == L'\r' || text.back() == L'\n')) text.pop_back();
  if (text.empty()) return hex;
  return std::wstring(hex) + L" (" + text + L")";
}

std::wstring RunningExecutablePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0) return {};
    // A full buffer means the name may have been cut short.
    if (length < path.size()) return path.substr(0, length);
    path.resize(path.size() * 2);
  }
}

bool StartProgram(const std::wstring& path, uint32_t level) {
  const auto result = reinterpret_cast<INT_PTR>(
      ShellExecuteW(nullptr, L"open", path.c_str(), nullptr, nullptr, SW_SHOWNORMAL));
  if (result > 32) return true;
  Log(level, L"ShellExecuteW failed (%lld) for %ls", static_cast<long long>(result), path.c_str());
  return false;
}

bool EnsureWindowClass(const WNDCLASSEXW& window_class) {
  return RegisterClassExW(&window_class) != 0 || GetLastError() == ERROR_CLASS_ALREADY_EXISTS;
}

}  // namespace qn
