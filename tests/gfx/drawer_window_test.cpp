// The drawer window on a real window manager; without DirectComposition (Wine) only the window.
#include <windows.h>

#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "gfx/drawer_window.h"
#include "gfx/renderer.h"
#include "support/test_files.h"

namespace qn {
namespace {

class DrawerWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    composition_ = drawer_.Create(GetModuleHandleW(nullptr), &renderer_);
    ASSERT_NE(drawer_.Window(), nullptr) << "no Direct3D device or no window: " << log_.Text();
  }

  ComApartment com_{COINIT_MULTITHREADED};
  test::CapturedLog log_;
  Renderer renderer_;
  DrawerWindow drawer_;
  bool composition_ = false;
};

// A game without the focus often stops presenting, and the backdrop is made of its frames.
TEST_F(DrawerWindowTest, ShowsAsATopmostPopupThatLeavesTheGameInTheForeground) {
  const HWND window = drawer_.Window();
  wchar_t name[64] = {};
  GetClassNameW(window, name, 64);
  EXPECT_STREQ(name, L"HintwickDrawer");
  EXPECT_EQ(GetWindowLongPtrW(window, GWL_EXSTYLE), 0x08200088);
  EXPECT_EQ(GetWindowLongPtrW(window, GWL_STYLE) & (WS_POPUP | WS_VISIBLE), WS_POPUP);
  UniqueHwnd game(CreateWindowExW(0, L"STATIC", L"game", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 50, 50,
                                  800, 600, nullptr, nullptr, nullptr, nullptr));
  SetForegroundWindow(game.get());
  if (GetForegroundWindow() != game.get()) GTEST_SKIP() << "this desktop gives no foreground";
  const RECT rect = {-40, 330, 760, 650};  // a monitor left of the primary one
  // Without composition Place shows nothing, so its showing step is taken on its own.
  DrawerPlacement placement;
  placement.drawer = rect;
  ASSERT_TRUE(composition_ ? drawer_.Place(placement) : ShowDrawerAt(window, rect));
  RECT shown = {};
  EXPECT_TRUE(IsWindowVisible(window) && GetWindowRect(window, &shown) && EqualRect(&shown, &rect));
  EXPECT_EQ(GetForegroundWindow(), game.get());
  drawer_.Hide();
  EXPECT_FALSE(IsWindowVisible(window) || drawer_.Visible());
}

TEST_F(DrawerWindowTest, WindowProcedureForwardsOnlyInput) {
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

}  // namespace
}  // namespace qn
