#include "app/drawer_target.h"

#include "core/utf.h"

namespace qn {
namespace {

wchar_t AsciiLower(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + 32) : c; }

bool EqualsIgnoringCase(std::wstring_view a, std::wstring_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (AsciiLower(a[i]) != AsciiLower(b[i])) return false;
  }
  return true;
}

int32_t ScaleEdge(int32_t offset, int32_t from, uint32_t to) {
  if (from <= 0) return 0;
  return static_cast<int32_t>(static_cast<int64_t>(offset) * to / from);
}

}  // namespace

WindowMode ModeOf(const ScreenRect& window, const ScreenRect& monitor, bool d3d_fullscreen) {
  if (!CoversMonitor(window, monitor)) return WindowMode::kWindowed;
  return d3d_fullscreen ? WindowMode::kExclusive : WindowMode::kBorderless;
}

// Windows 10 and 11 give windows invisible resize borders of some 7 pixels a side that
// GetWindowRect counts; a drawer sized by them would overhang the game.
TargetGeometry PlanTarget(const WindowPlace& place, bool d3d_fullscreen, double fraction) {
  const ScreenRect& frame =
      place.frame.Width() > 0 && place.frame.Height() > 0 ? place.frame : place.window;
  TargetGeometry geometry;
  geometry.mode = ModeOf(frame, place.monitor, d3d_fullscreen);
  geometry.target = geometry.mode == WindowMode::kWindowed ? frame : place.monitor;
  geometry.captured = frame;
  // A DPI-unaware game is told 96 wherever it is and stretched by the system; the drawer is
  // drawn at its monitor's scale in any case.
  geometry.dpi = place.monitor_dpi ? place.monitor_dpi : place.window_dpi ? place.window_dpi : 96;
  geometry.drawer = DrawerRect(geometry.target, geometry.dpi, fraction);
  return geometry;
}

FollowSteps PlanFollow(const TargetGeometry& shown, const TargetGeometry& now, bool minimised) {
  if (minimised || now.mode == WindowMode::kExclusive) return {true, false, false};
  const bool resized = shown.drawer.Width() != now.drawer.Width() ||
                       shown.drawer.Height() != now.drawer.Height();
  return {false, shown.drawer != now.drawer, resized || shown.dpi != now.dpi};
}

std::wstring_view FileNameOf(std::wstring_view path) {
  const size_t separator = path.find_last_of(L"\\/");
  return separator == std::wstring_view::npos ? path : path.substr(separator + 1);
}

bool IsShellExecutable(std::wstring_view path) {
  return EqualsIgnoringCase(FileNameOf(path), L"explorer.exe");
}

bool IsFrameHostExecutable(std::wstring_view path) {
  return EqualsIgnoringCase(FileNameOf(path), L"ApplicationFrameHost.exe");
}

std::wstring_view ProgramExecutable(std::wstring_view top_level, std::wstring_view content) {
  return IsFrameHostExecutable(top_level) && !content.empty() ? content : top_level;
}

std::string GameIdentity(std::wstring_view executable_path) {
  std::wstring_view name = FileNameOf(executable_path);
  constexpr std::wstring_view kExe = L".exe";
  if (name.size() > kExe.size() && EqualsIgnoringCase(name.substr(name.size() - kExe.size()), kExe)) {
    name.remove_suffix(kExe.size());
  }
  if (name.empty() || EqualsIgnoringCase(name, kExe)) return kUnknownGame;
  std::wstring lowered(name);
  for (wchar_t& c : lowered) c = AsciiLower(c);
  return WideToUtf8(lowered);
}

ForegroundOutcome OnForegroundChange(bool drawer_open, bool closing, bool drawer_or_target) {
  if (!drawer_open) return ForegroundOutcome::kFollowGame;
  if (closing || drawer_or_target) return ForegroundOutcome::kKeep;
  return ForegroundOutcome::kDismiss;
}

bool KeysHiddenFromHook(const TargetIntegrity& target, uint32_t own_level) {
  if (target.access_denied) return true;
  return target.level && *target.level > own_level;
}

PixelRect CropInFrame(const ScreenRect& drawer, const ScreenRect& captured, PixelSize frame) {
  const int32_t width = captured.Width();
  const int32_t height = captured.Height();
  return {ScaleEdge(drawer.left - captured.left, width, frame.width),
          ScaleEdge(drawer.top - captured.top, height, frame.height),
          ScaleEdge(drawer.right - captured.left, width, frame.width),
          ScaleEdge(drawer.bottom - captured.top, height, frame.height)};
}

}  // namespace qn
