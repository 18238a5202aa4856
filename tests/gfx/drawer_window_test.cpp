// The drawer window on a real window manager. Wine has no DirectComposition, so the drawer
// shows through its own window's swap chain here.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "gfx/drawer_window.h"
#include "gfx/renderer.h"
#include "support/fake_tray_win.h"
#include "support/hwnd_surface_win.h"
#include "support/test_files.h"

namespace qn {
namespace {

class DrawerWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(drawer_.Create(GetModuleHandleW(nullptr), &renderer_, surface_.get()))
        << log_.Text();
  }

  ComApartment com_{COINIT_MULTITHREADED};
  test::CapturedLog log_;
  Renderer renderer_;
  std::unique_ptr<DrawerSurface> surface_ = test::MakeHwndSurface();
  DrawerWindow drawer_;
};

// A topmost popup that never takes the focus (a game without it often stops presenting);
// its procedure passes on input only.
TEST_F(DrawerWindowTest, NeverActivatedAndForwardsOnlyInput) {
  EXPECT_EQ(GetWindowLongPtrW(drawer_.Window(), GWL_EXSTYLE), 0x08200088);
  std::vector<UINT> forwarded;
  drawer_.SetInputHandler([&](UINT message, WPARAM, LPARAM lparam) {
    EXPECT_EQ(lparam, 0x1C0001) << message;
    forwarded.push_back(message);
  });
  // The message, what the window procedure returns, and whether the application gets it.
  const std::tuple<UINT, LRESULT, bool> cases[] = {
      {WM_KEYDOWN, 0, true},           {WM_CHAR, 0, true},   {WM_SYSKEYDOWN, 0, true},
      {WM_MOUSEWHEEL, 0, true},        {WM_KEYUP, 0, false}, {WM_ERASEBKGND, 1, false},
      {WM_NCHITTEST, HTCLIENT, false},
  };
  for (const auto& [message, result, passed_on] : cases) {
    forwarded.clear();
    EXPECT_EQ(SendMessageW(drawer_.Window(), message, 'A', 0x1C0001), result) << message;
    EXPECT_EQ(forwarded.size(), passed_on ? 1u : 0u) << message;
  }
  // Destroying the drawer must not end the program's message loop.
  drawer_.Destroy();
  MSG message;
  EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
}

// Without a surface there is nowhere to show; without DirectComposition (Wine) the product's
// surface fails with the call named once, for the caller to give up on the drawer.
TEST_F(DrawerWindowTest, CreateNeedsASurfaceThatBinds) {
  DrawerWindow other;
  EXPECT_FALSE(other.Create(GetModuleHandleW(nullptr), &renderer_, nullptr));
  const std::unique_ptr<DrawerSurface> composition = MakeCompositionSurface();
  if (other.Create(GetModuleHandleW(nullptr), &renderer_, composition.get())) {
    GTEST_SKIP() << "this system composes";
  }
  EXPECT_EQ(log_.Count("DCompositionCreateDevice failed"), 1u) << log_.Text();
  DrawerPlacement placement;
  placement.drawer = {0, 0, 200, 100};
  EXPECT_FALSE(other.Place(placement));
}

}  // namespace
}  // namespace qn
