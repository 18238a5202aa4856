// The message window's table: what reaches the interface thread and which part takes it.
#include "app/app.h"
#include "app/key_capture.h"
#include "app/messages.h"
#include "app/tray_menu.h"
#include "core/log.h"
#include "core/settings.h"

namespace qn {

void App::ConnectMessages() {
  window_.On(WM_DESTROY, [](WPARAM, LPARAM) { PostQuitMessage(0); });
  window_.On(WM_HOTKEY, [this](WPARAM id, LPARAM lparam) {
    if (hotkey_ && hotkey_->TakePress(id, lparam)) drawer_.Toggle();
  });
  window_.OnTimer(kTickTimer, [this] {
    drawer_.Tick();
    conversation_.SendSubmitted();
  });
  window_.OnTimer(kIdleReleaseTimer, [this] { drawer_.ReleaseIdleGraphics(); });
  window_.On(kMsgAlreadyRunning, [this](WPARAM, LPARAM) {
    ShowHotkeyBalloon(Balloon::kAlreadyRunning);
  });
  window_.On(kMsgEndForSetup, [](WPARAM, LPARAM) {
    Log(kLogInfo, L"asked to end by an install or uninstall");
    PostQuitMessage(0);
  });
  window_.OnPosted<KeyEventRecord>(kMsgCapturedKey, [this](auto record, LPARAM) {
    if (record) OnCapturedKey(*record);
  });
  ConnectTray();
  ConnectWorkers();
}

void App::ConnectTray() {
  window_.On(kTrayCallbackMessage, [this](WPARAM, LPARAM lparam) {
    const UINT mouse = LOWORD(lparam);
    if (mouse == WM_RBUTTONUP || mouse == WM_CONTEXTMENU) {
      const Settings settings = session_.CurrentSettings();
      tray_->ShowTrayMenu(HotkeyText(settings.hotkey_mods, settings.hotkey_vk),
                          session_.IsSignedIn());
    } else if (mouse == WM_LBUTTONDBLCLK) {
      drawer_.ToggleFromTray();
    }
  });
  window_.OnCommand(kCmdExit, [] { PostQuitMessage(0); });
  window_.OnCommand(kCmdAccount, [this] { OpenTrayWindow(); });
  window_.OnCommand(kCmdCheckForUpdates, [this] {
    drawer_.CloseNow();
    update_flow_.Check(UpdateAsk::kOnRequest);
  });
}

void App::ConnectWorkers() {
  window_.OnPosted<std::string>(kMsgChatEvent, [this](auto event, LPARAM turn) {
    conversation_.OnChatEvent(static_cast<ChatTurnId>(turn), std::move(event));
  });
  window_.OnPosted<GameLookupResult>(kMsgProgressSnapshot, [this](auto snapshot, LPARAM) {
    conversation_.OnProgressSnapshot(std::move(snapshot));
  });
  window_.OnPosted<ServiceFailure>(kMsgSessionRestored, [this](auto failure, LPARAM) {
    OnSessionRestored(failure ? *failure : ServiceFailure::kUnreachable);
  });
  update_flow_.Connect(window_);
}

void App::OpenTrayWindow() {
  drawer_.CloseNow();
  tray_window_.Open(session_, drawer_.Facts().game_key);
}

void App::OnCapturedKey(const KeyEventRecord& record) {
  switch (UseOfKeyRecord(record, drawer_.IsOpen(), drawer_.Facts().view_ready)) {
    case KeyRecordUse::kCloseDrawer:
      drawer_.Close();
      break;
    case KeyRecordUse::kType:
      TypeKeyRecord(record, key_typing_, conversation_.Model());
      break;
    case KeyRecordUse::kIgnore:
      break;
  }
}

}  // namespace qn
