#include "app/entry_win.h"

#include <objbase.h>

#include <chrono>
#include <stop_token>
#include <thread>
#include <utility>

#include "app/single_instance.h"
#include "core/handles.h"
#include "setup/updater.h"

namespace qn {
namespace {

// The previous build may still be ending after its hand-over; its image is the leftover.
constexpr std::chrono::seconds kLeftoverPatience{30};

}  // namespace

int RunHintwick(HINSTANCE instance, StartChecks checks) {
  const ComApartment com(COINIT_MULTITHREADED);
  if (!com) {
    // Nothing can work without COM; a non-continuable exception carrying the HRESULT takes
    // the crash path, which records it, instead of limping on.
    RaiseException(static_cast<DWORD>(com.Result()), EXCEPTION_NONCONTINUABLE, 0, nullptr);
  }
  if (!TakeSingleInstance()) {
    NotifyRunningInstance();
    Updater::ConfirmStarted();  // a copy is running: this start did what it could
    return 0;
  }
  // Under the mutex: an instance in the middle of its own update has these files open.
  const Updater updater(checks.updater);
  updater.RepairInterruptedSwap();
  App app(instance, std::move(checks));
  const bool running = app.Init();
  if (running) Updater::ConfirmStarted();
  std::jthread tidy;
  if (running) {
    // Only now may the previous build go: until this build has started once, it is the
    // one that works.
    tidy = std::jthread([&updater](std::stop_token stop) noexcept {
      updater.RemoveLeftover(kLeftoverPatience, stop);
    });
  }
  const int exit_code = running ? app.Run() : 1;
  tidy = {};
  app.Shutdown();
  if (app.HandOverTo()) {
    ReleaseSingleInstance();
    updater.HandOver();
  }
  return exit_code;
}

}  // namespace qn
