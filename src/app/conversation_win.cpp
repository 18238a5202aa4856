#include "app/conversation_win.h"

#include <cstring>
#include <utility>

#include "app/messages.h"
#include "chat/chime.h"
#include "core/failure_log.h"
#include "core/log.h"
#include "core/utf.h"

namespace qn {
namespace {

constexpr wchar_t kCopiedNotice[] = L"Answer copied.";

// The clipboard stays open and the notice is shown whatever happens here, so failures are
// only logged.
void PutOnClipboard(const std::wstring& text) {
  EmptyClipboard();
  const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
  UniqueGlobal memory(GlobalAlloc(GMEM_MOVEABLE, bytes));
  if (!memory) {
    LogLastError(L"GlobalAlloc", kLogWarn);
    return;
  }
  {
    const GlobalLockScope<wchar_t> target(memory.get());
    if (!target) {
      LogLastError(L"GlobalLock", kLogWarn);
      return;
    }
    std::memcpy(target.get(), text.c_str(), bytes);
  }
  if (SetClipboardData(CF_UNICODETEXT, memory.get())) {
    static_cast<void>(memory.release());  // the clipboard owns it now
  } else {
    LogLastError(L"SetClipboardData", kLogWarn);
  }
}

ProgressFacts FactsOf(const GameLookupResult& snapshot) {
  return {snapshot.key,
          snapshot.signed_in,
          snapshot.known ? snapshot.display_name : "",
          snapshot.has_index,
          snapshot.memory_loaded,
          snapshot.stage,
          snapshot.catalogue_stale};
}

}  // namespace

Conversation::Conversation(Session& session, const MessageWindow& window, Callbacks callbacks)
    : session_(session), window_(window), callbacks_(std::move(callbacks)) {}

// The question itself is already in the conversation: the model appends it when the player
// submits.
void Conversation::SendPrompt(const std::wstring& prompt) {
  if (!session_.IsSignedIn()) {
    const ServiceFailure reason = ChatTurns::Refuse(session_.LastFailure(), model_);
    Log(kLogWarn, L"prompt not sent: %hs", ServiceFailureText(reason));
    return;
  }
  ChatTurns::Ask(model_);
  if (!turns_.Running() && !held_prompt_) return Stream(prompt);
  // The session runs one stream at a time, and the last one is still open: closing after
  // its last word, or still answering. It gives way, and this question goes out at its end,
  // in place of any held before it.
  held_prompt_ = prompt;
  turns_.GiveWay();
  session_.CancelStream();
  Log(kLogInfo, L"question held until the previous answer's stream has ended");
}

void Conversation::Stream(const std::wstring& prompt) {
  const std::string game = callbacks_.drawer().game_key;
  const ChatTurnId turn =
      session_.StreamChatAsync(game, WideToUtf8(prompt), window_.get(), kMsgChatEvent);
  if (turn != 0) turns_.Accepted(turn);
}

void Conversation::SendSubmitted() {
  std::wstring prompt;
  if (model_.TakeSubmitted(prompt)) SendPrompt(prompt);
}

// The session is free by the time a turn's end arrives.
void Conversation::OnChatEvent(ChatTurnId turn, std::unique_ptr<std::string> event) {
  if (!event && held_prompt_) return Stream(*std::exchange(held_prompt_, std::nullopt));
  const DrawerFacts drawer = callbacks_.drawer();
  CarryOut(turns_.Apply(turn, event.get(), Context(drawer), model_));
}

TurnContext Conversation::Context(const DrawerFacts& drawer) const {
  return {drawer.game_key,      drawer.view_ready,
          drawer.open,          drawer.window_exists,
          chime_pending_,       sound_enabled_};
}

void Conversation::CarryOut(const TurnEffects& effects) {
  if (effects.play_chime) PlayChime();
  if (effects.clear_chime_pending) chime_pending_ = false;
  if (effects.arm_idle_timer && callbacks_.arm_idle_release) callbacks_.arm_idle_release();
  if (effects.progress_changed && callbacks_.progress_changed) callbacks_.progress_changed();
}

// Not a null owner: with none, EmptyClipboard leaves a clipboard that SetClipboardData
// refuses to fill.
void Conversation::CopyAnswer() {
  const std::wstring answer = model_.AnswerText();
  if (answer.empty()) return;
  {
    const OpenedClipboard clipboard(window_.get());
    if (!clipboard) {
      LogLastError(L"OpenClipboard", kLogWarn);
      return;
    }
    PutOnClipboard(answer);
  }
  model_.SetText(kRoleNotice, kCopiedNotice);
}

// The status line shows what the catalogue at hand says at once; the lookup's snapshot
// replaces it when the service answers.
void Conversation::OnDrawerOpened() {
  RefreshStatusLine();
  session_.LookupGameAsync(callbacks_.drawer().game_key, window_.get(), kMsgProgressSnapshot);
}

void Conversation::RefreshStatusLine() {
  const DrawerFacts drawer = callbacks_.drawer();
  ShowLookupStatus(session_.IsSignedIn(), session_.GetGames(false, 0), Context(drawer), model_);
}

void Conversation::OnProgressSnapshot(std::unique_ptr<GameLookupResult> snapshot) {
  if (!snapshot) return;
  const DrawerFacts drawer = callbacks_.drawer();
  if (ShowProgressStatus(FactsOf(*snapshot), Context(drawer), model_) == ProgressUse::kOtherGame) {
    Log(kLogInfo, L"discarding a progress snapshot for '%hs'; current game is '%hs'",
        snapshot->key.c_str(), drawer.game_key.c_str());
  }
}

}  // namespace qn
