// The drawer bench's second half: the parts of one tick over the 1920x1080 stand-in game,
// composed here as the drawer control composes them, each timed with its GPU work finished.
#include <windows.h>

#include <d3d11.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/drawer_target.h"
#include "app/target_window_win.h"
#include "chat/chat_model.h"
#include "chat/chat_view.h"
#include "chat/offscreen_target_win.h"
#include "core/settings.h"
#include "drawer_bench_win.h"
#include "gfx/drawer_window.h"
#include "gfx/renderer.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"

namespace drawer_bench {
namespace {

// A render target of the drawer's size on the renderer's device, for the blur alone.
struct BlurTarget {
  qn::ComPtr<ID3D11Texture2D> texture;
  qn::ComPtr<ID3D11RenderTargetView> view;
  bool Create(ID3D11Device* device, UINT width, UINT height) {
    const CD3D11_TEXTURE2D_DESC desc(DXGI_FORMAT_B8G8R8A8_UNORM, width, height, 1, 1,
                                     D3D11_BIND_RENDER_TARGET);
    return SUCCEEDED(device->CreateTexture2D(&desc, nullptr, texture.put())) &&
           SUCCEEDED(device->CreateRenderTargetView(texture.get(), nullptr, view.put()));
  }
};

// Ten exchanges of answer-length prose with emphasis and code spans, and an answer coming in.
void FillConversation(qn::ChatModel& chat) {
  const std::wstring answer =
      L"Head **north** past the mill, then take the `rope` from the well. The *second* door "
      L"only opens at night, so wait by the fire. If the guard stops you, show him the "
      L"**signet** and say nothing; he lets you through once the bell has rung twice.";
  for (int i = 0; i < 10; ++i) {
    chat.SetText(qn::kRoleQuestion, L"And after the bridge, step " + std::to_wstring(i) + L"?");
    chat.SetText(qn::kRoleAnswer, answer);
  }
  chat.BeginAnswer();
}

class TickParts {
 public:
  bool Create(const qn::test::TestGame& game);
  void RunFrame(bool timed);
  void TimeReopening();
  void Print() const;

 private:
  using Step = std::function<void()>;
  void Time(std::vector<double>& into, bool timed, ID3D11Device* device,
            ID3D11DeviceContext* context, const Step& step);
  bool PlaceDrawer(HWND game);

