// Figures for the drawer over a 1920x1080 game under Wine: the hotkey's way to the first
// presented frame, what each part of a tick costs, and what an open drawer costs the process
// over a still game and over one presenting 30 frames a second. Each figure is taken both
// the way the drawer ticks now and the way it ticked before (every tick blurred, drew the
// chat and presented, whatever had changed), in the same run, and the two are set side by
// side. Run by hand, on a bench with a screen of the game's size:
//   HINTWICK_SCREEN=1920x1080x24 tests/wine/bench.sh start /tmp/drawerbench
//   (. /tmp/drawerbench/env && wine build/windows/bench/drawer_bench.exe)
//   tests/wine/bench.sh stop /tmp/drawerbench
// Wine has neither window capture nor DirectComposition: the drawer shows through a swap
// chain on its own window, over the tests' stand-in game (another process: the drawer refuses
// this one's windows), and its frames are the tests' GDI ones: one copy of the screen taken
// when the frames start, uploaded afresh as each frame the stand-in "presents". Both
// stand-ins cost what the system's own would not (the upload is a copy on the graphics card
// there), which the figures below keep apart where they can.
#include <windows.h>

#include <d3d11.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/drawer_target.h"
#include "app/keyboard_hooks_win.h"
#include "app/target_window_win.h"
#include "chat/chat_model.h"
#include "chat/chat_view.h"
#include "chat/offscreen_target_win.h"
#include "core/handles.h"
#include "core/settings.h"
#include "gfx/drawer_window.h"
#include "gfx/renderer.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"
#include "support/test_game_win.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr RECT kGame = {0, 0, 1920, 1080};
constexpr int kRounds = 20;
constexpr int kWarmUpFrames = 5;
constexpr DWORD kIdleSeconds = 10;
// Each round reopens a drawer whose graphics are still held, so the release must not come
// between rounds.
constexpr UINT kNoIdleRelease = 3600 * 1000;
// The drawer control's own tint: its cost does not depend on the colour, only on the pass.
constexpr qn::BlurParams kLook = {{0.06f, 0.06f, 0.08f, 0.55f}, 1.0f, 0, 1.0f};

double Ms(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::milli>(to - from).count();
}

void PrintSpread(const char* what, std::vector<double> ms) {
  if (ms.empty()) return;
  std::sort(ms.begin(), ms.end());
  std::printf("  %-46s min %7.2f  median %7.2f  max %7.2f ms\n", what, ms.front(),
              ms[ms.size() / 2], ms.back());
}

double Seconds(const FILETIME& time) {
  return static_cast<double>(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart) /
         1e7;
}

double CpuSeconds(HANDLE process) {
  FILETIME created, exited, kernel, user;
  if (!GetProcessTimes(process, &created, &exited, &kernel, &user)) return 0;
  return Seconds(kernel) + Seconds(user);
}

// Returns once the device has carried out everything submitted so far, so that each step is
// charged with its own GPU work rather than the next step's. Polled with Sleep(1), not spun:
// on a two-core machine a spinning thread takes a core from llvmpipe's rasteriser, which
// made the blur look half as fast again; the price is up to a millisecond per step.
void Finish(ID3D11Device* device, ID3D11DeviceContext* context) {
  const D3D11_QUERY_DESC desc = {D3D11_QUERY_EVENT, 0};
  qn::ComPtr<ID3D11Query> query;
  if (FAILED(device->CreateQuery(&desc, query.put()))) return;
  context->End(query.get());
  BOOL done = FALSE;
  while (context->GetData(query.get(), &done, sizeof(done), 0) == S_FALSE) Sleep(1);
}

bool IsTick(const MSG& message, HWND app_window) {
  return message.hwnd == app_window && message.message == WM_TIMER &&
         message.wParam == qn::kTickTimer;
}

// ---- The hotkey to the first presented frame, through the application's own table.

struct Opening {
  double open_ms = 0;  // dispatching WM_HOTKEY: the drawer control's Open
  double wait_ms = 0;  // from there to the first tick's WM_TIMER being taken
  double tick_ms = 0;  // dispatching that WM_TIMER: the first frame, presented
  double Total() const { return open_ms + wait_ms + tick_ms; }
};

