#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/messages.h"
#include "chat/chime.h"
#include "core/json.h"
#include "core/log.h"
#include "core/utf.h"

namespace qn {
namespace {

constexpr UINT_PTR kIdleReleaseTimer = 2;
constexpr UINT kIdleReleaseMs = 30000;

constexpr wchar_t kUnreachableNotice[] =
    L"Can't reach the service right now, so your question wasn't sent. It will work again "
    L"when the connection is back.";
constexpr wchar_t kSignInNotice[] =
    L"You're not signed in yet, so your question wasn't sent. Open Hintwick from the tray icon "
    L"(bottom-right of the taskbar) and sign in or create an account - then ask again, no "
    L"restart needed.";
constexpr wchar_t kRedactedFallback[] = L"I don't have anything on that.";
constexpr wchar_t kProblemFallback[] = L"something went wrong";
constexpr wchar_t kDash[] = L" \u2014 ";
constexpr wchar_t kNotedPrefix[] = L"Noted \u2014 ";

std::wstring JoinChanges(const std::vector<std::string>& changes) {
  std::wstring joined = kNotedPrefix;
  for (size_t i = 0; i < changes.size(); ++i) {
    if (i > 0) joined += L"; ";
    joined += Utf8ToWide(changes[i]);
  }
  return joined;
}

}  // namespace

// The question itself is already in the view: the view appends it when the player submits.
void App::SendPrompt(const std::wstring& prompt) {
  if (!session_.IsSignedIn()) {
    RefusePrompt();
    return;
  }
  const std::string message = WideToUtf8(prompt);
  chat_view_.BeginAnswer();
  session_.StreamChatAsync(shell_.game_key, message, window_.get(), kMsgChatEvent);
}

// Sign-in keeps its last failure; an unreachable service, not the account, is the problem,
// and the player only has to wait.
void App::RefusePrompt() {
  ServiceFailure failure = session_.LastFailure();
  if (failure == ServiceFailure::kNone) failure = ServiceFailure::kNotSignedIn;
  const bool unreachable = failure == ServiceFailure::kUnreachable;
  chat_view_.SetText(kRoleNotice, unreachable ? kUnreachableNotice : kSignInNotice);
  Log(kLogWarn, L"prompt not sent: %hs", ServiceFailureText(failure));
}

void App::OnChatEvent(std::string* event) {
  const std::unique_ptr<std::string> owned(event);
  if (!owned) {
    EndTurn();
  } else if (shell_.chat_view_ready) {
    ApplyEvent(*owned);
  }
}

void App::ApplyEvent(const std::string& event) {
  const std::optional<std::string> type = JsonGetString(event, "type");
  if (!type) return;
  if (*type == "token") {
    if (const auto text = JsonGetString(event, "text")) chat_view_.AppendAnswer(Utf8ToWide(*text));
  } else if (*type == "memory") {
    ApplyMemory(event);
  } else if (*type == "discard") {
    chat_view_.ClearAnswer();
    chat_view_.BeginAnswer();
  } else if (*type == "redacted") {
    ApplyRedacted(event);
  } else if (*type == "warning" || *type == "error") {
    ApplyProblem(event);
  } else if (*type == "done") {
    chat_view_.FinishAnswer();
  }
}

void App::ApplyMemory(const std::string& event) {
  const std::optional<std::string> stage = JsonGetString(event, "stage");
  if (stage && !stage->empty()) {
    chat_view_.SetStatusLine(Utf8ToWide(shell_.game_key) + kDash + Utf8ToWide(*stage));
  }
  const std::vector<std::string> changes = JsonGetStringArray(event, "changes");
  if (!changes.empty()) chat_view_.SetText(kRoleNotice, JoinChanges(changes));
}

// ClearAnswer ends the waiting state, so tokens that follow the replacement are dropped: a
// redaction must not be undone by text the service had already sent on its way.
void App::ApplyRedacted(const std::string& event) {
  const std::optional<std::string> message = JsonGetString(event, "message");
  chat_view_.ClearAnswer();
  chat_view_.SetText(kRoleAnswer, message ? Utf8ToWide(*message) : kRedactedFallback);
}

// A warning ends the answer exactly as an error does, on purpose: the player gets one kind of
// notice for whatever stopped the answer.
void App::ApplyProblem(const std::string& event) {
  const std::optional<std::string> message = JsonGetString(event, "message");
  std::wstring notice = L"(" + (message ? Utf8ToWide(*message) : kProblemFallback);
  if (const std::optional<int64_t> status = JsonGetInt(event, "status")) {
    notice += L", http " + std::to_wstring(*status);
  }
  notice += L")";
  chat_view_.FinishAnswer();
  chat_view_.SetText(kRoleNotice, notice);
}

// The chime tells a player who closed the drawer mid-answer that it is complete; one who
// reopened it meanwhile has seen that already. Timer 2 releases the graphics kept for the
// answer that finished behind a closed drawer.
void App::EndTurn() {
  if (shell_.chat_view_ready) chat_view_.FinishAnswer();
  if (shell_.chime_pending && !shell_.drawer_open && shell_.sound_enabled) PlayChime();
  shell_.chime_pending = false;
  if (shell_.drawer_open || !shell_.drawer_window_exists) return;
  if (!SetTimer(window_.get(), kIdleReleaseTimer, kIdleReleaseMs, nullptr)) {
    Log(kLogWarn, L"SetTimer failed: %lu", GetLastError());
  }
}

}  // namespace qn