  // Declared in the order they depend on each other, as in the drawer control.
  qn::Renderer renderer_;
  std::unique_ptr<qn::DrawerSurface> surface_;
  qn::DrawerWindow drawer_;
  std::unique_ptr<qn::FrameSource> frames_;
  BlurTarget blur_target_;
  qn::test::OffscreenTarget chat_target_;
  qn::ChatModel model_;
  qn::ChatView view_{model_};
  qn::WindowPlace place_;
  qn::TargetGeometry geometry_;
  qn::DrawerPlacement placement_;
  RECT crop_ = {};
  HWND game_ = nullptr;
  std::vector<double> copy_, blur_, chat_, compose_, before_, new_frame_, token_;
};

bool TickParts::PlaceDrawer(HWND game) {
  place_ = qn::MeasureWindow(game);
  const double fraction = qn::Settings{}.drawer_pct / 100.0;
  geometry_ = qn::PlanTarget(place_, false, fraction);
  placement_ = {qn::ToRect(geometry_.target), qn::ToRect(geometry_.drawer), geometry_.dpi,
                geometry_.mode == qn::WindowMode::kWindowed ? 0u : 1u};
  return drawer_.Place(placement_);
}

bool TickParts::Create(const qn::test::TestGame& game) {
  game_ = game.window();
  surface_ = qn::test::MakeHwndSurface();
  // A game presenting every millisecond, without throttle: every TakeLatest copies, which is
  // the step measured; the drawer copies at most 30 times a second. Started before the
  // drawer shows, since the GDI frames copy the screen.
  frames_ = qn::test::MakeGdiFrameSource({1000, {}});
  if (!drawer_.Create(GetModuleHandleW(nullptr), &renderer_, surface_.get()) ||
      !frames_->Start(game.window(), renderer_.Device(), 0, 1) || !PlaceDrawer(game.window())) {
    return false;
  }
  const qn::ComPtr<ID3D11Texture2D> first = frames_->TakeLatest();
  if (!first) return false;
  D3D11_TEXTURE2D_DESC desc;
  first->GetDesc(&desc);
  const qn::PixelRect crop =
      qn::CropInFrame(geometry_.drawer, geometry_.captured, {desc.Width, desc.Height});
  crop_ = {crop.left, crop.top, crop.right, crop.bottom};
  FillConversation(model_);  // before Init, which greets only an empty conversation
  const UINT width = drawer_.Width(), height = drawer_.Height();
  if (!blur_target_.Create(renderer_.Device(), width, height) ||
      !chat_target_.Create(width, height) || !view_.Init(chat_target_.dwrite())) {
    return false;
  }
  view_.SetSize(width, height, static_cast<float>(geometry_.dpi) / 96.0f);
  return true;
}

void TickParts::Time(std::vector<double>& into, bool timed, ID3D11Device* device,
                     ID3D11DeviceContext* context, const Step& step) {
  const Clock::time_point start = Clock::now();
  step();
  Finish(device, context);
  if (timed) into.push_back(Ms(start, Clock::now()));
}

// Each step is timed with its GPU work finished; then whole ticks, the way the drawer control
// runs them: as before (everything), and now with a new frame or with a token.
void TickParts::RunFrame(bool timed) {
  ID3D11Device* const device = renderer_.Device();
  ID3D11DeviceContext* const context = renderer_.Context();
  qn::ComPtr<ID3D11Texture2D> frame;
  Time(copy_, timed, device, context, [&] { frame = frames_->TakeLatest(); });
  Time(blur_, timed, device, context, [&] {
    renderer_.Render(frame.get(), crop_, blur_target_.view.get(), drawer_.Width(), drawer_.Height(),
                     kLook);
  });
  Time(chat_, timed, chat_target_.device(), chat_target_.immediate(), [&] {
    chat_target_.context()->BeginDraw();
    view_.Draw(chat_target_.context(), 1.0f);
    chat_target_.context()->EndDraw();
  });
  const auto tick = [&](std::vector<double>& into, qn::FrameWork work, bool as_before = false) {
    const qn::DrawerWindow::DrawCallback draw = [&](ID2D1DeviceContext* target, bool whole) {
      view_.DrawLayer(target, whole || as_before);
    };
    Time(into, timed, device, context, [&] {
      qn::ComPtr<ID3D11Texture2D> latest;
      if (work.backdrop) latest = frames_->TakeLatest();
      if (work.chat && !work.backdrop) model_.AppendAnswer(L" more");
      drawer_.Frame(latest.get(), crop_, 1.0f, kLook, draw, work);
    });
  };
  renderer_.UseOldBlurForBench(true);
  tick(before_, {true, true, true}, true);
  renderer_.UseOldBlurForBench(false);
  tick(compose_, {false, false, true});
  tick(new_frame_, {true, false, true});
  tick(token_, {false, true, true});
}

// What a reopening redoes with the graphics held, between the checks and the keyboard: the
// frame source drops its frame and starts over, and the drawer window is shown again.
void TickParts::TimeReopening() {
  std::vector<double> restart, place;
  for (int i = 0; i < kRounds; ++i) {
    RunFrame(false);
    Clock::time_point start = Clock::now();
    frames_->Stop();
    frames_->Start(game_, renderer_.Device(), 0, 1);
    restart.push_back(Ms(start, Clock::now()));
    drawer_.Hide();
    start = Clock::now();
    drawer_.Place(placement_);
    place.push_back(Ms(start, Clock::now()));
  }
  std::printf(" what Open redoes on a held drawer, on this bench's own, %d times:\n", kRounds);
  PrintSpread("GDI frames Stop + Start (copies the screen)", restart);
  PrintSpread("DrawerWindow::Place after Hide", place);
}

void TickParts::Print() const {
  std::printf("one tick at %dx%d with a %ux%u drawer, %d frames after %d warm-up:\n",
              place_.window.Width(), place_.window.Height(), drawer_.Width(), drawer_.Height(),
              kRounds, kWarmUpFrames);
  PrintSpread("capture copy (TakeLatest: uploads the still)", copy_);
  PrintSpread("blur (Renderer::Render)", blur_);
  PrintSpread("chat drawing (ChatView::Draw, 21 messages)", chat_);
  PrintSpread("compose the two layers + present", compose_);
  PrintSpread("whole tick as before: copy, blur, chat, present", before_);
  PrintSpread("tick with a new frame: copy, blur, compose", new_frame_);
  PrintSpread("tick with a token: its layout, chat, compose", token_);
  const double before = Median(before_);
  std::printf(
      "  against the tick as before (medians): a new frame %.1fx, a token %.1fx; a tick\n"
      "  with nothing new draws nothing (see the open drawer's figures above)\n",
      before / Median(new_frame_), before / Median(token_));
}

}  // namespace

void BenchTick(const qn::test::TestGame& game) {
  TickParts parts;
  if (!parts.Create(game)) {
    std::printf("tick parts: the drawer's graphics could not be made over the game\n");
    SayWhereTheGameIs(game);
    return;
  }
  for (int i = 0; i < kWarmUpFrames; ++i) parts.RunFrame(false);
  for (int i = 0; i < kRounds; ++i) parts.RunFrame(true);
  parts.Print();
  parts.TimeReopening();
}

}  // namespace drawer_bench
