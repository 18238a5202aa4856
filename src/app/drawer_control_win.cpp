#include "app/drawer_control_win.h"

#include <psapi.h>

#include <utility>

#include "app/drawer_target.h"
#include "app/key_capture.h"
#include "app/keyboard_hooks_win.h"
#include "app/messages.h"
#include "app/target_window_win.h"
#include "app/tray_menu.h"
#include "core/failure_log.h"
#include "core/log.h"
#include "core/os.h"
#include "gfx/capture.h"
#include "gfx/capture_policy.h"
#include "gfx/drawer_window.h"

namespace qn {
namespace {

constexpr int kCaptureHz = 30;
constexpr float kWheelStep = 48.0f;  // per notch, in the chat's 96-DPI pixels

constexpr wchar_t kElevatedNotice[] =
    L"This game runs as administrator, so Windows keeps your typing from Hintwick while the game "
    L"has the focus. The drawer has taken the focus instead, and its backdrop stands still "
    L"until you close it. To type over a running game, start the game without administrator "
    L"rights.";

bool IsShellOrSelf(HWND window, std::wstring_view executable) {
  return BelongsToThisProcess(window) || IsShellExecutable(executable);
}

std::unique_ptr<Renderer> MakeRenderer(const DrawerSeams& seams) {
  return seams.renderer ? seams.renderer() : std::make_unique<Renderer>();
}

}  // namespace

DrawerControl::DrawerControl(HINSTANCE instance, ChatModel& model, ChatView& view,
                             DrawerSeams seams, Callbacks callbacks)
    : instance_(instance),
      model_(model),
      view_(view),
      seams_(std::move(seams)),
      callbacks_(std::move(callbacks)),
      renderer_(MakeRenderer(seams_)) {
  drawer_window_.SetInputHandler([this](UINT message, WPARAM wparam, LPARAM lparam) {
    OnDrawerInput(message, wparam, lparam);
  });
}

DrawerControl::~DrawerControl() { ReleaseGraphics(); }

// Each refusal ends the attempt; failures after the drawer window exists only degrade it.
void DrawerControl::Open(HWND over) {
  if (open_) return;
  if (callbacks_.settings_window_open && callbacks_.settings_window_open()) {
    Log(kLogInfo, L"tray window is open; not opening the drawer");
    return;
  }
  const HWND foreground = over ? over : GetForegroundWindow();
  if (!foreground) return;
  const std::wstring executable = ExecutablePathOf(foreground);
  if (Refuses(foreground, executable)) return;
  KillTimer(window_, kIdleReleaseTimer);
  display_ = DisplayFor(foreground);
  // Whatever a failed attempt made is released a while later, as after a closing.
  if (!MakeGraphics()) return ArmIdleRelease();
  target_ = foreground;
  last_game_ = foreground;
  game_key_ = GameIdentity(executable);
  rebuilt_at_ = 0;
  StartFrames();
  if (!Show()) return ArmIdleRelease();
  TakeKeyboard();
  if (callbacks_.opened) callbacks_.opened();
  opened_at_ = Now();
  // The caret blinks anew at each opening, as a control's does when it takes the focus.
  caret_blink_ = SystemCaretBlink();
  input_changed_at_ = opened_at_;
  seen_foreground_ = GetForegroundWindow();
  open_ = true;
  closing_ = false;
  if (!SetTimer(window_, kTickTimer, kTickMs, nullptr)) LogLastError(L"SetTimer", kLogWarn);
  const std::wstring file_name(FileNameOf(executable));
  const ScreenRect& drawer = geometry_.drawer;
  Log(kLogInfo, L"drawer open over '%ls' (%ls), drawer %ldx%ld at (%ld,%ld)",
      WindowTitle(target_).c_str(), file_name.c_str(), static_cast<long>(drawer.Width()),
      static_cast<long>(drawer.Height()), static_cast<long>(drawer.left),
      static_cast<long>(drawer.top));
}

// Covering an exclusive-fullscreen game would minimise it, so that refusal is deliberate.
bool DrawerControl::Refuses(HWND foreground, std::wstring_view executable) {
  if (IsShellOrSelf(foreground, executable)) {
    Log(kLogInfo, L"foreground is the shell; not opening");
    return true;
  }
  const WindowPlace place = MeasureWindow(foreground);
  d3d_fullscreen_ = (seams_.d3d_fullscreen ? seams_.d3d_fullscreen : &ShellReportsD3dFullscreen)();
  const TargetGeometry geometry = PlanTarget(place, d3d_fullscreen_, height_fraction_);
  if (geometry.mode == WindowMode::kExclusive) {
    Log(kLogWarn, L"target is exclusive fullscreen; refusing to open (would minimise the game)");
    if (callbacks_.balloon) callbacks_.balloon(kBalloonExclusiveFullscreen);
    return true;
  }
  measured_ = place;
  measured_at_ = Now();
  geometry_ = geometry;
  return false;
}

// Asked at each opening: meanwhile the player may have switched the display to HDR or back,
// changed its SDR brightness, or moved the game to a monitor that another adapter drives,
// where the graphics are then made anew.
DisplayFacts DrawerControl::DisplayFor(HWND target) {
  const DisplayFacts display = renderer_->DisplayOf(target);
  if (DeviceOnOtherAdapter(renderer_->Adapter(), display.adapter)) {
    Log(kLogInfo, L"the game is on another graphics adapter; making the graphics there");
    ReleaseGraphics();
  }
  return display;
}

bool DrawerControl::MakeGraphics() {
  if (!renderer_->Init(display_.adapter)) {
    Log(kLogError, L"renderer init failed; cannot open");
    return false;
  }
  if (!surface_) surface_ = seams_.surface ? seams_.surface() : MakeCompositionSurface();
  if (!drawer_window_.Create(instance_, renderer_.get(), surface_.get())) {
    Log(kLogError, L"overlay create failed; cannot open");
    return false;
  }
  if (!view_ready_) {
    view_ready_ = ReadyView();
    if (!view_ready_) Log(kLogError, L"chat view init failed; drawer will show backdrop only");
  }
  return true;
}

bool DrawerControl::ReadyView() {
  if (!write_factory_ &&
      !CheckHr(CreateSharedWriteFactory(write_factory_), L"DWriteCreateFactory", kLogError)) {
    return false;
  }
  return view_.Init(write_factory_.get());
}

// The whole window at its own size: the system clips a smaller frame pool rather than
// scaling it, and the renderer's first pass does the downscaling.
void DrawerControl::StartFrames() {
  frame_.reset();
  shown_ = {};
  if (!frames_) frames_ = seams_.frames ? seams_.frames() : std::make_unique<Capture>();
  capturing_ = frames_->Start(target_, renderer_->Device(), kCaptureHz, kDrawerCaptureDivisor);
  if (!capturing_) Log(kLogWarn, L"capture failed to start; the drawer will show a flat scrim");
}

// The first frame is presented while the window is still hidden, so that neither what the
// swap chain kept from the last opening nor a buffer never drawn flashes as it shows.
bool DrawerControl::Show() {
  const ScreenRect& drawer = geometry_.drawer;
  bool shown = drawer.Width() > 0 && drawer.Height() > 0 &&
               drawer_window_.EnsureSize(static_cast<uint32_t>(drawer.Width()),
                                         static_cast<uint32_t>(drawer.Height()));
  if (shown) {
    SizeView();
    shown = DrawFrame(0.0f) && drawer_window_.Place(Placement());
  }
  if (!shown) {
    Log(kLogError, L"overlay show failed");
    if (std::exchange(capturing_, false)) frames_->Stop();
    target_ = nullptr;
  }
  return shown;
}

DrawerPlacement DrawerControl::Placement() const {
  return {ToRect(geometry_.target), ToRect(geometry_.drawer), geometry_.dpi,
          geometry_.mode == WindowMode::kWindowed ? 0u : 1u};
}

void DrawerControl::SizeView() {
  view_.SetSize(drawer_window_.Width(), drawer_window_.Height(),
                static_cast<float>(geometry_.dpi) / 96.0f);
}

void DrawerControl::TakeKeyboard() {
  const bool hidden = (seams_.keys_hidden ? seams_.keys_hidden : &KeysHiddenFromHookIn)(target_);
  if (hidden) {
    Log(kLogWarn, L"the game runs at a higher integrity level; its keys never reach the hook");
    model_.SetText(kRoleNotice, kElevatedNotice);
  }
  if (hidden || !StartKeyboardCapture(window_, kMsgCapturedKey.id)) {
    Log(kLogWarn,
        L"no keyboard capture; falling back to focus transfer (backdrop will not update)");
    GiveFocusToDrawer();
  }
}

void DrawerControl::GiveFocusToDrawer() {
  const HWND drawer = drawer_window_.Window();
  if (!SetForegroundWindow(drawer)) Log(kLogWarn, L"SetForegroundWindow failed");
  SetFocus(drawer);
  hand_back_foreground_ = true;
}

void DrawerControl::Close() {
  if (!open_ || closing_) return;
  closing_ = true;
  close_started_ = Now();
}

void DrawerControl::CloseNow() {
  if (open_) CompleteClose();
}

// A toggle during the slide-out is a player who changed their mind: finish and open again.
// From the tray the shell is in front: the drawer opens over the last game it opened over,
// brought forward first, while that game still runs.
void DrawerControl::ToggleFromTray() {
  if (open_ || closing_ || !last_game_ || !IsWindow(last_game_)) return Toggle();
  if (GetForegroundWindow() != last_game_ && !SetForegroundWindow(last_game_)) {
    Log(kLogInfo, L"the last game could not be brought forward; not opening");
    return;
  }
  // Named, not read back: while the switch is under way the system may report no foreground.
  Open(last_game_);
}

void DrawerControl::Toggle() {
  if (closing_) {
    CompleteClose();
    Open();
  } else if (open_) {
    Close();
  } else {
    Open();
  }
}

void DrawerControl::CompleteClose() {
  KillTimer(window_, kTickTimer);
  open_ = false;
  const bool streaming = callbacks_.closed && callbacks_.closed();
  if (streaming) {
    Log(kLogInfo,
        L"drawer closed with an answer still streaming; it will finish in the background");
  }
  const FrameCounts counts = frames_ ? frames_->Counts() : FrameCounts{};
  Log(kLogInfo, L"backdrop frames: %lld arrived, %lld accepted, %lld consumed",
      static_cast<long long>(counts.arrived), static_cast<long long>(counts.accepted),
      static_cast<long long>(counts.consumed));
  StopKeyboardCapture();
  if (std::exchange(capturing_, false)) frames_->Stop();
  drawer_window_.Hide();
  if (std::exchange(hand_back_foreground_, false) && IsWindow(target_)) {
    SetForegroundWindow(target_);
  }
  target_ = nullptr;
  closing_ = false;
  if (!streaming) ArmIdleRelease();
  Log(kLogInfo, L"drawer closed");
}

void DrawerControl::Tick() {
  if (!open_) return;
  if (!IsWindow(target_) || (capturing_ && frames_->Closed())) {
    Log(kLogInfo, L"target window gone; dismissing");
    CompleteClose();
    return;
  }
  CheckForeground();
  const uint64_t now = Now();
  const float slide = closing_ ? SlideClosing(static_cast<int64_t>(now - close_started_))
                               : SlideOpening(static_cast<int64_t>(now - opened_at_));
  if (closing_ && slide <= 0.0f) {
    CompleteClose();
    return;
  }
  const bool moved = FollowTarget(now);
  if (!DrawFrame(slide, moved)) return CompleteClose();
  // Moved after the frame at the new size is presented, as at the opening.
  if (moved && !drawer_window_.Place(Placement())) Log(kLogWarn, L"the drawer could not follow");
}

// The foreground event comes through the queue, and some systems (Wine) never send it for
// other processes' windows; the tick runs while the drawer is open anyway, so it looks too.
// No foreground at all is a moment of a switch, not a place the player went.
void DrawerControl::CheckForeground() {
  const HWND foreground = GetForegroundWindow();
  if (!foreground || foreground == seen_foreground_) return;
  seen_foreground_ = foreground;
  OnForeground(foreground);
}

// Watched on every tick, since the system tells another process's window moves only to
// hooks; acted on when the game moved, was resized, went to another monitor or was scaled.
// The rectangle alone is read each tick: the whole measure costs several times as much, and
// is taken when the rectangle moved or, for a change of scale or display in place, a quarter
// second after the last. Returns whether the drawer window is to be placed anew.
bool DrawerControl::FollowTarget(uint64_t now_ms) {
  if (IsAbove(target_, drawer_window_.Window())) {
    // A game that makes itself topmost rises above the drawer each time it does. Only the
    // game is watched: taking turns with other topmost windows (overlays, the volume flyout)
    // would make both flicker.
    drawer_window_.Raise();
  }
  if (WindowRectOf(target_) == measured_.window && now_ms - measured_at_ < kRemeasureMs) {
    return false;
  }
  const WindowPlace place = MeasureWindow(target_);
  measured_at_ = now_ms;
  if (closing_ || place == measured_) return false;
  measured_ = place;
  const TargetGeometry now = PlanTarget(place, d3d_fullscreen_, height_fraction_);
  const FollowSteps steps = PlanFollow(geometry_, now, place.minimised);
  if (steps.dismiss) {
    Log(kLogInfo, L"target minimised or in exclusive fullscreen; dismissing");
    Close();
    return false;
  }
  geometry_ = now;
  if (steps.rescale) {
    drawer_window_.EnsureSize(static_cast<uint32_t>(now.drawer.Width()),
                              static_cast<uint32_t>(now.drawer.Height()));
    SizeView();
  }
  return steps.place;
}

// Only reached when the drawer holds the focus itself (the keyboard capture's fallback) and
// for the wheel over it.
void DrawerControl::OnDrawerInput(UINT message, WPARAM wparam, LPARAM) {
  if (!open_) return;
  if (message == WM_KEYDOWN || message == WM_SYSKEYDOWN) {
    if (wparam == VK_ESCAPE) {
      Close();
    } else {
      model_.HandleKey(static_cast<uint32_t>(wparam), GetKeyState(VK_CONTROL) < 0);
    }
  } else if (message == WM_CHAR) {
    for (const wchar_t c : PrintableText(std::wstring(1, static_cast<wchar_t>(wparam)))) {
      model_.InsertChar(c);
    }
  } else if (message == WM_MOUSEWHEEL) {
    model_.ScrollBy(kWheelStep * GET_WHEEL_DELTA_WPARAM(wparam) / WHEEL_DELTA);
  }
}

void DrawerControl::OnForeground(HWND foreground) {
  const bool drawer_or_target = foreground == drawer_window_.Window() || foreground == target_;
  switch (OnForegroundChange(open_, closing_, drawer_or_target)) {
    case ForegroundOutcome::kFollowGame:
      FollowGame(foreground);
      break;
    case ForegroundOutcome::kDismiss:
      Log(kLogInfo, L"foreground moved elsewhere; dismissing");
      Close();
      break;
    case ForegroundOutcome::kKeep:
      break;
  }
}

// A window in front while the drawer is closed is not its game until it opens over it: the
// settings window names the game the player last asked about, not a browser or a chat program.
// The shell in front means the player left the game: the moment to ask about an update that
// was put off at start so as not to interrupt play.
void DrawerControl::FollowGame(HWND foreground) {
  if (!IsShellOrSelf(foreground, ExecutablePathOf(foreground))) return;
  if (!callbacks_.take_deferred_update || !callbacks_.take_deferred_update()) return;
  Log(kLogInfo, L"foreground returned to the shell; asking about the deferred update");
  if (callbacks_.prompt_update) callbacks_.prompt_update();
}

DrawerFacts DrawerControl::Facts() const {
  return {game_key_, view_ready_, open_, drawer_window_.Window() != nullptr};
}

void DrawerControl::SetLook(double height_fraction, double blur) {
  height_fraction_ = height_fraction;
  blur_ = static_cast<float>(blur);
  measured_ = {};  // an open drawer takes the new height at the next tick
}

void DrawerControl::ArmIdleRelease() {
  if (!SetTimer(window_, kIdleReleaseTimer, seams_.idle_release_ms, nullptr)) {
    LogLastError(L"SetTimer", kLogWarn);
  }
}

// Trimming gives the pages of the released device back to the system at once, which is what
// a player looking at the Task Manager after a session expects.
void DrawerControl::ReleaseIdleGraphics() {
  KillTimer(window_, kIdleReleaseTimer);
  if (!renderer_->Device() && !drawer_window_.Window()) return;
  ReleaseGraphics();
  K32EmptyWorkingSet(GetCurrentProcess());
  Log(kLogInfo, L"idle: released GPU stack and drawer window");
}

void DrawerControl::ReleaseGraphics() {
  if (std::exchange(capturing_, false)) frames_->Stop();
  frame_.reset();
  shown_ = {};
  frames_.reset();
  drawer_window_.Destroy();
  surface_.reset();
  renderer_->Release();
}

}  // namespace qn
