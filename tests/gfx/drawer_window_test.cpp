// The drawer window on a real window manager. Wine has no DirectComposition, so there the
// drawer's creation stops after its window, and what needs the composition swap chain
// (sizing, presenting, the slide) runs only on Windows; those tests skip under Wine.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/log.h"
#include "gfx/drawer_window.h"
#include "gfx/renderer.h"
#include "support/test_files.h"

namespace qn {
namespace {

class DrawerWindowTest : public testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    OpenLogAt(log_path_);
    composition_ = drawer_.Create(GetModuleHandleW(nullptr), &renderer_);
    ASSERT_NE(drawer_.Window(), nullptr) << "no Direct3D device or no window: " << LogText();
  }
  void TearDown() override {
    drawer_.Destroy();
    CloseLog();
    CoUninitialize();
  }

  std::string LogText() const { return test::ReadFileBytes(log_path_).value_or(""); }

  static RECT WindowRect(HWND window) {
    RECT rect = {};
    GetWindowRect(window, &rect);
    return rect;
  }

  test::TempDir dir_;
  std::wstring log_path_ = dir_.File(L"hintwick.log");
  Renderer renderer_;
  DrawerWindow drawer_;
  bool composition_ = false;
};

bool SameRect(const RECT& a, const RECT& b) { return EqualRect(&a, &b) != FALSE; }

TEST_F(DrawerWindowTest, IsAHiddenTopmostPopupThatCannotBeActivated) {
  const HWND window = drawer_.Window();
  wchar_t name[64] = {};
  GetClassNameW(window, name, 64);
  EXPECT_STREQ(name, L"HintwickDrawer");
  EXPECT_EQ(GetWindowLongPtrW(window, GWL_EXSTYLE), 0x08200088);
  EXPECT_EQ(GetWindowLongPtrW(window, GWL_STYLE) & (WS_POPUP | WS_VISIBLE), WS_POPUP);
  EXPECT_EQ(GetClassLongPtrW(window, GCL_STYLE), 0);
  EXPECT_FALSE(drawer_.Visible());
}

TEST_F(DrawerWindowTest, WithoutCompositionCreationFailsCleanly) {
  if (composition_) GTEST_SKIP() << "DirectComposition works here";
  EXPECT_NE(LogText().find("ERROR DCompositionCreateDevice failed: 0x"), std::string::npos)
      << LogText();
  EXPECT_EQ(drawer_.WriteFactory(), nullptr);
  // Nothing to show means nothing shown: an empty top-most window would swallow clicks.
  DrawerPlacement placement;
  placement.drawer = {100, 400, 900, 700};
  EXPECT_FALSE(drawer_.Place(placement));
  EXPECT_FALSE(IsWindowVisible(drawer_.Window()));
  EXPECT_FALSE(drawer_.Frame(nullptr, {}, 1.0f, BlurParams{}, nullptr));
  drawer_.ReleaseSurfaces();
  EXPECT_FALSE(drawer_.Create(GetModuleHandleW(nullptr), &renderer_));
}

TEST_F(DrawerWindowTest, ShowingLeavesTheGameInTheForeground) {
  UniqueHwnd game(CreateWindowExW(0, L"STATIC", L"game", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 50, 50,
                                  800, 600, nullptr, nullptr, nullptr, nullptr));
  ASSERT_TRUE(game);
  SetForegroundWindow(game.get());
  if (GetForegroundWindow() != game.get()) GTEST_SKIP() << "this desktop gives no foreground";
  const RECT rect = {-40, 330, 760, 650};  // a monitor left of the primary one
  // Without composition Place refuses to show an empty drawer, so the step that shows it is
  // taken on its own there.
  DrawerPlacement placement;
  placement.drawer = rect;
  ASSERT_TRUE(composition_ ? drawer_.Place(placement) : ShowDrawerAt(drawer_.Window(), rect));
  EXPECT_TRUE(IsWindowVisible(drawer_.Window()));
  EXPECT_TRUE(SameRect(WindowRect(drawer_.Window()), rect));
  EXPECT_EQ(GetForegroundWindow(), game.get());
  drawer_.Hide();
  EXPECT_FALSE(IsWindowVisible(drawer_.Window()));
  EXPECT_FALSE(drawer_.Visible());
}

TEST_F(DrawerWindowTest, WindowProcedureForwardsOnlyInput) {
  std::vector<UINT> forwarded;
  drawer_.SetInputHandler([&](UINT message, WPARAM, LPARAM lparam) {
    EXPECT_EQ(lparam, 0x1C0001) << message;
    forwarded.push_back(message);
  });
  const struct {
    UINT message;
    LRESULT result;
    bool forwarded;
  } cases[] = {
      {WM_KEYDOWN, 0, true},           {WM_CHAR, 0, true},   {WM_SYSKEYDOWN, 0, true},
      {WM_MOUSEWHEEL, 0, true},        {WM_KEYUP, 0, false}, {WM_ERASEBKGND, 1, false},
      {WM_NCHITTEST, HTCLIENT, false},
  };
  for (const auto& c : cases) {
    forwarded.clear();
    EXPECT_EQ(SendMessageW(drawer_.Window(), c.message, 'A', 0x1C0001), c.result) << c.message;
    EXPECT_EQ(forwarded.size(), c.forwarded ? 1u : 0u) << c.message;
  }
  drawer_.SetInputHandler(nullptr);
  EXPECT_EQ(SendMessageW(drawer_.Window(), WM_KEYDOWN, VK_RETURN, 0), 0);
  // Destroying the drawer must not end the program's message loop.
  drawer_.Destroy();
  MSG message;
  EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
}

TEST_F(DrawerWindowTest, SizesPresentsAndReleasesOnWindows) {
  if (!composition_) GTEST_SKIP() << "no DirectComposition (Wine): this runs only on Windows";
  DrawerPlacement placement;
  placement.drawer = {0, 500, 0, 700};
  EXPECT_FALSE(drawer_.Place(placement));
  EXPECT_FALSE(IsWindowVisible(drawer_.Window()));
  for (const RECT& rect :
       {RECT{0, 500, 640, 740}, RECT{10, 400, 650, 640}, RECT{0, 300, 900, 640}}) {
    placement.drawer = rect;
    ASSERT_TRUE(drawer_.Place(placement));
    EXPECT_TRUE(SameRect(WindowRect(drawer_.Window()), rect));
    EXPECT_EQ(drawer_.Width(), static_cast<uint32_t>(rect.right - rect.left));
    EXPECT_EQ(drawer_.Height(), static_cast<uint32_t>(rect.bottom - rect.top));
    // No captured frame yet: the tint shows and the chat is still drawn over it.
    BlurParams params;
    params.opacity = 0.5f;
    float drawn_opacity = -1;
    EXPECT_TRUE(drawer_.Frame(nullptr, {}, 0.5f, params, [&](ID2D1DeviceContext*, float opacity) {
      drawn_opacity = opacity;
    }));
    EXPECT_EQ(drawn_opacity, 0.5f);
  }
  EXPECT_EQ(LogText().find("ResizeBuffers failed"), std::string::npos) << LogText();
  drawer_.ReleaseSurfaces();
  EXPECT_EQ(drawer_.Width(), 0u);
  EXPECT_FALSE(drawer_.Frame(nullptr, {}, 1.0f, BlurParams{}, nullptr));
}

}  // namespace
}  // namespace qn
