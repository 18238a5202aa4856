#include "app/app.h"

#include <utility>

#include "app/crash_steps_win.h"
#include "app/key_capture.h"
#include "app/messages.h"
#include "app/tray_menu.h"
#include "chat/chime.h"
#include "core/data_dir.h"
#include "core/failure_log.h"
#include "core/log.h"
#include "core/os.h"
#include "core/settings.h"
#include "gfx/capture.h"

namespace qn {
namespace {

constexpr wchar_t kOldSystemText[] =
    L"Hintwick needs Windows 10 version 1903 or newer.\n\nThe drawer's blurred backdrop is drawn "
    L"from a live capture of the game window, and the API that provides it does not exist on "
    L"older builds. There is deliberately no alternate look, so rather than appear different "
    L"here, it does not run.";
constexpr wchar_t kNoCaptureText[] =
    L"Screen capture is unavailable on this system, so the drawer cannot be drawn.";

uint32_t RunningOsBuild() { return GetOsVersion().build; }

// Tab, Enter and Esc in the program's own windows, as in a dialog.
bool IsDialogMessageOf(HWND window, MSG& message) {
  return window && IsDialogMessageW(window, &message);
}

}  // namespace

App::App(HINSTANCE instance, StartChecks checks)
    : instance_(instance),
      checks_(checks),
      conversation_(session_, window_,
                    {[this] { return drawer_.Facts(); }, [this] { drawer_.ArmIdleRelease(); },
                     [this] { tray_window_.RefreshProgress(); }}),
      drawer_(instance, conversation_.Model(), conversation_.View(), std::move(checks.drawer),
              DrawerCallbacks()),
      tray_window_(instance, TrayWindowActions()),
      update_flow_(instance, checks_.updater, session_.Client(), UpdateHooks()) {}

DrawerControl::Callbacks App::DrawerCallbacks() {
  DrawerControl::Callbacks callbacks;
  callbacks.settings_window_open = [this] { return tray_window_.IsOpen(); };
  callbacks.balloon = [this](const wchar_t* text) {
    if (tray_) tray_->ShowTrayBalloon(text);
  };
  callbacks.opened = [this] { conversation_.OnDrawerOpened(); };
  callbacks.closed = [this] { return conversation_.OnDrawerClosed(); };
  callbacks.take_deferred_update = [this] { return update_flow_.TakeDeferred(); };
  callbacks.prompt_update = [this] { update_flow_.Check(UpdateAsk::kAtDesktop); };
  return callbacks;
}

TrayWindowCallbacks App::TrayWindowActions() {
  return {[this] { OnSettingsApplied(); },
          [this] { update_flow_.Check(UpdateAsk::kOnRequest, tray_window_.get()); }};
}

App::~App() { Shutdown(); }

bool App::Init() {
  MigratePreRenameState();
  OpenLog();
  if (!PlatformAllowsStart() || !window_.Create(instance_)) return false;
  drawer_.Attach(window_.get());
  RegisterCrashSteps();
  ConnectMessages();
  tray_.emplace(window_.get(), instance_);
  tray_->AddTrayIcon();
  hotkey_.emplace(window_.get());
  RegisterHotkey();
  foreground_.Start([this](HWND foreground) { drawer_.OnForeground(foreground); });
  Log(kLogInfo, L"initialised (build %lu); waiting for hotkey", OsBuild());
  if (session_.Load()) StartSessionRestore();
  const Settings settings = session_.CurrentSettings();
  // Registered before the settings were read; a player's own hotkey replaces the default.
  if (settings.hotkey_mods != kDefaultHotkeyMods || settings.hotkey_vk != kDefaultHotkeyVk) {
    RegisterHotkey();
  }
  ApplyDrawerAndSound(settings);
  update_flow_.Check(UpdateAsk::kAtStart);
  ShowStartBalloon();
  return true;
}

// The service may be slow or away; the program is ready meanwhile, and a question asked
// before the session is back finds the stored token and refreshes it itself.
void App::StartSessionRestore() {
  const bool started = session_restore_.Start(window_.get(), kMsgSessionRestored, [this] {
    const bool restored = session_.RestoreSession();
    return std::make_unique<ServiceFailure>(restored ? ServiceFailure::kNone
                                                     : session_.LastFailure());
  });
  if (!started) OnSessionRestored(ServiceFailure::kUnreachable);
}

void App::OnSessionRestored(ServiceFailure failure) {
  session_settled_ = true;
  if (failure != ServiceFailure::kNone) {
    Log(kLogWarn, L"session not established: %hs", ServiceFailureText(failure));
  }
  tray_window_.RefreshProgress();
}

uint32_t App::OsBuild() const { return (checks_.os_build ? checks_.os_build : &RunningOsBuild)(); }

// Deliberately no degraded mode: without the live capture there is no backdrop to draw.
bool App::PlatformAllowsStart() {
  const uint32_t build = OsBuild();
  if (build < kMinimumOsBuild) {
    Log(kLogError, L"unsupported OS: build %lu, need %lu+", build, kMinimumOsBuild);
    MessageBoxW(nullptr, kOldSystemText, kMessageWindowTitle, MB_OK | MB_ICONINFORMATION);
    return false;
  }
  if (!(checks_.capture_supported ? checks_.capture_supported : &Capture::IsSupported)()) {
    Log(kLogError, L"Windows.Graphics.Capture reports unsupported");
    MessageBoxW(nullptr, kNoCaptureText, kMessageWindowTitle, MB_OK | MB_ICONERROR);
    return false;
  }
  return true;
}

void App::RegisterHotkey() {
  const Settings settings = session_.CurrentSettings();
  if (!hotkey_->RegisterAppHotkey(settings.hotkey_mods, settings.hotkey_vk)) {
    Log(kLogWarn, L"no hotkey could be registered; the drawer can only be opened from the tray");
  }
}

void App::ApplyDrawerAndSound(const Settings& settings) {
  drawer_.SetLook(settings.drawer_pct / 100.0, settings.blur_pct / 100.0);
  BuildChime(settings.sound_volume);
  conversation_.SetSoundEnabled(settings.sound_enabled);
}

void App::OnSettingsApplied() {
  RegisterHotkey();
  const Settings settings = session_.CurrentSettings();
  ApplyDrawerAndSound(settings);
  Log(kLogInfo, L"settings applied: drawer %d%%, blur %d%%", settings.drawer_pct,
      settings.blur_pct);
}

void App::ShowStartBalloon() {
  ShowHotkeyBalloon(hotkey_->registered() ? Balloon::kRunning : Balloon::kHotkeyTaken);
}

void App::ShowHotkeyBalloon(Balloon balloon) {
  if (!tray_) return;
  const Settings settings = session_.CurrentSettings();
  tray_->ShowTrayBalloon(
      BalloonText(balloon, HotkeyText(settings.hotkey_mods, settings.hotkey_vk)));
}

int App::Run() {
  MSG message = {};
  BOOL got = FALSE;
  while ((got = GetMessageW(&message, nullptr, 0, 0)) > 0) {
    if (IsDialogMessageOf(tray_window_.get(), message) ||
        IsDialogMessageOf(update_flow_.ProgressWindow(), message)) {
      continue;
    }
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  if (got < 0) LogLastError(L"GetMessageW", kLogError);
  return static_cast<int>(message.wParam);
}

void App::Shutdown() {
  if (std::exchange(shut_down_, true)) return;
  // Whatever a worker is waiting for from the service, nobody is left to read it.
  session_.Client().CancelAll();
  update_flow_.Shutdown();
  tray_window_.Close();
  drawer_.CloseNow();
  foreground_.Stop();
  if (hotkey_) hotkey_->Remove();
  StopKeyboardHooks();
  FreeChime();
  session_.Shutdown();
  session_restore_.Wait();
  if (tray_) tray_->RemoveTrayIcon();
  drawer_.ReleaseGraphics();
  window_.Destroy();
  Log(kLogInfo, L"shutdown");
  CloseLog();
}

}  // namespace qn
