#include "app/drawer_target.h"

#include <gtest/gtest.h>

namespace qn {
namespace {

constexpr ScreenRect kMonitor{0, 0, 1920, 1080};

TEST(DrawerTarget, ModeAndGeometryFollowTheWindowAndTheShell) {
  const struct {
    ScreenRect window;
    bool d3d_fullscreen;
    uint32_t dpi;
    double fraction;
    WindowMode mode;
    ScreenRect drawer;
  } cases[] = {
      // clang-format off
      {{-8, -8, 1928, 1088}, false, 96, 0.33, WindowMode::kBorderless, {160, 724, 1760, 1080}},
      {kMonitor, true, 96, 0.33, WindowMode::kExclusive, {160, 724, 1760, 1080}},
      {{100, 50, 900, 650}, false, 96, 0.20, WindowMode::kWindowed, {100, 430, 900, 650}},
      // The shell's full-screen state says nothing of a window that leaves the monitor showing.
      {{100, 50, 900, 650}, true, 96, 0.20, WindowMode::kWindowed, {100, 430, 900, 650}},
      {{0, 0, 3840, 2160}, false, 192, 0.20, WindowMode::kWindowed, {320, 1720, 3520, 2160}},
      // clang-format on
  };
  for (const auto& c : cases) {
    const ScreenRect monitor = c.dpi == 192 ? ScreenRect{0, 0, 3840, 2400} : kMonitor;
    const TargetGeometry geometry =
        PlanTarget(c.window, monitor, c.d3d_fullscreen, c.dpi, c.fraction);
    EXPECT_EQ(geometry.mode, c.mode) << c.window.right;
    EXPECT_EQ(geometry.drawer, c.drawer) << c.window.right;
    EXPECT_EQ(geometry.target, c.mode == WindowMode::kWindowed ? c.window : monitor);
  }
}

TEST(DrawerTarget, NamesTheGameAndKnowsTheShell) {
  const struct {
    const wchar_t* path;
    const char* identity;
    bool shell;
  } cases[] = {
      {L"C:\\Games\\Elden Ring\\EldenRing.EXE", "eldenring", false},
      {L"D:/steam/hades.exe", "hades", false},
      {L"C:\\Windows\\EXPLORER.EXE", "explorer", true},
      {L"explorer.exe", "explorer", true},
      {L"C:\\x\\notexplorer.exe", "notexplorer", false},
      {L"C:\\Games\\game.bin", "game.bin", false},
      {L"C:\\Games\\Kéké.exe", "k\xC3\xA9k\xC3\xA9", false},
      {L"C:\\Games\\.exe", "unknown", false},
      {L"C:\\Games\\", "unknown", false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GameIdentity(c.path), c.identity) << c.identity;
    EXPECT_EQ(IsShellExecutable(c.path), c.shell) << c.identity;
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
