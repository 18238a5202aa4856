#include "chat/chat_turn.h"

#include <optional>

#include "core/json.h"
#include "core/utf.h"

namespace qn {
namespace {

constexpr std::wstring_view kDash = L" \u2014 ";
constexpr std::wstring_view kNotedPrefix = L"Noted \u2014 ";
constexpr std::wstring_view kRedactedFallback = L"I don't have anything on that.";
constexpr std::wstring_view kProblemFallback = L"something went wrong";
constexpr std::wstring_view kCheckingSuffix = L" \u2014 checking\u2026";
constexpr std::wstring_view kNoWikiSuffix =
    L" \u2014 no wiki yet, answering from general knowledge";
constexpr std::wstring_view kNoProgressSuffix = L" \u2014 progress not set, gated to the start";
constexpr std::wstring_view kCachedSuffix = L" \u2014 offline, using what is cached";
constexpr std::wstring_view kOfflineMark = L"  (offline)";

std::wstring Wide(const std::optional<std::string>& text, std::wstring_view fallback) {
  return text ? Utf8ToWide(*text) : std::wstring(fallback);
}

void ApplyMemory(std::string_view event, const TurnContext& context, ChatModel& model) {
  const std::optional<std::string> stage = JsonGetString(event, "stage");
  if (stage && !stage->empty()) {
    model.SetStatusLine(Utf8ToWide(context.game_key) + std::wstring(kDash) + Utf8ToWide(*stage));
  }
  const std::vector<std::string> changes = JsonGetStringArray(event, "changes");
  if (changes.empty()) return;
  std::wstring notice(kNotedPrefix);
  for (size_t i = 0; i < changes.size(); ++i) {
    if (i > 0) notice += L"; ";
    notice += Utf8ToWide(changes[i]);
  }
  model.SetText(kRoleNotice, notice);
}

// ClearAnswer ends the waiting state, so tokens that follow the replacement are dropped: a
// redaction must not be undone by text the service had already sent on its way.
void ApplyRedacted(std::string_view event, ChatModel& model) {
  model.ClearAnswer();
  model.SetText(kRoleAnswer, Wide(JsonGetString(event, "message"), kRedactedFallback));
}

// A warning ends the answer exactly as an error does, on purpose: the player gets one kind of
// notice for whatever stopped the answer.
void ApplyProblem(std::string_view event, ChatModel& model) {
  std::wstring notice = L"(" + Wide(JsonGetString(event, "message"), kProblemFallback);
  if (const std::optional<int64_t> status = JsonGetInt(event, "status")) {
    notice += L", http " + std::to_wstring(*status);
  }
  notice += L")";
  model.FinishAnswer();
  model.SetText(kRoleNotice, notice);
}

void ApplyEvent(std::string_view event, const TurnContext& context, ChatModel& model) {
  const std::optional<std::string> type = JsonGetString(event, "type");
  if (!type) return;
  if (*type == "token") {
    if (const auto text = JsonGetString(event, "text")) model.AppendAnswer(Utf8ToWide(*text));
  } else if (*type == "memory") {
    ApplyMemory(event, context, model);
  } else if (*type == "discard") {
    model.ClearAnswer();
    model.BeginAnswer();
  } else if (*type == "redacted") {
    ApplyRedacted(event, model);
  } else if (*type == "warning" || *type == "error") {
    ApplyProblem(event, model);
  } else if (*type == "done") {
    model.FinishAnswer();
  }
}

}  // namespace

// Sign-in keeps its last failure; when that is an unreachable service rather than the
// account, the player only has to wait.
ServiceFailure ChatTurns::Refuse(ServiceFailure last_failure, ChatModel& model) {
  if (last_failure == ServiceFailure::kNone) last_failure = ServiceFailure::kNotSignedIn;
  const bool unreachable = last_failure == ServiceFailure::kUnreachable;
  model.SetText(kRoleNotice, unreachable ? kUnreachableNotice : kSignInNotice);
  return last_failure;
}

// The worker frees the session before it posts its end, so the player may already have asked
// again: what an older turn still had queued must not touch the newer answer.
TurnEffects ChatTurns::Apply(ChatTurnId turn, const std::string* event,
                             const TurnContext& context, ChatModel& model) {
  if (turn != current_) return {};
  if (!event) return End(context, model);
  if (context.view_ready) ApplyEvent(*event, context, model);
  TurnEffects effects;
  effects.progress_changed = JsonGetString(*event, "type") == "memory";
  return effects;
}

// The chime tells a player who closed the drawer mid-answer that it is complete; one who
// reopened it meanwhile has seen that already.
TurnEffects ChatTurns::End(const TurnContext& context, ChatModel& model) {
  ended_ = current_;
  if (context.view_ready) model.FinishAnswer();
  TurnEffects effects;
  effects.play_chime = context.chime_pending && !context.drawer_open && context.sound_enabled;
  effects.clear_chime_pending = true;
  effects.arm_idle_timer = !context.drawer_open && context.drawer_window_exists;
  return effects;
}

// The first record for the key decides, titled or not.
void ShowLookupStatus(bool signed_in, const std::vector<GameEntry>& games,
                      const TurnContext& context, ChatModel& model) {
  if (!context.view_ready) return;
  if (!signed_in) {
    model.SetStatusLine(kSignedOutStatus);
    return;
  }
  std::string_view name = context.game_key;
  for (const GameEntry& game : games) {
    if (game.slug != context.game_key) continue;
    if (!game.display_name.empty()) name = game.display_name;
    break;
  }
  model.SetStatusLine(Utf8ToWide(name) + std::wstring(kCheckingSuffix));
}

// A lookup for a game the player has since left would label the current one wrongly.
ProgressUse ShowProgressStatus(const ProgressFacts& facts, const TurnContext& context,
                               ChatModel& model) {
  if (!context.view_ready) return ProgressUse::kIgnored;
  if (facts.key != context.game_key) return ProgressUse::kOtherGame;
  if (!facts.valid) return ProgressUse::kIgnored;
  std::wstring line = Utf8ToWide(facts.title.empty() ? facts.key : facts.title);
  if (!facts.has_wiki) {
    line += kNoWikiSuffix;
  } else if (facts.progress_known) {
    line += facts.stage.empty() ? std::wstring(kNoProgressSuffix)
                                : std::wstring(kDash) + Utf8ToWide(facts.stage);
  } else {
    line += kCachedSuffix;
  }
  if (facts.offline) line += kOfflineMark;
  model.SetStatusLine(line);
  return ProgressUse::kShown;
}

}  // namespace qn
