#pragma once
// The one application object of the process. It owns the parts of the running program in
// the order they depend on each other and connects them; what each part does is its own.
// Everything here runs on the interface thread.
#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>

#include "app/conversation_win.h"
#include "app/drawer_control_win.h"
#include "app/foreground_tracker_win.h"
#include "app/keyboard_hooks_win.h"
#include "app/message_window_win.h"
#include "app/tray_icon_win.h"
#include "app/tray_menu.h"
#include "app/update_flow_win.h"
#include "core/background_job_win.h"
#include "core/handles.h"
#include "net/session.h"
#include "ui/tray_window_win.h"

namespace qn {

// What decides whether the program may start, and what the drawer is shown with. Tests
// replace these so that everything after the checks runs under Wine, which has no window
// capture; the program never does.
struct StartChecks {
  uint32_t (*os_build)() = nullptr;  // null: the running system's
  bool (*capture_supported)() = nullptr;
  DrawerSeams drawer;
  UpdaterOptions updater;  // the real program's by default
};

class App {
 public:
  explicit App(HINSTANCE instance, StartChecks checks = {});
  ~App();
  App(const App&) = delete;
  App& operator=(const App&) = delete;

  // False when the program must not run; Shutdown is still due.
  bool Init();
  // Returns the exit code.
  int Run();
  // Safe to run more than once, and after a failed Init.
  void Shutdown();
  // The account and settings window saved new settings into the session.
  void OnSettingsApplied();
  // The new build to start once this process has let go of everything; set by an update.
  const std::optional<std::wstring>& HandOverTo() const { return hand_over_to_; }

  HWND MessageWindow() const { return window_.get(); }
  Conversation& Chat() { return conversation_; }
  DrawerControl& Drawer() { return drawer_; }
  Session& ServiceSession() { return session_; }
  UpdateFlow& Updates() { return update_flow_; }
  // The stored session has been tried with the service, and no update check is under way.
  bool StartupSettled() const { return session_settled_ && !update_flow_.Busy(); }

 private:
  uint32_t OsBuild() const;
  bool PlatformAllowsStart();
  void RegisterHotkey();
  void ConnectMessages();
  void ConnectTray();
  void ConnectWorkers();
  void OnCapturedKey(const KeyEventRecord& record);
  void ShowStartBalloon();
  void ShowHotkeyBalloon(Balloon balloon);
  void ApplyDrawerAndSound(const Settings& settings);
  DrawerControl::Callbacks DrawerCallbacks();
  TrayWindowCallbacks TrayWindowActions();
  void OpenTrayWindow();
  void StartSessionRestore();
  void OnSessionRestored(ServiceFailure failure);
  UpdateFlow::Hooks UpdateHooks();

  HINSTANCE instance_ = nullptr;
  StartChecks checks_;
  qn::MessageWindow window_;
  ForegroundTracker foreground_;
  std::optional<AppHotkey> hotkey_;
  KeyTyping key_typing_;  // a dead key waiting for the next
  Session session_;
  Conversation conversation_;
  DrawerControl drawer_;
  std::optional<TrayIcon> tray_;
  TrayWindow tray_window_;  // the account and settings window, when open
  UpdateFlow update_flow_;
  BackgroundJob session_restore_;
  bool session_settled_ = false;
  std::optional<std::wstring> hand_over_to_;
  bool shut_down_ = false;
};

}  // namespace qn