// Posts the hotkey as the system would and runs the loop until the first tick has run; empty
// when the drawer refused to open.
std::optional<Opening> TimeOpening(qn::App& app) {
  const HWND window = app.MessageWindow();
  PostMessageW(window, WM_HOTKEY, 1, 0);
  Opening opening;
  std::optional<Clock::time_point> opened;
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    const bool hotkey = message.hwnd == window && message.message == WM_HOTKEY;
    const bool first_tick = opened && IsTick(message, window);
    const Clock::time_point start = Clock::now();
    TranslateMessage(&message);
    DispatchMessageW(&message);
    const Clock::time_point end = Clock::now();
    if (hotkey) {
      if (!app.Drawer().IsOpen()) return std::nullopt;
      opening.open_ms = Ms(start, end);
      opened = end;
    } else if (first_tick) {
      opening.wait_ms = Ms(*opened, start);
      opening.tick_ms = Ms(start, end);
      return opening;
    }
  }
  return std::nullopt;
}

HANDLE OpenProcessOf(HWND window) {
  DWORD id = 0;
  GetWindowThreadProcessId(window, &id);
  return OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id);
}

// The game's process, for saying why it went away. Not for its processor time: Wine's
// GetProcessTimes answers with the caller's own times for another process.
HANDLE g_game_process = nullptr;

void SayWhereTheGameIs(const qn::test::TestGame& game) {
  DWORD code = 0;
  GetExitCodeProcess(g_game_process, &code);
  std::printf("  the game's window %s; its process %s (code 0x%lx); foreground %p\n",
              IsWindow(game.window()) ? "exists" : "is gone",
              code == STILL_ACTIVE ? "runs" : "ended", code,
              static_cast<void*>(GetForegroundWindow()));
}

