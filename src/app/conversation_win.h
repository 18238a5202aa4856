#pragma once
// The drawer's conversation on the interface thread: a question's way to the session, and
// each posted event's way back into the chat. What the turn's rules decide is carried out
// here; the drawer is asked for the few facts they need.
#include <windows.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "chat/chat_model.h"
#include "chat/chat_turn.h"
#include "app/message_window_win.h"
#include "chat/chat_view.h"
#include "net/session.h"

namespace qn {

// What the conversation needs to know of the drawer when a message arrives.
struct DrawerFacts {
  std::string game_key;  // the catalogue key of the game under the drawer
  bool view_ready = false;
  bool open = false;
  bool window_exists = false;
};

class Conversation {
 public:
  struct Callbacks {
    std::function<DrawerFacts()> drawer;
    // An answer finished behind the closed drawer: its graphics may be released later.
    std::function<void()> arm_idle_release;
    // The service's record of the player's progress changed during an answer.
    std::function<void()> progress_changed;
  };

  // `window` receives the session's events and owns the clipboard while an answer is copied;
  // it may be created after this object.
  Conversation(Session& session, const MessageWindow& window, Callbacks callbacks);

  ChatModel& Model() { return model_; }
  ChatView& View() { return view_; }

  void SendPrompt(const std::wstring& prompt);
  // Sends what the player submitted since the last call, if anything.
  void SendSubmitted();
  void OnChatEvent(ChatTurnId turn, std::unique_ptr<std::string> event);
  void OnProgressSnapshot(std::unique_ptr<GameLookupResult> snapshot);
  void CopyAnswer();
  // Only the catalogue already at hand: the interface thread must not wait on the service.
  void RefreshStatusLine();
  // Set with the chime's volume, at start and when settings are applied.
  void SetSoundEnabled(bool enabled) { sound_enabled_ = enabled; }
  // The status line for the game under the drawer, and its progress asked of the service.
  void OnDrawerOpened();
  // An answer still streaming when the drawer closes chimes when it ends; returns whether
  // one is.
  bool OnDrawerClosed() {
    chime_pending_ = turns_.Running();
    return chime_pending_;
  }

 private:
  void Stream(const std::wstring& prompt);
  TurnContext Context(const DrawerFacts& drawer) const;
  void CarryOut(const TurnEffects& effects);

  Session& session_;
  const MessageWindow& window_;
  Callbacks callbacks_;
  ChatModel model_{&ReadClipboardText};
  ChatView view_{model_};
  ChatTurns turns_;
  // Asked before the previous turn's end came back; sent when it does.
  std::optional<std::wstring> held_prompt_;
  bool chime_pending_ = false;
  bool sound_enabled_ = true;
};

}  // namespace qn
