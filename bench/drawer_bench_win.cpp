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
#include "drawer_bench_win.h"
#include "gfx/drawer_window.h"
#include "gfx/renderer.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"
#include "support/test_game_win.h"

namespace drawer_bench {

double Ms(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::milli>(to - from).count();
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

void PrintSpread(const char* what, std::vector<double> ms) {
  if (ms.empty()) return;
  std::sort(ms.begin(), ms.end());
  std::printf("  %-46s min %7.2f  median %7.2f  max %7.2f ms\n", what, ms.front(),
              ms[ms.size() / 2], ms.back());
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

}  // namespace drawer_bench

namespace {

using namespace drawer_bench;

constexpr DWORD kIdleSeconds = 10;
// Each round reopens a drawer whose graphics are still held, so the release must not come
// between rounds.
constexpr UINT kNoIdleRelease = 3600 * 1000;
double Seconds(const FILETIME& time) {
  return static_cast<double>(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart) /
         1e7;
}

double CpuSeconds(HANDLE process) {
  FILETIME created, exited, kernel, user;
  if (!GetProcessTimes(process, &created, &exited, &kernel, &user)) return 0;
  return Seconds(kernel) + Seconds(user);
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

bool CloseAndWait(qn::App& app, const qn::test::TestGame& game) {
  app.Drawer().Close();
  if (qn::test::PumpUntil([&] { return !app.Drawer().IsOpen(); }) && game.BringToFront()) {
    return true;
  }
  SayWhereTheGameIs(game);
  return false;
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

// Runs the loop for `ms` over the open drawer and says what that cost.
OpenCost MeasureOpen(qn::App& app, const char* what, DWORD ms) {
  const size_t presents_before = g_presented.presents.size();
  const double cpu_before = CpuSeconds(GetCurrentProcess());
  const int ticks = RunCountingTicks(app.MessageWindow(), ms);
  const double seconds = ms / 1000.0;
  const OpenCost cost = {
      100.0 * (CpuSeconds(GetCurrentProcess()) - cpu_before) / seconds,
      static_cast<double>(g_presented.presents.size() - presents_before) / seconds};
  std::printf(
      "  %-44s %4.1f s: %5.1f%% of one core, %5.1f ticks a second (one asked for every %u "
      "ms), %4.1f presents a second\n",
      what, seconds, cost.cpu_percent, ticks / seconds, qn::kTickMs, cost.presents_per_second);
  return cost;
}

// The tick alone, without the message loop around it: over a still game most find nothing.
void TimeTickAlone(qn::App& app) {
  std::vector<double> tick_ms;
  for (int i = 0; i < 200 && app.Drawer().IsOpen(); ++i) {
    const Clock::time_point start = Clock::now();
    app.Drawer().Tick();
    tick_ms.push_back(Ms(start, Clock::now()));
  }
  PrintSpread("DrawerControl::Tick called on its own", tick_ms);
}

struct OpenCosts {
  OpenCost blinking, at_rest;  // over the still game, before and after the caret rests
  OpenCost moving;             // over the game presenting 30 frames a second
};

// Over the still game the caret blinks from the opening until it rests; both stretches are
// measured, past the slide-in and half a second clear of the moment it rests.
bool BenchOpenIdle(qn::App& app, const qn::test::TestGame& game, int game_hz, OpenCosts& costs) {
  g_game_hz = game_hz;
  app.Drawer().ReleaseGraphics();  // the frames are made anew for this game
  std::printf("open drawer over a %s:\n",
              game_hz ? "game presenting 30 frames a second" : "still game, nothing typed");
  if (!TimeOpening(app)) {
    std::printf("  the drawer did not open\n");
    return false;
  }
  RunCountingTicks(app.MessageWindow(), 500);  // past the slide-in
  if (game_hz) {
    costs.moving = MeasureOpen(app, "", kIdleSeconds * 1000);
  } else {
    const uint64_t rest_ms = qn::SystemCaretBlink().rest_after_ms;
    const DWORD blinking_ms = static_cast<DWORD>(rest_ms > 1000 ? rest_ms - 1000 : 0);
    if (blinking_ms) costs.blinking = MeasureOpen(app, "the caret blinking", blinking_ms);
    RunCountingTicks(app.MessageWindow(), 1000);
    costs.at_rest = MeasureOpen(app, "the caret at rest", kIdleSeconds * 1000);
  }
  TimeTickAlone(app);
  const bool stayed_open = app.Drawer().IsOpen();
  if (!stayed_open) std::printf("  (the drawer closed during the run)\n");
  return CloseAndWait(app, game) && stayed_open;
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
  OpenCosts open;
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
  BenchOpenIdle(app, game, 0, figures.open) && BenchOpenIdle(app, game, 30, figures.open);
  app.Shutdown();
  return figures;
}

void PrintBeside(const char* what, double now, double before, const char* unit) {
  std::printf("  %-52s %9.2f %9.2f %s", what, now, before, unit);
  if (now > 0) std::printf("  (%.1fx)", before / now);
  std::printf("\n");
}

void PrintComparison(const AppFigures& now, const AppFigures& before) {
  std::printf("\n%-54s %9s %9s\n", "the same run, side by side:", "now", "before");
  const struct {
    const char* what;
    OpenCost OpenCosts::*stretch;
  } stretches[] = {
      {"over a still game, the caret blinking", &OpenCosts::blinking},
      {"over a still game, the caret at rest", &OpenCosts::at_rest},
      {"over a 30 Hz game", &OpenCosts::moving},
  };
  for (const auto& s : stretches) {
    const OpenCost& n = now.open.*s.stretch;
    const OpenCost& b = before.open.*s.stretch;
    std::printf(" %s:\n", s.what);
    PrintBeside("CPU (% of one core)", n.cpu_percent, b.cpu_percent, "%");
    PrintBeside("presents per second", n.presents_per_second, b.presents_per_second, "/s");
  }
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
