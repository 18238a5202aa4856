// The drawer control over a stand-in game in a process of its own. Wine has neither
// DirectComposition nor window capture, so the drawer shows through a swap chain on its own
// window and takes its frames with GDI, unless a case is about the system's own.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "app/drawer_control_win.h"
#include "app/foreground_tracker_win.h"
#include "app/keyboard_hooks_win.h"
#include "app/message_window_win.h"
#include "app/tray_menu.h"
#include "gfx/drawer_geometry.h"
#include "support/fake_tray_win.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"
#include "support/test_files.h"
#include "support/test_game_win.h"

namespace qn {
namespace {

constexpr RECT kWindowed = {100, 60, 1060, 660};
constexpr RECT kWholeScreen = {0, 0, 1280, 800};  // the bench's display

class RefusingRenderer : public Renderer {
 protected:
  bool CreateStates() override { return false; }
};

DrawerSeams WineSeams(test::SurfaceRecord* record = nullptr) {
  DrawerSeams seams;
  seams.surface = [record] { return test::MakeHwndSurface(record); };
  seams.frames = [] { return test::MakeGdiFrameSource(); };
  seams.idle_release_ms = 200;
  return seams;
}

class DrawerControlTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(window_.Create(GetModuleHandleW(nullptr)));
    window_.OnTimer(kTickTimer, [this] { drawer_->Tick(); });
    window_.OnTimer(kIdleReleaseTimer, [this] { drawer_->ReleaseIdleGraphics(); });
    foreground_.Start([this](HWND window) { drawer_->OnForeground(window); });
  }
  void TearDown() override {
    foreground_.Stop();
    drawer_.reset();
    StopKeyboardHooks();
    window_.Destroy();
  }

  DrawerControl& MakeDrawer(DrawerSeams seams) {
    DrawerControl::Callbacks callbacks;
    callbacks.balloon = [this](const wchar_t* text) { balloons_.emplace_back(text); };
    callbacks.closed = [] { return false; };
    callbacks.take_deferred_update = [this] { return std::exchange(update_deferred_, false); };
    callbacks.prompt_update = [this] { ++update_prompts_; };
    drawer_.reset();
    drawer_ = std::make_unique<DrawerControl>(GetModuleHandleW(nullptr), model_, view_,
                                              std::move(seams), std::move(callbacks));
    drawer_->Attach(window_.get());
    return *drawer_;
  }

  ComApartment com_{COINIT_APARTMENTTHREADED};
  test::CapturedLog log_;
  MessageWindow window_;
  ForegroundTracker foreground_;
  ChatModel model_;
  ChatView view_{model_};
  std::unique_ptr<DrawerControl> drawer_;
  std::vector<std::wstring> balloons_;
  bool update_deferred_ = false;
  int update_prompts_ = 0;
  test::SurfaceRecord presented_;
  uint64_t now_ms_ = 1'000'000;  // the drawer's clock where a case keeps it
};

// A failed opening lets go of what it made; one that opens presents its first frame, slid out
// of sight, before the window shows. A device lost at that frame or later is rebuilt with the
// capture at once, and the drawer goes on presenting.
TEST_F(DrawerControlTest, EachRefusalAndFallbackOfAnOpeningIsLogged) {
  DrawerSeams exclusive = WineSeams(&presented_), no_renderer = exclusive,
              system_surface = exclusive, system_frames = exclusive, elevated = exclusive,
              recorded = exclusive;
  exclusive.d3d_fullscreen = [] { return true; };
  no_renderer.renderer = [] { return std::make_unique<RefusingRenderer>(); };
  system_surface.surface = nullptr;
  system_frames.frames = nullptr;
  elevated.keys_hidden = [](HWND) { return true; };
  const struct {
    const char* name;
    DrawerSeams seams;
    RECT game;
    bool opens;
    const char* logged;
    bool balloon = false;
    size_t lose_device_at = 0;
    bool released = false;
  } cases[] = {
      {"exclusive", exclusive, kWholeScreen, false,
       "WARN  target is exclusive fullscreen; refusing to open (would minimise the game)", true},
      {"windowed beside a full-screen game", exclusive, kWindowed, true, "INFO  drawer open over"},
      {"renderer", no_renderer, kWindowed, false, "ERROR renderer init failed; cannot open"},
      {"overlay", system_surface, kWindowed, false, "ERROR overlay create failed; cannot open",
       false, 0, true},
      {"capture", system_frames, kWindowed, true,
       "WARN  capture failed to start; the drawer will show a flat scrim"},
      {"elevated", elevated, kWindowed, true,
       "WARN  no keyboard capture; falling back to focus transfer (backdrop will not update)"},
      {"device lost at the first frame", recorded, kWindowed, true,
       "WARN  graphics device lost (0x887A0005", false, 1},
      {"device lost while open", recorded, kWindowed, true,
       "WARN  graphics device lost (0x887A0005", false, 3},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const test::TestGame game(c.game);
    ASSERT_TRUE(game.window());
    DrawerControl& drawer = MakeDrawer(c.seams);
    balloons_.clear();
    log_.Clear();
    presented_ = {};
    presented_.lose_device_at = c.lose_device_at;
    drawer.Open();
    const auto& presents = presented_.presents;
    if (c.opens && !presents.empty()) {
      EXPECT_FALSE(presents[0].window_visible);
      EXPECT_FLOAT_EQ(presents[0].offset_y, 220.0f);
    }
    if (c.lose_device_at) {
      EXPECT_TRUE(test::PumpUntil([&] { return presents.size() > 5; }));
      EXPECT_TRUE(presents.back().window_visible);
    }
    if (c.released) {
      EXPECT_TRUE(test::PumpUntil([&] { return log_.Has("idle: released GPU stack"); }));
    }
    EXPECT_TRUE(log_.Has(c.logged)) << log_.Text();
    EXPECT_EQ(drawer.IsOpen(), c.opens) << log_.Text();
    EXPECT_EQ(presents.empty(), !c.opens);
    EXPECT_EQ(balloons_, c.balloon ? std::vector<std::wstring>{kBalloonExclusiveFullscreen}
                                   : std::vector<std::wstring>{});
    if (c.seams.keys_hidden) {
      EXPECT_EQ(GetForegroundWindow(), drawer.DrawerWindowHandle());
      EXPECT_EQ(model_.Messages().back().role, kRoleNotice);
      drawer.CloseNow();
      EXPECT_TRUE(test::PumpUntil([&] { return GetForegroundWindow() == game.window(); }));
    } else if (c.opens) {
      EXPECT_EQ(GetForegroundWindow(), game.window()) << "the game keeps the focus";
    }
  }
}

