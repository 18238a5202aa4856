#pragma once
// Opening and closing the drawer, and the lifetime of its graphics: the device is made at
// the first opening and released a while after the last closing. Placing and drawing the
// drawer over the game joins this class with the drawer itself; until then an opening only
// takes the keyboard and readies the chat view.
#include <windows.h>

#include <dwrite.h>

#include <functional>
#include <string>
#include <utility>

#include "app/conversation_win.h"
#include "core/handles.h"
#include "gfx/renderer.h"

namespace qn {

inline constexpr UINT_PTR kTickTimer = 1;
inline constexpr UINT_PTR kIdleReleaseTimer = 2;
inline constexpr UINT kTickMs = 8;

class DrawerControl {
 public:
  struct Callbacks {
    std::function<void()> closed;  // the conversation's answer may now chime at its end
  };

  // `idle_release_ms`: how long the graphics outlive a closing.
  DrawerControl(ChatView& view, UINT idle_release_ms, Callbacks callbacks);

  // `window` carries the timers and receives the captured keys.
  void Attach(HWND window) { window_ = window; }
  bool IsOpen() const { return open_; }
  void Open();
  void Close();
  void Toggle();
  DrawerFacts Facts() const;
  // The catalogue key of the game the drawer opens over.
  void FollowGame(std::string key) { game_key_ = std::move(key); }
  void Tick() {}
  // Arms the release of the graphics, as a closing does.
  void ArmIdleRelease();
  // Releases the graphics if any are held.
  void ReleaseIdleGraphics();
  void ReleaseGraphics() { renderer_.Release(); }
  void SetHeightFraction(double fraction) { height_fraction_ = fraction; }

 private:
  bool ReadyView();

  ChatView& view_;
  UINT idle_release_ms_;
  Callbacks callbacks_;
  HWND window_ = nullptr;
  Renderer renderer_;
  std::string game_key_;
  bool open_ = false;
  bool view_ready_ = false;
  double height_fraction_ = 0.33;  // of the game's height, for the drawer to come
  ComPtr<IDWriteFactory> write_factory_;
};

}  // namespace qn
