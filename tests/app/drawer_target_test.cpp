#include "app/drawer_target.h"

#include <gtest/gtest.h>

#include <tuple>

namespace qn {
namespace {

constexpr ScreenRect kMonitor{0, 0, 1920, 1080};

// The drawer sits on what the compositor draws of the game (without Windows 10's invisible
// borders, counted by the window's rectangle), scaled for its monitor.
TEST(DrawerTarget, ModeAndGeometryFollowTheWindowAndTheShell) {
  using enum WindowMode;
  constexpr ScreenRect kBordered{93, 50, 907, 657}, kFrame{100, 50, 900, 650};
  const struct {
    ScreenRect window, frame;  // an empty frame: the compositor could not say
    uint32_t window_dpi, monitor_dpi;
    bool d3d_fullscreen;
    double fraction;
    WindowMode mode;
    ScreenRect drawer;
  } cases[] = {
      // clang-format off
      {{-8, -8, 1928, 1088}, {}, 96, 96, false, 0.33, kBorderless, {160, 724, 1760, 1080}},
      {kMonitor, kMonitor, 96, 96, true, 0.33, kExclusive, {160, 724, 1760, 1080}},
      {{100, 50, 900, 650}, {}, 96, 0, false, 0.20, kWindowed, {100, 430, 900, 650}},
      // The shell's full-screen state says nothing of a window that leaves the monitor showing.
      {{100, 50, 900, 650}, {}, 96, 96, true, 0.20, kWindowed, {100, 430, 900, 650}},
      {{0, 0, 3840, 2160}, {}, 192, 192, false, 0.20, kWindowed, {320, 1720, 3520, 2160}},
      {kBordered, kFrame, 96, 96, false, 0.20, kWindowed, {100, 430, 900, 650}},
      // Maximised: the borders hang off the monitor, the frame stops at the taskbar.
      {{-8, -8, 1928, 1048}, {0, 0, 1920, 1040}, 96, 96, false, 0.33, kWindowed,
       {160, 697, 1760, 1040}},
      // DPI-unaware, told 96 on a 150 % monitor; then a monitor that cannot say.
      {kBordered, kFrame, 96, 144, false, 0.20, kWindowed, {100, 320, 900, 650}},
      {{100, 50, 900, 650}, {}, 120, 0, false, 0.20, kWindowed, {100, 375, 900, 650}},
      // clang-format on
  };
  for (const auto& c : cases) {
    const ScreenRect monitor = c.window_dpi == 192 ? ScreenRect{0, 0, 3840, 2400} : kMonitor;
    const WindowPlace place{c.window, c.frame, monitor, c.window_dpi, c.monitor_dpi};
    const TargetGeometry geometry = PlanTarget(place, c.d3d_fullscreen, c.fraction);
    const size_t row = static_cast<size_t>(&c - cases);
    EXPECT_EQ(geometry.mode, c.mode) << row;
    EXPECT_EQ(geometry.drawer, c.drawer) << row;
    const ScreenRect visible = c.frame.Width() > 0 ? c.frame : c.window;
    EXPECT_EQ(geometry.target, c.mode == kWindowed ? visible : monitor);
    EXPECT_EQ(geometry.captured, visible);
  }
}

// Each tick measures the game again; only a change moves, resizes or rescales the drawer.
TEST(DrawerTarget, TheDrawerFollowsTheGame) {
  const WindowPlace at{{}, {0, 0, 800, 1000}, kMonitor, 96, 96};
  const TargetGeometry shown = PlanTarget(at, false, 0.33);
  WindowPlace moved = at, grown = at, scaled = at, minimised = at, covering = at;
  moved.frame = {40, 30, 840, 1030};
  grown.frame = {0, 0, 900, 1000};
  scaled.monitor_dpi = 120;  // the limits change, the drawer's size does not
  minimised.minimised = true;
  covering.frame = kMonitor;  // over a game the shell calls full-screen
  const std::tuple<const char*, WindowPlace, FollowSteps> cases[] = {
      {"still", at, {}},
      {"moved", moved, {false, true, false}},
      {"resized", grown, {false, true, true}},
      {"rescaled", scaled, {false, false, true}},
      {"minimised", minimised, {true, false, false}},
      {"exclusive", covering, {true, false, false}},
  };
  for (const auto& [name, place, steps] : cases) {
    EXPECT_EQ(PlanFollow(shown, PlanTarget(place, true, 0.33), place.minimised), steps) << name;
  }
}

// A Store game is named by its content window's process, not by the frame host around it.
TEST(DrawerTarget, NamesTheGameAndKnowsTheShell) {
  constexpr wchar_t kFrameHost[] = L"C:\\Windows\\System32\\ApplicationFrameHost.exe";
  const struct {
    const wchar_t* path;
    const char* identity;
    bool shell;
    const wchar_t* content = L"";  // the executable of the content window's process
  } cases[] = {
      {L"C:\\Games\\Elden Ring\\EldenRing.EXE", "eldenring", false},
      {L"D:/steam/hades.exe", "hades", false, L"C:\\x\\other.exe"},
      {L"C:\\Windows\\EXPLORER.EXE", "explorer", true},
      {L"explorer.exe", "explorer", true},
      {L"C:\\x\\notexplorer.exe", "notexplorer", false},
      {L"C:\\Games\\game.bin", "game.bin", false},
      {L"C:\\Games\\Kéké.exe", "k\xC3\xA9k\xC3\xA9", false},
      {L"C:\\Games\\.exe", "unknown", false},
      {L"C:\\Games\\", "unknown", false},
      {kFrameHost, "puzzle", false, L"C:\\Program Files\\WindowsApps\\P_1.0_x64__8w\\Puzzle.exe"},
      {L"c:\\windows\\system32\\APPLICATIONFRAMEHOST.EXE", "game", false, L"D:\\Apps\\Game.exe"},
      {kFrameHost, "applicationframehost", false},  // its content window is gone or unreadable
  };
  for (const auto& c : cases) {
    const std::wstring_view program = ProgramExecutable(c.path, c.content);
    EXPECT_EQ(GameIdentity(program), c.identity) << c.identity;
    EXPECT_EQ(IsShellExecutable(program), c.shell) << c.identity;
  }
}

TEST(DrawerTarget, ForegroundChangesAndHiddenKeys) {
  using F = ForegroundOutcome;
  EXPECT_EQ(OnForegroundChange(false, false, false), F::kFollowGame);
  EXPECT_EQ(OnForegroundChange(true, false, false), F::kDismiss);
  EXPECT_EQ(OnForegroundChange(true, false, true), F::kKeep);
  EXPECT_EQ(OnForegroundChange(true, true, false), F::kKeep);

  constexpr uint32_t kMedium = 0x2000, kHigh = 0x3000;
  EXPECT_TRUE(KeysHiddenFromHook({true, std::nullopt}, kMedium));
  EXPECT_TRUE(KeysHiddenFromHook({false, kHigh}, kMedium));
  EXPECT_FALSE(KeysHiddenFromHook({false, kMedium}, kMedium));
  EXPECT_FALSE(KeysHiddenFromHook({false, std::nullopt}, kMedium));
}

TEST(DrawerTarget, CropsTheDrawerStripOutOfTheFrame) {
  const ScreenRect window{100, 50, 900, 650}, drawer{100, 430, 900, 650};
  EXPECT_EQ(CropInFrame(drawer, window, {800, 600}), (PixelRect{0, 380, 800, 600}));
  // Frames at half the window's size, as on a display scaled behind the window's back.
  EXPECT_EQ(CropInFrame(drawer, window, {400, 300}), (PixelRect{0, 190, 400, 300}));
  EXPECT_EQ(CropInFrame(drawer, {0, 0, 0, 0}, {800, 600}), (PixelRect{0, 0, 0, 0}));
}

}  // namespace
}  // namespace qn
