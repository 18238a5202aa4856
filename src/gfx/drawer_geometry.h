#pragma once
// Where the drawer sits over the game, how far it has slid, and when its swap chain has to
// change: the decisions of the drawer window that need no window to make.
#include <cstdint>

namespace qn {

// Screen pixels; right and bottom are exclusive, as in the window manager's rectangles.
struct ScreenRect {
  int32_t left = 0;
  int32_t top = 0;
  int32_t right = 0;
  int32_t bottom = 0;

  int32_t Width() const { return right - left; }
  int32_t Height() const { return bottom - top; }
  friend bool operator==(const ScreenRect&, const ScreenRect&) = default;
};

// Both in pixels at 96 DPI, scaled by the game window's DPI.
constexpr int32_t kDrawerMinHeight = 220;
constexpr int32_t kDrawerMaxWidth = 1600;

// An edge this many pixels short of the monitor's still counts as reaching it.
constexpr int32_t kCoverSlack = 2;

// The drawer resting on the game's bottom edge, centred; fraction is drawer_pct / 100.
// A game rectangle without area gives a drawer without area.
ScreenRect DrawerRect(const ScreenRect& game, uint32_t dpi, double fraction);

bool CoversMonitor(const ScreenRect& window, const ScreenRect& monitor);

constexpr int64_t kSlideOpenMs = 160;
constexpr int64_t kSlideCloseMs = 110;

// The slide value t (also the drawer's opacity) from the milliseconds since the slide began.
float SlideOpening(int64_t elapsed_ms);
float SlideClosing(int64_t elapsed_ms);

// How far below its place the drawer's content lies at slide value t.
float SlideOffset(uint32_t height, float t);

// What moved since the drawer last presented, as one tick finds it.
struct FrameChanges {
  bool first = false;      // nothing drawn on these surfaces yet, or every tick redraws
  bool look = false;       // the blur, the HDR tone map, the size or the scale changed
  bool new_frame = false;  // the game presented a frame newer than the one in the backdrop
  bool moved = false;      // the drawer is placed anew over the game
  bool chat = false;       // text, typing, status line or scrolling
  bool caret = false;      // the caret's blink phase flipped
  bool slide = false;      // the slide value, which is also the opacity of both layers
  uint64_t since_present_ms = 0;
};

// The backdrop (the game's strip, blurred and tinted) and the chat are drawn into layers of
// their own and kept; a present composes the two. Whatever did not change is not redrawn,
// and a tick with nothing new presents nothing at all.
struct FrameWork {
  bool backdrop = false;
  bool chat = false;
  bool present = false;
  friend bool operator==(const FrameWork&, const FrameWork&) = default;
};

// A blink alone waits this long after the last present, so that over a game that delivers
// frames it rides along with the next one instead of adding a present between two.
constexpr uint64_t kCaretWaitMs = 34;

FrameWork PlanFrame(const FrameChanges& changes);

enum class SurfaceChange {
  kRefuse,  // a zero size: no swap chain can have it
  kKeep,
  kResize,  // resize the existing buffers
  kCreate,  // no swap chain yet
};
SurfaceChange PlanSurface(bool has_swap_chain, uint32_t width, uint32_t height, uint32_t new_width,
                          uint32_t new_height);

// The results of Present and of Direct2D's EndDraw that mean the device and everything made
// on it are gone.
constexpr int32_t kDxgiDeviceRemoved = static_cast<int32_t>(0x887A0005u);
constexpr int32_t kDxgiDeviceReset = static_cast<int32_t>(0x887A0007u);
constexpr int32_t kDdiDeviceRemoved = static_cast<int32_t>(0x88760870u);
constexpr int32_t kD2dRecreateTarget = static_cast<int32_t>(0x8899000Cu);

// A device lost again this soon after it was rebuilt is not coming back (an adapter pulled
// out, a driver that keeps failing); rebuilding on every tick would only stall the game.
constexpr uint64_t kRebuildSpacingMs = 2000;

enum class AfterFrame : uint8_t {
  kGoOn,     // shown, or a failure the next tick may not meet
  kRebuild,  // the graphics and the capture start over on a new device
  kClose,
};
// `last_rebuild_ms`: when the graphics were last rebuilt while open, 0 for never.
AfterFrame AfterFrameResult(int32_t hr, uint64_t now_ms, uint64_t last_rebuild_ms);

}  // namespace qn
