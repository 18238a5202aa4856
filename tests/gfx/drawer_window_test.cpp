// The drawer window on a real window manager. Wine has no DirectComposition, so the drawer
// shows through its own window's swap chain here, and a GDI copy stands in for the capture.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <tuple>
#include <vector>

#include "gfx/drawer_window.h"
#include "gfx/renderer.h"
#include "support/fake_tray_win.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"
#include "support/test_files.h"

namespace qn {
namespace {

constexpr wchar_t kGameClass[] = L"HintwickTestGame";
constexpr COLORREF kGameColour = RGB(200, 120, 40);

// A window that paints itself in one colour with GDI, as a game stands in for here.
HWND CreateGame(const RECT& r) {
  const HWND game = test::CreateTestWindow(kGameClass, &DefWindowProcW, WS_POPUP, nullptr);
  static const HBRUSH brush = CreateSolidBrush(kGameColour);
  SetClassLongPtrW(game, GCLP_HBRBACKGROUND, reinterpret_cast<LONG_PTR>(brush));
  SetWindowPos(game, nullptr, r.left, r.top, r.right - r.left, r.bottom - r.top, SWP_SHOWWINDOW);
  UpdateWindow(game);
  return game;
}

void PumpMessages() {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
}

bool Near(uint32_t pixel, uint32_t expected, int tolerance) {
  for (const int shift : {0, 8, 16}) {
    const int a = static_cast<int>(pixel >> shift & 255);
    const int b = static_cast<int>(expected >> shift & 255);
    if (std::abs(a - b) > tolerance) return false;
  }
  return true;
}

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

// The game's pixels go through the renderer into the swap chain of a topmost popup that
// never takes the focus (a game without it often stops presenting), the chat layer is drawn
// over them, and the presented frame is what the screen shows.
TEST_F(DrawerWindowTest, PresentedFrameOfTheGameReachesTheScreen) {
  EXPECT_EQ(GetWindowLongPtrW(drawer_.Window(), GWL_EXSTYLE), 0x08200088);
  const UniqueHwnd game(CreateGame({100, 100, 740, 580}));
  const std::unique_ptr<FrameSource> frames = test::MakeGdiFrameSource();
  ASSERT_TRUE(frames->Start(game.get(), renderer_.Device(), 0, 1));
  PumpMessages();
  const ComPtr<ID3D11Texture2D> frame = frames->TakeLatest();
  ASSERT_TRUE(frame);
  DrawerPlacement placement;
  placement.drawer = {100, 400, 740, 580};
  ASSERT_TRUE(drawer_.Place(placement)) << log_.Text();
  EXPECT_EQ(drawer_.Width(), 640u);  // the chat view is laid out to it
  // Half the tint over the game; the chat layer's box in its top-left corner.
  const BlurParams params = {{0, 0, 1, 0.5f}, 1.0f, 0};
  const uint32_t backdrop = 0xFF643C94u, box = 0xFF00FF00u;  // BGRA
  const auto draw = [](ID2D1DeviceContext* context, float) {
    ComPtr<ID2D1SolidColorBrush> green;
    context->CreateSolidColorBrush(D2D1::ColorF(0, 1, 0), green.put());
    if (green) context->FillRectangle(D2D1::RectF(0, 0, 100, 60), green.get());
  };
  const RECT probe = {100, 400, 420, 520};  // the drawer's top-left 320x120
  std::vector<uint32_t> screen;
  const ULONGLONG deadline = GetTickCount64() + 5000;
  bool shown = false;
  while (!shown && GetTickCount64() < deadline) {
    const RECT crop = {0, 300, 640, 480};
    ASSERT_TRUE(drawer_.Frame(frame.get(), crop, 1.0f, params, draw)) << log_.Text();
    PumpMessages();
    screen = test::ReadScreen(probe);
    shown = screen.size() == 320u * 120 && Near(screen[30 * 320 + 50], box, 8) &&
            Near(screen[90 * 320 + 200], backdrop, 8);
  }
  ASSERT_FALSE(screen.empty()) << "GDI read nothing from the screen";
  EXPECT_TRUE(shown) << std::hex << screen[30 * 320 + 50] << " " << screen[90 * 320 + 200];
  drawer_.Hide();
  EXPECT_FALSE(IsWindowVisible(drawer_.Window()) || drawer_.Visible());
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

// Without a surface there is nowhere to show; without DirectComposition (Wine) the product's
// surface fails with the call named once, for the caller to give up on the drawer.
TEST_F(DrawerWindowTest, CreateNeedsASurfaceThatBinds) {
  DrawerWindow other;
  EXPECT_FALSE(other.Create(GetModuleHandleW(nullptr), &renderer_, nullptr));
  EXPECT_EQ(other.Window(), nullptr);
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
