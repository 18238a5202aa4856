#include "app/target_window_win.h"

#include <dwmapi.h>
#include <shellapi.h>

#include "core/failure_log.h"
#include "core/handles.h"
#include "core/module_proc.h"
#include "core/os.h"
#include "gfx/drawer_window.h"

namespace qn {
namespace {

DWORD ProcessOf(HWND window) {
  DWORD process = 0;
  GetWindowThreadProcessId(window, &process);
  return process;
}

// Empty when the process cannot be opened or is gone.
std::wstring ImagePathOf(DWORD process_id) {
  if (process_id == 0) return {};
  const UniqueKernelHandle process(
      OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  if (!process) return {};
  wchar_t path[MAX_PATH * 2] = {};
  DWORD size = MAX_PATH * 2;
  if (!QueryFullProcessImageNameW(process.get(), 0, path, &size)) return {};
  return std::wstring(path, size);
}

// The frame host's window holds the app's content as a direct child of this class, made by
// the app's own process. A suspended or minimised app's content is taken out of the frame,
// which then names no other process: 0.
DWORD ContentProcessOf(HWND frame, DWORD frame_process) {
  for (HWND child = FindWindowExW(frame, nullptr, L"Windows.UI.Core.CoreWindow", nullptr); child;
       child = FindWindowExW(frame, child, L"Windows.UI.Core.CoreWindow", nullptr)) {
    if (const DWORD process = ProcessOf(child); process != frame_process) return process;
  }
  return 0;
}

// Shell scaling lives in a library that is not among those the loader pins to System32, so
// it is loaded from there by name, and looked up at run time. It stays loaded for the life of
// the process.
using GetDpiForMonitorFn = HRESULT(WINAPI*)(HMONITOR, int, UINT*, UINT*);
GetDpiForMonitorFn DpiForMonitorCall() {
  static const GetDpiForMonitorFn call = [] {
    const HMODULE module = LoadLibraryExW(L"shcore.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
    const FARPROC proc = module ? GetProcAddress(module, "GetDpiForMonitor") : nullptr;
    return reinterpret_cast<GetDpiForMonitorFn>(reinterpret_cast<void*>(proc));
  }();
  return call;
}

// The effective DPI, the one the player's scale setting gives; 0 when it cannot be had.
uint32_t MonitorDpi(HMONITOR monitor) {
  constexpr int kEffectiveDpi = 0;
  UINT x = 0, y = 0;
  const GetDpiForMonitorFn call = DpiForMonitorCall();
  if (!call || FAILED(call(monitor, kEffectiveDpi, &x, &y))) return 0;
  return x;
}

ScreenRect MonitorRect(HMONITOR monitor) {
  MONITORINFO info = {};
  info.cbSize = sizeof(info);
  if (!GetMonitorInfoW(monitor, &info)) return {};
  return ToScreenRect(info.rcMonitor);
}

std::optional<uint32_t> IntegrityLevel(HANDLE token) {
  DWORD size = 0;
  GetTokenInformation(token, TokenIntegrityLevel, nullptr, 0, &size);
  if (size == 0) return std::nullopt;
  std::string buffer(size, '\0');
  if (!GetTokenInformation(token, TokenIntegrityLevel, buffer.data(), size, &size)) {
    return std::nullopt;
  }
  const PSID sid = reinterpret_cast<const TOKEN_MANDATORY_LABEL*>(buffer.data())->Label.Sid;
  const UCHAR count = *GetSidSubAuthorityCount(sid);
  if (count == 0) return std::nullopt;
  return *GetSidSubAuthority(sid, count - 1u);
}

TargetIntegrity IntegrityOf(DWORD process_id) {
  const UniqueKernelHandle process(
      OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION, FALSE, process_id));
  HANDLE token = nullptr;
  if (!process || !OpenProcessToken(process.get(), TOKEN_QUERY, &token)) {
    return {GetLastError() == ERROR_ACCESS_DENIED, std::nullopt};
  }
  const UniqueKernelHandle owned_token(token);
  return {false, IntegrityLevel(token)};
}

}  // namespace

std::wstring ExecutablePathOf(HWND window) {
  const DWORD process = ProcessOf(window);
  std::wstring top_level = ImagePathOf(process);
  if (!IsFrameHostExecutable(top_level)) return top_level;
  return std::wstring(ProgramExecutable(top_level, ImagePathOf(ContentProcessOf(window, process))));
}

std::wstring WindowTitle(HWND window) {
  wchar_t title[256] = {};
  const int length = GetWindowTextW(window, title, 256);
  return std::wstring(title, length > 0 ? static_cast<size_t>(length) : 0);
}

bool BelongsToThisProcess(HWND window) { return ProcessOf(window) == GetCurrentProcessId(); }

// Our process is per-monitor aware, so every rectangle here is in physical pixels.
ScreenRect WindowRectOf(HWND window) {
  RECT rect = {};
  GetWindowRect(window, &rect);
  return ToScreenRect(rect);
}

WindowPlace MeasureWindow(HWND window) {
  WindowPlace place;
  place.window = WindowRectOf(window);
  RECT rect = {};
  static const SystemFunction<decltype(&::DwmGetWindowAttribute)> attribute(
      L"dwmapi.dll", "DwmGetWindowAttribute");
  if (attribute &&
      SUCCEEDED(attribute.get()(window, DWMWA_EXTENDED_FRAME_BOUNDS, &rect, sizeof(rect)))) {
    place.frame = ToScreenRect(rect);
  }
  const HMONITOR monitor = MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST);
  place.monitor = MonitorRect(monitor);
  place.window_dpi = GetWindowDpi(window);
  place.monitor_dpi = MonitorDpi(monitor);
  place.minimised = IsIconic(window) != FALSE;
  return place;
}

// Only the windows above `lower` are walked: for the topmost drawer, the few other topmost
// ones.
bool IsAbove(HWND upper, HWND lower) {
  for (HWND w = GetWindow(lower, GW_HWNDPREV); w; w = GetWindow(w, GW_HWNDPREV)) {
    if (w == upper) return true;
  }
  return false;
}

bool ShellReportsD3dFullscreen() {
  QUERY_USER_NOTIFICATION_STATE state = {};
  return SUCCEEDED(SHQueryUserNotificationState(&state)) && state == QUNS_RUNNING_D3D_FULL_SCREEN;
}

// A token of our own that cannot be read is taken for the usual medium level, so that the
// drawer keeps the game's focus unless the game is known to be above it.
bool KeysHiddenFromHookIn(HWND window) {
  const TargetIntegrity own = IntegrityOf(GetCurrentProcessId());
  return KeysHiddenFromHook(IntegrityOf(ProcessOf(window)),
                            own.level.value_or(SECURITY_MANDATORY_MEDIUM_RID));
}

}  // namespace qn
