#include <memory>
#include <string>

#include "app/app.h"
#include "app/messages.h"
#include "chat/chime.h"
#include "core/failure_log.h"
#include "core/log.h"
#include "core/utf.h"

namespace qn {
namespace {

constexpr UINT_PTR kIdleReleaseTimer = 2;
constexpr UINT kIdleReleaseMs = 30000;

}  // namespace

// The question itself is already in the conversation: the model appends it when the player
// submits.
void App::SendPrompt(const std::wstring& prompt) {
  if (!session_.IsSignedIn()) {
    const ServiceFailure reason = ChatTurns::Refuse(session_.LastFailure(), chat_);
    Log(kLogWarn, L"prompt not sent: %hs", ServiceFailureText(reason));
    return;
  }
  ChatTurns::Ask(chat_);
  const ChatTurnId turn =
      session_.StreamChatAsync(shell_.game_key, WideToUtf8(prompt), window_.get(), kMsgChatEvent);
  if (turn != 0) turns_.Accepted(turn);
}

void App::OnChatEvent(ChatTurnId turn, std::string* event) {
  const std::unique_ptr<std::string> owned(event);
  CarryOut(turns_.Apply(turn, owned.get(), Context(), chat_));
}

TurnContext App::Context() const {
  return {shell_.game_key,      shell_.chat_view_ready,
          shell_.drawer_open,   shell_.drawer_window_exists,
          shell_.chime_pending, shell_.sound_enabled};
}

void App::CarryOut(const TurnEffects& effects) {
  if (effects.play_chime) PlayChime();
  if (effects.clear_chime_pending) shell_.chime_pending = false;
  if (effects.arm_idle_timer &&
      !SetTimer(window_.get(), kIdleReleaseTimer, kIdleReleaseMs, nullptr)) {
    LogLastError(L"SetTimer", kLogWarn);
  }
}

}  // namespace qn
