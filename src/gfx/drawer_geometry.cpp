#include "gfx/drawer_geometry.h"

#include <algorithm>

namespace qn {
namespace {

// Fractions such as 0.29 are stored a hair below their value, and 800 * 0.29 would
// truncate to 231; the drawer is meant to be 232 there.
constexpr double kRepresentationSlack = 1e-6;

int32_t Scaled(int32_t pixels96, uint32_t dpi) {
  const double scale = dpi == 0 ? 1.0 : dpi / 96.0;
  return static_cast<int32_t>(pixels96 * scale);
}

}  // namespace

ScreenRect DrawerRect(const ScreenRect& game, uint32_t dpi, double fraction) {
  const int32_t game_width = std::max(game.Width(), 0);
  const int32_t game_height = std::max(game.Height(), 0);
  const auto share = static_cast<int32_t>(game_height * fraction + kRepresentationSlack);
  const int32_t height = std::min(std::max(share, Scaled(kDrawerMinHeight, dpi)), game_height);
  const int32_t width = std::min(game_width, Scaled(kDrawerMaxWidth, dpi));
  const int32_t left = game.left + (game_width - width) / 2;
  return {left, game.bottom - height, left + width, game.bottom};
}

bool CoversMonitor(const ScreenRect& window, const ScreenRect& monitor) {
  // Reaching past an edge counts too: some borderless games overhang their monitor.
  return window.left <= monitor.left + kCoverSlack && window.top <= monitor.top + kCoverSlack &&
         window.right >= monitor.right - kCoverSlack &&
         window.bottom >= monitor.bottom - kCoverSlack;
}

float SlideOpening(int64_t elapsed_ms) {
  if (elapsed_ms <= 0) return 0.0f;
  if (elapsed_ms >= kSlideOpenMs) return 1.0f;
  return static_cast<float>(elapsed_ms) / kSlideOpenMs;
}

float SlideClosing(int64_t elapsed_ms) {
  if (elapsed_ms <= 0) return 1.0f;
  if (elapsed_ms >= kSlideCloseMs) return 0.0f;
  return 1.0f - static_cast<float>(elapsed_ms) / kSlideCloseMs;
}

float SlideOffset(uint32_t height, float t) {
  // Written so that a NaN lands on "hidden" rather than reaching the compositor.
  const float shown = t >= 1.0f ? 1.0f : (t > 0.0f ? t : 0.0f);
  return static_cast<float>(height) * (1.0f - shown);
}

SurfaceChange PlanSurface(bool has_swap_chain, uint32_t width, uint32_t height, uint32_t new_width,
                          uint32_t new_height) {
  if (new_width == 0 || new_height == 0) return SurfaceChange::kRefuse;
  if (!has_swap_chain) return SurfaceChange::kCreate;
  if (width == new_width && height == new_height) return SurfaceChange::kKeep;
  return SurfaceChange::kResize;
}

FrameWork PlanFrame(const FrameChanges& changes) {
  const bool all = changes.first || changes.look;
  const bool blink_due = changes.caret && changes.since_present_ms >= kCaretWaitMs;
  FrameWork work;
  work.backdrop = all || changes.new_frame || changes.moved;
  work.present = work.backdrop || changes.chat || changes.slide || blink_due;
  // A blink that waits is drawn with the present that takes it; until then nothing is done.
  work.chat = work.present && (all || changes.chat || changes.caret);
  return work;
}

AfterFrame AfterFrameResult(int32_t hr, uint64_t now_ms, uint64_t last_rebuild_ms) {
  if (hr != kDxgiDeviceRemoved && hr != kDxgiDeviceReset && hr != kDdiDeviceRemoved &&
      hr != kD2dRecreateTarget) {
    return AfterFrame::kGoOn;
  }
  const bool recent = last_rebuild_ms != 0 && now_ms - last_rebuild_ms < kRebuildSpacingMs;
  return recent ? AfterFrame::kClose : AfterFrame::kRebuild;
}

}  // namespace qn
