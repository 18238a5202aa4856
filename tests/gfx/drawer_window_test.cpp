// The drawer window on a real window manager. Wine has no DirectComposition, so there the
// drawer's creation stops after its window, and what needs the composition swap chain
// (sizing, presenting, the slide) runs only on Windows; those tests skip under Wine.
#include <windows.h>

#include <gtest/gtest.h>

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

  bool IsAt(const RECT& expected) const {
    RECT rect = {};
    GetWindowRect(drawer_.Window(), &rect);
    return EqualRect(&rect, &expected) != FALSE;
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
  // Without composition Place refuses to show an empty drawer, so the step that shows it is
  // taken on its own there.
  DrawerPlacement placement;
  placement.drawer = rect;
  ASSERT_TRUE(composition_ ? drawer_.Place(placement) : ShowDrawerAt(window, rect));
  EXPECT_TRUE(IsWindowVisible(window));
  EXPECT_TRUE(IsAt(rect));
  EXPECT_EQ(GetForegroundWindow(), game.get());
  drawer_.Hide();
  EXPECT_FALSE(IsWindowVisible(window));
  EXPECT_FALSE(drawer_.Visible());
}

TEST_F(DrawerWindowTest, WithoutCompositionNothingIsShown) {
  if (composition_) GTEST_SKIP() << "DirectComposition works here";
  EXPECT_TRUE(log_.Has("ERROR DCompositionCreateDevice failed: 0x")) << log_.Text();
  // An empty top-most window would swallow the game's clicks.
  DrawerPlacement placement;
  placement.drawer = {100, 400, 900, 700};
  EXPECT_FALSE(drawer_.Place(placement));
  EXPECT_FALSE(IsWindowVisible(drawer_.Window()));
  EXPECT_FALSE(drawer_.Frame(nullptr, {}, 1.0f, BlurParams{}, nullptr));
  EXPECT_FALSE(drawer_.Create(GetModuleHandleW(nullptr), &renderer_));
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
  // Destroying the drawer must not end the program's message loop.
  drawer_.Destroy();
  MSG message;
  EXPECT_FALSE(PeekMessageW(&message, nullptr, WM_QUIT, WM_QUIT, PM_REMOVE));
}

// Each new size resizes the swap chain, which fails on real drivers while the last frame's
// views still hold its buffers.
TEST_F(DrawerWindowTest, SizesPresentsAndReleasesOnWindows) {
  if (!composition_) GTEST_SKIP() << "no DirectComposition (Wine): this runs only on Windows";
  const std::vector<uint32_t> grey(64 * 64, 0xFF808080u);
  const CD3D11_TEXTURE2D_DESC desc(DXGI_FORMAT_B8G8R8A8_UNORM, 64, 64, 1, 1);
  const D3D11_SUBRESOURCE_DATA pixels = {grey.data(), 64 * 4, 0};
  ComPtr<ID3D11Texture2D> frame;
  ASSERT_HRESULT_SUCCEEDED(renderer_.Device()->CreateTexture2D(&desc, &pixels, frame.put()));
  DrawerPlacement placement;
  for (const RECT& rect :
       {RECT{0, 500, 640, 740}, RECT{10, 400, 650, 640}, RECT{0, 300, 900, 640}}) {
    placement.drawer = rect;
    ASSERT_TRUE(drawer_.Place(placement));
    EXPECT_TRUE(IsAt(rect));
    EXPECT_EQ(drawer_.Width(), static_cast<uint32_t>(rect.right - rect.left));
    BlurParams params;
    params.opacity = 0.5f;
    float drawn_opacity = -1;
    EXPECT_TRUE(
        drawer_.Frame(frame.get(), {0, 0, 64, 64}, 0.5f, params,
                      [&](ID2D1DeviceContext*, float opacity) { drawn_opacity = opacity; }));
    EXPECT_EQ(drawn_opacity, 0.5f);
  }
  EXPECT_FALSE(log_.Has("ResizeBuffers failed")) << log_.Text();
  drawer_.ReleaseSurfaces();
  EXPECT_EQ(drawer_.Width(), 0u);
  EXPECT_FALSE(drawer_.Frame(nullptr, {}, 1.0f, BlurParams{}, nullptr));
}

}  // namespace
}  // namespace qn
