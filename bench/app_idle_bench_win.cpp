// Figures for the resident program: how long start-up takes, what the process costs while it
// waits for the hotkey, and how much memory the idle release gives back. Run by hand:
//   app_idle_bench.exe [IDLE_SECONDS]
// Wine has neither window capture nor DirectComposition, so the start checks and the drawer's
// surface and frames are the tests' own, and the drawer opens over the tests' stand-in game
// (another process: the drawer refuses this one's windows) covering the screen.
#include <windows.h>

#include <psapi.h>

#include <cstdio>
#include <cwchar>

#include "app/app.h"
#include "app/tray_menu.h"
#include "core/handles.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"
#include "support/test_game_win.h"

namespace {

int g_wakes = 0;
HHOOK g_hook = nullptr;

// Called once for every message the interface thread takes from its queue.
LRESULT CALLBACK CountWake(int code, WPARAM wparam, LPARAM lparam) {
  if (code == HC_ACTION && wparam == PM_REMOVE) ++g_wakes;
  return CallNextHookEx(g_hook, code, wparam, lparam);
}

double Seconds(const FILETIME& time) {
  return static_cast<double>(ULARGE_INTEGER{{time.dwLowDateTime, time.dwHighDateTime}}.QuadPart) /
         1e7;
}

double CpuSeconds() {
  FILETIME created, exited, kernel, user;
  GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
  return Seconds(kernel) + Seconds(user);
}

double SecondsSinceProcessStart() {
  FILETIME created, exited, kernel, user, now;
  GetProcessTimes(GetCurrentProcess(), &created, &exited, &kernel, &user);
  GetSystemTimePreciseAsFileTime(&now);
  return Seconds(now) - Seconds(created);
}

double WorkingSetMiB() {
  PROCESS_MEMORY_COUNTERS counters = {};
  GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters));
  return static_cast<double>(counters.WorkingSetSize) / (1024.0 * 1024.0);
}

// Runs the loop until `seconds` have passed; the quit comes as the tray's Exit would.
void RunFor(qn::App& app, UINT seconds) {
  SetTimer(nullptr, 0, seconds * 1000, [](HWND, UINT, UINT_PTR timer, DWORD) {
    KillTimer(nullptr, timer);
    PostQuitMessage(0);
  });
  app.Run();
}

qn::StartChecks WineChecks() {
  qn::StartChecks checks{[] { return 19045u; }, [] { return true; }, {}, {}};
  checks.drawer.surface = [] { return qn::test::MakeHwndSurface(); };
  checks.drawer.frames = [] { return qn::test::MakeGdiFrameSource(); };
  checks.drawer.idle_release_ms = 2000;
  return checks;
}

// The figure is taken after a second of ticks, so that the frames, the blur chain and the
// chat's layouts are all held, as they are while a player reads.
void MeasureOpenDrawer(qn::App& app) {
  const qn::test::TestGame game(
      {0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)});
  if (!game.window()) {
    std::printf("drawer open: the stand-in game could not be brought to the front\n");
    return;
  }
  app.Drawer().Open();
  if (!app.Drawer().IsOpen()) {
    std::printf("drawer open: the drawer did not open (see hintwick.log)\n");
    return;
  }
  RunFor(app, 1);
  std::printf("working set with the drawer open: %.1f MiB\n", WorkingSetMiB());
  app.Drawer().Close();
  qn::test::PumpUntil([&] { return !app.Drawer().IsOpen(); });
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
  const UINT idle_seconds = argc > 1 ? static_cast<UINT>(_wtoi(argv[1])) : 60;
  const qn::ComApartment com(COINIT_MULTITHREADED);
  qn::App app(GetModuleHandleW(nullptr), WineChecks());
  if (!app.Init()) return 1;
  std::printf("start-up: %.3f s from process start to initialised\n", SecondsSinceProcessStart());
  std::printf("working set after start: %.1f MiB\n", WorkingSetMiB());

  g_hook = SetWindowsHookExW(WH_GETMESSAGE, &CountWake, nullptr, GetCurrentThreadId());
  const double cpu_before = CpuSeconds();
  RunFor(app, idle_seconds);
  std::printf("idle %u s, drawer closed: %.3f s CPU, %d messages taken (1 is the bench's own)\n",
              idle_seconds, CpuSeconds() - cpu_before, g_wakes);
  UnhookWindowsHookEx(g_hook);

  MeasureOpenDrawer(app);
  RunFor(app, 4);  // the release comes 2 s after the close
  std::printf("working set after the idle release: %.1f MiB\n", WorkingSetMiB());
  app.Shutdown();
  return 0;
}
