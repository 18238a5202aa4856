#pragma once
// Which window the drawer opens over, how, and what follows when the foreground moves: the
// decisions of the drawer control that need no window to make.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "gfx/blur_plan.h"
#include "gfx/drawer_geometry.h"

namespace qn {

enum class WindowMode : uint8_t { kWindowed = 0, kBorderless = 1, kExclusive = 2 };

// `d3d_fullscreen`: the shell says a Direct3D full-screen application runs; false also when
// it cannot say, so that an unreadable state never keeps the drawer from a borderless game.
WindowMode ModeOf(const ScreenRect& window, const ScreenRect& monitor, bool d3d_fullscreen);

// What the window manager says of a window at one moment.
struct WindowPlace {
  ScreenRect window;  // as the window manager has it, invisible resize borders included
  ScreenRect frame;   // what the compositor draws of it; empty when it cannot say
  ScreenRect monitor;
  uint32_t window_dpi = 0;  // 96 for a DPI-unaware window, whatever its monitor's
  uint32_t monitor_dpi = 0;
  bool minimised = false;
  friend bool operator==(const WindowPlace&, const WindowPlace&) = default;
};

struct TargetGeometry {
  WindowMode mode = WindowMode::kWindowed;
  ScreenRect target;    // the monitor for a game covering it, else the visible frame
  ScreenRect drawer;
  ScreenRect captured;  // the screen area the window's frames show: its visible frame
  uint32_t dpi = 96;    // what the drawer's limits and the chat are scaled by
  friend bool operator==(const TargetGeometry&, const TargetGeometry&) = default;
};
TargetGeometry PlanTarget(const WindowPlace& place, bool d3d_fullscreen, double fraction);

// What a tick does when it measures the target again.
struct FollowSteps {
  bool dismiss = false;  // nothing left to sit on, or a game the drawer must not cover
  bool place = false;    // the drawer moves or changes size
  bool rescale = false;  // the chat's size or scale changed
  friend bool operator==(const FollowSteps&, const FollowSteps&) = default;
};
FollowSteps PlanFollow(const TargetGeometry& shown, const TargetGeometry& now, bool minimised);

// The last component of a path, whichever separator it uses.
std::wstring_view FileNameOf(std::wstring_view path);
bool IsShellExecutable(std::wstring_view path);
// A Store app's top-level window belongs to the system's frame host, which draws its title
// bar for every such app; the app's own process owns the content window inside it.
bool IsFrameHostExecutable(std::wstring_view path);
// The executable that names the program behind a top-level window: the content's, when the
// top-level is the frame host's and its content window's process could be read.
std::wstring_view ProgramExecutable(std::wstring_view top_level, std::wstring_view content);

// The catalogue key of a game, from its executable: the file name without its ".exe" ending,
// lower-cased, so that "EldenRing.EXE" and "eldenring.exe" are one game; "unknown" when
// there is no name to go by.
std::string GameIdentity(std::wstring_view executable_path);
inline constexpr char kUnknownGame[] = "unknown";

enum class ForegroundOutcome : uint8_t {
  kFollowGame,  // the drawer is closed: it opens over whatever is in front then
  kDismiss,     // the player went somewhere else while the drawer was open
  kKeep,
};
ForegroundOutcome OnForegroundChange(bool drawer_open, bool closing, bool drawer_or_target);

// What the target process's token says of its integrity level.
struct TargetIntegrity {
  bool access_denied = false;  // itself a sign of a process above ours
  std::optional<uint32_t> level;
};
// A low-level keyboard hook sees nothing typed into a process above its own integrity level,
// so the typing would go on reaching the game.
bool KeysHiddenFromHook(const TargetIntegrity& target, uint32_t own_level);

// The drawer's strip in the pixels of a frame of `captured` (the screen area the frames
// show), which the system may deliver at another size than the window's.
PixelRect CropInFrame(const ScreenRect& drawer, const ScreenRect& captured, PixelSize frame);

}  // namespace qn
