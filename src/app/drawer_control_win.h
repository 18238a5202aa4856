#pragma once
// Whether and where the drawer opens over the game, and its life from the opening through
// the slide-out to the release of its graphics a while after the last closing. It owns the
// renderer, the drawer window, the frame source and the target; the decisions it acts on
// are in drawer_target.h.
#include <windows.h>

#include <dwrite.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "app/conversation_win.h"
#include "app/drawer_target.h"
#include "core/handles.h"
#include "gfx/drawer_surface.h"
#include "gfx/drawer_window.h"
#include "gfx/frame_source.h"
#include "gfx/renderer.h"

namespace qn {

inline constexpr UINT_PTR kTickTimer = 1;
inline constexpr UINT_PTR kIdleReleaseTimer = 2;
inline constexpr UINT kTickMs = 8;
inline constexpr uint64_t kRemeasureMs = 250;  // the game's scale and display, in place

// What the drawer is shown with and what it asks the system. The program leaves these
// empty; tests give what Wine has (a swap chain on the window, frames copied with GDI) and
// stand in for states Wine cannot reach.
struct DrawerSeams {
  std::function<std::unique_ptr<DrawerSurface>()> surface;  // empty: DirectComposition
  std::function<std::unique_ptr<FrameSource>()> frames;     // empty: the window capture
  std::function<std::unique_ptr<Renderer>()> renderer;
  bool (*d3d_fullscreen)() = nullptr;          // null: the shell's notification state
  bool (*keys_hidden)(HWND target) = nullptr;  // null: the target's integrity level
  UINT idle_release_ms = 30000;                // how long the graphics outlive a closing
  std::function<uint64_t()> now_ms;            // empty: GetTickCount64
  // For timing against the way each tick once blurred, drew and presented everything.
  bool redraw_every_tick = false;
};

class DrawerControl {
 public:
  struct Callbacks {
    std::function<bool()> settings_window_open;
    std::function<void(const wchar_t* text)> balloon;
    // The drawer opened over the game: its status line and progress are due.
    std::function<void()> opened;
    // Returns whether an answer goes on streaming behind the closed drawer.
    std::function<bool()> closed;
    // The updater's: whether an update was put off at start (clearing that), and its prompt,
    // whose answer comes later and takes its own way to the hand-over.
    std::function<bool()> take_deferred_update;
    std::function<void()> prompt_update;
  };

  DrawerControl(HINSTANCE instance, ChatModel& model, ChatView& view, DrawerSeams seams,
                Callbacks callbacks);
  ~DrawerControl();
  DrawerControl(const DrawerControl&) = delete;
  DrawerControl& operator=(const DrawerControl&) = delete;

  // `window` carries the timers and receives the captured keys.
  void Attach(HWND window) { window_ = window; }
  bool IsOpen() const { return open_; }
  // Over the window in front, or over `over` when the caller has just brought it forward.
  void Open(HWND over = nullptr);
  // Begins the slide-out; the tick completes the close.
  void Close();
  // Closes at once, for what cannot wait for the slide.
  void CloseNow();
  void Toggle();
  void ToggleFromTray();
  void Tick();
  void OnForeground(HWND foreground);
  DrawerFacts Facts() const;
  // Arms the release of the graphics, as a closing does.
  void ArmIdleRelease();
  // Releases the graphics if any are held.
  void ReleaseIdleGraphics();
  void ReleaseGraphics();
  void SetLook(double height_fraction, double blur);

  HWND DrawerWindowHandle() const { return drawer_window_.Window(); }
  HWND Target() const { return target_; }

 private:
  bool Refuses(HWND foreground, std::wstring_view executable);
  DisplayFacts DisplayFor(HWND target);
  bool MakeGraphics();
  bool ReadyView();
  void StartFrames();
  bool Show();
  DrawerPlacement Placement() const;
  void SizeView();
  void TakeKeyboard();
  void GiveFocusToDrawer();
  void CompleteClose();
  void CheckForeground();
  bool FollowTarget(uint64_t now_ms);
  uint64_t Now() const;
  bool DrawFrame(float slide, bool moved = true);
  struct Shown;
  Shown Current(float slide, uint64_t now);
  FrameChanges ChangesSince(const Shown& now, bool moved) const;
  HRESULT PresentFrame(float slide, bool moved);
  bool RebuildGraphics();
  RECT CropFor(ID3D11Texture2D* frame) const;
  void OnDrawerInput(UINT message, WPARAM wparam, LPARAM lparam);
  void FollowGame(HWND foreground);

  HINSTANCE instance_;
  ChatModel& model_;
  ChatView& view_;
  DrawerSeams seams_;
  Callbacks callbacks_;
  HWND window_ = nullptr;
  // Declared in the order they depend on each other: each is released before what it uses.
  std::unique_ptr<Renderer> renderer_;
  std::unique_ptr<DrawerSurface> surface_;
  DrawerWindow drawer_window_;
  std::unique_ptr<FrameSource> frames_;
  ComPtr<IDWriteFactory> write_factory_;

  HWND target_ = nullptr;
  HWND last_game_ = nullptr;  // the last window the drawer opened over; it may be gone
  HWND seen_foreground_ = nullptr;
  WindowPlace measured_;  // the target as last measured
  uint64_t measured_at_ = 0;
  TargetGeometry geometry_;
  bool d3d_fullscreen_ = false;  // the shell's word at the opening, too slow to ask each tick
  uint64_t rebuilt_at_ = 0;      // when a lost device was last replaced during this opening
  DisplayFacts display_;         // of the game's monitor, at the opening
  bool open_ = false;
  bool closing_ = false;
  bool capturing_ = false;
  bool view_ready_ = false;
  bool hand_back_foreground_ = false;
  // The frame the backdrop was last blurred from, kept for a change of look without a new one.
  ComPtr<ID3D11Texture2D> frame_;
  // What the last present showed, against which a tick tells what it has to redo.
  struct Shown {
    bool presented = false;
    int64_t frame_number = 0;
    uint64_t chat_revision = 0;
    bool caret = true;
    float slide = -1.0f;
    float blur = 0.0f;
    bool hdr = false;
    float sdr_white_nits = 0.0f;
    ScreenRect drawer;
    uint32_t dpi = 0;
    uint64_t at_ms = 0;
  } shown_;
  uint64_t input_revision_ = 0;
  uint64_t input_changed_at_ = 0;  // when the typing last moved, which restarts the blink
  CaretBlink caret_blink_;         // the system's, at the opening
  uint64_t opened_at_ = 0;
  uint64_t close_started_ = 0;
  double height_fraction_ = 1.0 / 3.0;
  float blur_ = 1.0f;
  std::string game_key_;
};

}  // namespace qn