bool CloseAndWait(qn::App& app, const qn::test::TestGame& game) {
  app.Drawer().Close();
  if (qn::test::PumpUntil([&] { return !app.Drawer().IsOpen(); }) && game.BringToFront()) {
    return true;
  }
  SayWhereTheGameIs(game);
  return false;
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Returns the median from the hotkey to the first frame presented, 0 when it failed.
double BenchOpening(qn::App& app, const qn::test::TestGame& game) {
  std::printf("hotkey to the first presented frame (WM_HOTKEY posted, loop run here):\n");
  const std::optional<Opening> cold = TimeOpening(app);
  if (!cold || !CloseAndWait(app, game)) {
    std::printf("  the drawer did not open and close (see hintwick.log)\n");
    return 0;
  }
  std::printf("  first opening, graphics made: Open %.2f + wait %.2f + tick %.2f = %.2f ms\n",
              cold->open_ms, cold->wait_ms, cold->tick_ms, cold->Total());
  std::vector<double> open, wait, tick, total;
  for (int round = 0; round < kRounds; ++round) {
    const std::optional<Opening> o = TimeOpening(app);
    if (!o || !CloseAndWait(app, game)) {
      std::printf("  round %d: the drawer did not open and close\n", round);
      return 0;
    }
    open.push_back(o->open_ms);
    wait.push_back(o->wait_ms);
    tick.push_back(o->tick_ms);
    total.push_back(o->Total());
  }
  std::printf(" reopening with the graphics held, %d rounds:\n", kRounds);
  PrintSpread("Open (WM_HOTKEY dispatched)", open);
  PrintSpread("wait for the first WM_TIMER", wait);
  PrintSpread("first tick (WM_TIMER dispatched, presents)", tick);
  PrintSpread("hotkey to first frame presented", total);
  return Median(total);
}

// What Open asks of the system, each call timed alone while the drawer is closed, to say
// where the opening's time goes.
void BreakDownOpen(qn::App& app, const qn::test::TestGame& game) {
  const HWND target = game.window();
  const HWND drawer = app.Drawer().DrawerWindowHandle();
  const RECT strip = {160, 724, 1760, 1080};  // where the drawer shows over kGame
  const struct {
    const char* name;
    std::function<void()> call;
  } calls[] = {
      {"MeasureWindow", [&] { qn::MeasureWindow(target); }},
      {"ShellReportsD3dFullscreen", [] { qn::ShellReportsD3dFullscreen(); }},
      {"ExecutablePathOf + GameIdentity", [&] { qn::GameIdentity(qn::ExecutablePathOf(target)); }},
      {"Renderer::DisplayIsHdr", [&] { qn::Renderer::DisplayIsHdr(target); }},
      {"show + hide the drawer window",
       [&] {
         qn::ShowDrawerAt(drawer, strip);
         ShowWindow(drawer, SW_HIDE);
       }},
      {"KeysHiddenFromHookIn", [&] { qn::KeysHiddenFromHookIn(target); }},
      {"Start + StopKeyboardCapture",
       [&] {
         qn::StartKeyboardCapture(app.MessageWindow(), WM_APP);
         qn::StopKeyboardCapture();
       }},
      {"Conversation::OnDrawerOpened (status, lookup)", [&] { app.Chat().OnDrawerOpened(); }},
  };
  std::printf(" what Open asks of the system, each call alone, %d times:\n", kRounds);
  for (const auto& c : calls) {
    std::vector<double> ms;
    for (int i = 0; i < kRounds; ++i) {
      const Clock::time_point start = Clock::now();
      c.call();
      ms.push_back(Ms(start, Clock::now()));
    }
    PrintSpread(c.name, ms);
  }
}

// ---- An open drawer over a game that does not change.

// Runs the loop for `ms`, counting the drawer's ticks.
int RunCountingTicks(HWND app_window, DWORD ms) {
  int ticks = 0;
  MSG message;
  for (const ULONGLONG end = GetTickCount64() + ms; GetTickCount64() < end;) {
    if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      const ULONGLONG left = end - std::min(end, GetTickCount64());
      MsgWaitForMultipleObjects(0, nullptr, FALSE, static_cast<DWORD>(left), QS_ALLINPUT);
      continue;
    }
    if (IsTick(message, app_window)) ++ticks;
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return ticks;
}

// What the drawer presents, counted by the bench's surface, and how often the stand-in game
// presents (0: never after its first frame). The drawer takes both when its graphics are made.
qn::test::SurfaceRecord g_presented;
int g_game_hz = 0;

struct OpenCost {
  double cpu_percent = 0;  // of one core
  double presents_per_second = 0;
};

OpenCost BenchOpenIdle(qn::App& app, const qn::test::TestGame& game, int game_hz) {
  g_game_hz = game_hz;
  app.Drawer().ReleaseGraphics();  // the frames are made anew for this game
  if (!TimeOpening(app)) {
    std::printf("open drawer over a %d Hz game: the drawer did not open\n", game_hz);
    return {};
  }
  RunCountingTicks(app.MessageWindow(), 500);  // past the slide-in
  const size_t presents_before = g_presented.presents.size();
  const double before = CpuSeconds(GetCurrentProcess());
  const int ticks = RunCountingTicks(app.MessageWindow(), kIdleSeconds * 1000);
  const double cpu = CpuSeconds(GetCurrentProcess()) - before;
  const OpenCost cost = {
      100.0 * cpu / kIdleSeconds,
      static_cast<double>(g_presented.presents.size() - presents_before) / kIdleSeconds};
  std::printf(
      "open drawer over a %s, %lu s: %.2f s CPU (%.1f%% of one core), %d ticks (%.1f per "
      "second; the timer asks for one every %u ms), %.1f presents per second\n",
      game_hz ? "game presenting 30 frames a second" : "still game", kIdleSeconds, cpu,
      cost.cpu_percent, ticks, ticks / static_cast<double>(kIdleSeconds), qn::kTickMs,
      cost.presents_per_second);
  // The tick alone, without the message loop around it: over a still game most find nothing.
  std::vector<double> tick_ms;
  for (int i = 0; i < 200 && app.Drawer().IsOpen(); ++i) {
    const Clock::time_point start = Clock::now();
    app.Drawer().Tick();
    tick_ms.push_back(Ms(start, Clock::now()));
  }
  PrintSpread("DrawerControl::Tick called on its own", tick_ms);
  if (!app.Drawer().IsOpen()) std::printf("  (the drawer closed during the run)\n");
  CloseAndWait(app, game);
  return cost;
}

// ---- The parts of one tick, composed here as the drawer control composes them.

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

// The renderer with the blur of before, which cross-faded the whole chain with the sharp frame.
class OldBlurRenderer : public qn::Renderer {
 protected:
  bool CreateStates() override { return Renderer::CreateStates() && UseOldBlurForBench(true); }
};

qn::StartChecks WineChecks(bool as_before) {
  qn::StartChecks checks{[] { return 19045u; }, [] { return true; }, {}, {}};
  checks.drawer.surface = [] { return qn::test::MakeHwndSurface(&g_presented); };
  checks.drawer.frames = [] { return qn::test::MakeGdiFrameSource({g_game_hz, {}}); };
  checks.drawer.idle_release_ms = kNoIdleRelease;
  checks.drawer.redraw_every_tick = as_before;
  if (as_before) checks.drawer.renderer = [] { return std::make_unique<OldBlurRenderer>(); };
  return checks;
}

struct AppFigures {
  double opening_ms = 0;
  OpenCost still, moving;
};

AppFigures BenchApp(const qn::test::TestGame& game, bool as_before) {
  std::printf("\n==== %s ====\n", as_before ? "as before: every tick redraws everything"
                                            : "now: a tick redraws what changed");
  if (as_before) std::printf("(with the blur of before too)\n");
  AppFigures figures;
  qn::App app(GetModuleHandleW(nullptr), WineChecks(as_before));
  if (!app.Init()) return figures;
  figures.opening_ms = BenchOpening(app, game);
  if (!as_before) BreakDownOpen(app, game);
  figures.still = BenchOpenIdle(app, game, 0);
  figures.moving = BenchOpenIdle(app, game, 30);
  app.Shutdown();
  return figures;
}

void PrintBeside(const char* what, double now, double before, const char* unit) {
  std::printf("  %-52s %9.2f %9.2f %s  (%.1fx)\n", what, now, before, unit,
              now > 0 ? before / now : 0.0);
}

void PrintComparison(const AppFigures& now, const AppFigures& before) {
  std::printf("\n%-54s %9s %9s\n", "the same run, side by side:", "now", "before");
  PrintBeside("CPU, open over a still game (% of one core)", now.still.cpu_percent,
              before.still.cpu_percent, "%");
  PrintBeside("presents per second over a still game", now.still.presents_per_second,
              before.still.presents_per_second, "/s");
  PrintBeside("CPU, open over a 30 Hz game (% of one core)", now.moving.cpu_percent,
              before.moving.cpu_percent, "%");
  PrintBeside("presents per second over a 30 Hz game", now.moving.presents_per_second,
              before.moving.presents_per_second, "/s");
  PrintBeside("hotkey to first frame presented (median)", now.opening_ms, before.opening_ms, "ms");
}

}  // namespace

int wmain() {
  const qn::ComApartment com(COINIT_MULTITHREADED);
  const int screen_width = GetSystemMetrics(SM_CXSCREEN);
  const int screen_height = GetSystemMetrics(SM_CYSCREEN);
  if (screen_width != kGame.right || screen_height != kGame.bottom) {
    std::printf(
        "the screen is %dx%d; these figures are for a game covering 1920x1080 "
        "(HINTWICK_SCREEN=1920x1080x24 tests/wine/bench.sh start DIR)\n",
        screen_width, screen_height);
  }
  const qn::test::TestGame game(kGame);
  if (!game.window()) {
    std::printf("the stand-in game could not be brought to the front\n");
    return 1;
  }
  const qn::UniqueKernelHandle game_process(OpenProcessOf(game.window()));
  g_game_process = game_process.get();
  const AppFigures now = BenchApp(game, false);
  const AppFigures before = BenchApp(game, true);
  PrintComparison(now, before);
  std::printf("\n");
  BenchTick(game);
  return 0;
}