// Over a still game the drawer presents when the caret blinks and for nothing else; over a
// game presenting 30 frames a second, once per frame at most, the blinks riding along. The
// ticks run on the drawer's own clock over a known span of the game's frames.
TEST_F(DrawerControlTest, PresentsOnlyWhenSomethingChanged) {
  const CaretBlink blink = SystemCaretBlink();
  ASSERT_GT(blink.phase_ms, 0u) << "the prefix's caret blinks";
  const size_t flips = 2000 / blink.phase_ms;
  const struct {
    const char* name;
    int game_hz;
    uint64_t from_ms;  // after the opening
    size_t least, most;
  } cases[] = {
      {"still game, caret blinking", 0, kSlideOpenMs + 40, flips, flips + 1},
      {"still game, caret at rest", 0, blink.rest_after_ms + 40, 0, 0},
      {"30 Hz game", 30, kSlideOpenMs + 40, 55, 60},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const test::TestGame game(kWindowed);
    ASSERT_TRUE(game.window());
    DrawerSeams seams = WineSeams(&presented_);
    seams.now_ms = [this] { return now_ms_; };
    seams.frames = [this, hz = c.game_hz] {
      return test::MakeGdiFrameSource({hz, [this] { return now_ms_; }});
    };
    DrawerControl& drawer = MakeDrawer(std::move(seams));
    presented_ = {};
    drawer.Open();
    ASSERT_TRUE(drawer.IsOpen()) << log_.Text();
    const auto run_for = [&](uint64_t ms) {
      for (const uint64_t end = now_ms_ + ms; now_ms_ < end; drawer.Tick()) now_ms_ += kTickMs;
    };
    run_for(c.from_ms);
    const size_t before = presented_.presents.size();
    run_for(2000);
    const size_t presents = presented_.presents.size() - before;
    EXPECT_GE(presents, c.least);
    EXPECT_LE(presents, c.most);
    drawer.CloseNow();
  }
}

// Neither the shell nor this program is a game: the drawer stays shut over them, and the
// player's return to them is the moment for an update put off at start.
TEST_F(DrawerControlTest, TheShellOrThisProgramInFrontIsNoGame) {
  DrawerControl& drawer = MakeDrawer(WineSeams());
  const test::TestGame game(kWindowed);
  drawer.OnForeground(game.window());
  EXPECT_EQ(drawer.Facts().game_key, "") << "not the drawer's game until it opens over it";
  const UniqueHwnd own(test::CreateTestWindow(L"DrawerControlTest", &DefWindowProcW,
                                              WS_POPUP | WS_VISIBLE, nullptr));
  SetForegroundWindow(own.get());
  ASSERT_TRUE(test::PumpUntil([&] { return GetForegroundWindow() == own.get(); }));
  drawer.Open();
  EXPECT_FALSE(drawer.IsOpen());
  EXPECT_TRUE(log_.Has("INFO  foreground is the shell; not opening"));

  update_deferred_ = true;
  for (int i = 0; i < 2; ++i) drawer.OnForeground(own.get());  // asked once
  EXPECT_EQ(log_.Count("foreground returned to the shell; asking about the deferred update"), 1u);
  EXPECT_EQ(update_prompts_, 1);
}

}  // namespace
}  // namespace qn
