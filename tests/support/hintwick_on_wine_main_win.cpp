// Hintwick.exe as built, but with the drawer's surface and frames that Wine has: the program
// itself refuses to start where window capture is missing, so end-to-end runs under Wine
// (an update handing over to the next build) start this one.
#include <windows.h>

#include "app/entry_win.h"
#include "setup/crash_reporter_win.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"

namespace {

uint32_t Windows10() { return 19045; }
bool Supported() { return true; }

}  // namespace

int WINAPI wWinMain(HINSTANCE instance, HINSTANCE, PWSTR, int) {
  qn::CrashReporter::Install();
  qn::StartChecks checks{&Windows10, &Supported, {}, {}};
  checks.drawer.surface = [] { return qn::test::MakeHwndSurface(); };
  checks.drawer.frames = [] { return qn::test::MakeGdiFrameSource(); };
  return qn::RunHintwick(instance, std::move(checks));
}
