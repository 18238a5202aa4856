#pragma once
// The interface thread's half of a chat turn, without the platform: what each event of the
// answer does to the conversation and the status line, and what the turn's end asks of the
// platform (a chime, the idle timer). The Windows side only delivers events and carries out
// the effects that come back, so every rule here is tested natively.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "chat/chat_model.h"
#include "net/catalogue.h"
#include "net/chat_turn_id.h"
#include "net/service_failure.h"

namespace qn {

inline constexpr std::wstring_view kUnreachableNotice =
    L"Can't reach the service right now, so your question wasn't sent. It will work again "
    L"when the connection is back.";
inline constexpr std::wstring_view kSignInNotice =
    L"You're not signed in yet, so your question wasn't sent. Open Hintwick from the tray icon "
    L"(bottom-right of the taskbar) and sign in or create an account - then ask again, no "
    L"restart needed.";
inline constexpr std::wstring_view kSignedOutStatus =
    L"Not signed in \u2014 open Hintwick from the tray icon to sign in or create an account.";

// What the application knows when a message of the turn arrives.
struct TurnContext {
  std::string_view game_key;  // the catalogue key of the game under the drawer
  bool view_ready = false;    // until the view can draw, events are dropped
  bool drawer_open = false;
  bool drawer_window_exists = false;
  bool chime_pending = false;  // the drawer closed while an answer was streaming
  bool sound_enabled = false;
};

// What only the platform can do once the conversation has taken a message in.
struct TurnEffects {
  bool play_chime = false;
  bool clear_chime_pending = false;
  // Releases the drawer's graphics after a while, as closing the drawer does: they were
  // kept only for the answer that has now finished behind the closed drawer.
  bool arm_idle_timer = false;
  // The service changed its record of the player's progress: what shows it is out of date.
  bool progress_changed = false;

  bool operator==(const TurnEffects&) const = default;
};

class ChatTurns {
 public:
  // A question the session cannot send. Returns the reason to log.
  static ServiceFailure Refuse(ServiceFailure last_failure, ChatModel& model);
  // The question is on its way: the waiting mark stands until the first piece of the answer.
  static void Ask(ChatModel& model) { model.BeginAnswer(); }
  // The session took the question as `turn`; it drops one asked while a turn runs, and the
  // running turn goes on.
  void Accepted(ChatTurnId turn) { current_ = turn; }
  // One posted message of `turn`: an event's JSON text, or null for the end of the turn.
  TurnEffects Apply(ChatTurnId turn, const std::string* event, const TurnContext& context,
                    ChatModel& model);
  // A turn was taken and its end has not arrived yet.
  bool Running() const { return current_ != ended_; }
  // The running turn gives way to a newer question: whatever it still posts is dropped.
  void GiveWay() { current_ = ended_ = 0; }

 private:
  TurnEffects End(const TurnContext& context, ChatModel& model);

  ChatTurnId current_ = 0;
  ChatTurnId ended_ = 0;
};

// The status line while the game's progress is looked up: the catalogue's title for the
// game, or its key when the catalogue has none.
void ShowLookupStatus(bool signed_in, const std::vector<GameEntry>& games,
                      const TurnContext& context, ChatModel& model);

// What a finished progress lookup says about the game.
struct ProgressFacts {
  std::string key;
  bool valid = false;  // the lookup ran signed in
  std::string title;   // empty when the catalogue does not know the game
  bool has_wiki = false;
  bool progress_known = false;
  std::string stage;
  bool offline = false;  // the catalogue could not be refreshed
};

enum class ProgressUse { kShown, kIgnored, kOtherGame };

ProgressUse ShowProgressStatus(const ProgressFacts& facts, const TurnContext& context,
                               ChatModel& model);

}  // namespace qn
