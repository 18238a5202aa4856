#pragma once
// The one application object of the process: it owns the chat view and the session, and its
// message-only window is where the workers' results reach the interface thread. Everything
// here runs on that thread.
#include <windows.h>

#include <string>

#include "chat/chat_model.h"
#include "chat/chat_turn.h"
#include "chat/chat_view.h"
#include "core/handles.h"
#include "net/session.h"

namespace qn {

inline constexpr wchar_t kAppTitle[] = L"Hintwick";

// What the drawer, the foreground tracking and the settings window will keep up to date.
// Until they exist, whoever drives the application sets these directly.
struct ShellState {
  bool drawer_open = false;
  bool drawer_window_exists = false;
  bool chat_view_ready = false;
  // An answer was still streaming when the drawer closed; its end chimes.
  bool chime_pending = false;
  bool sound_enabled = true;
  // The catalogue key of the game under the drawer.
  std::string game_key;
};

class App {
 public:
  explicit App(HINSTANCE instance);
  ~App();
  App(const App&) = delete;
  App& operator=(const App&) = delete;

  // Becomes the process-wide application and creates the message window.
  bool Init();
  // Stops the session's workers, frees what they posted that was never handled, and lets go
  // of the window. Safe to run more than once.
  void Shutdown();

  HWND MessageWindow() const { return window_.get(); }
  ShellState& Shell() { return shell_; }
  ChatModel& Chat() { return chat_; }
  ChatView& View() { return chat_view_; }
  Session& ServiceSession() { return session_; }

  void SendPrompt(const std::wstring& prompt);
  // Takes ownership; null is the end of the turn.
  void OnChatEvent(ChatTurnId turn, std::string* event);
  void CopyAnswer();
  void RefreshStatusLine();
  // Takes ownership.
  void OnProgressSnapshot(GameLookupResult* snapshot);

 private:
  bool CreateMessageWindow();
  TurnContext Context() const;
  void CarryOut(const TurnEffects& effects);

  HINSTANCE instance_ = nullptr;
  UniqueHwnd window_;
  ShellState shell_;
  ChatModel chat_{&ReadClipboardText};
  ChatView chat_view_{chat_};
  ChatTurns turns_;
  Session session_;
};

}  // namespace qn
