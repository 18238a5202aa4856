#include <windows.h>

#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "core/json.h"
#include "core/log.h"
#include "core/posted_message.h"
#include "net/event_stream.h"
#include "net/session.h"

namespace qn {

struct Session::ChatStreamJob {
  Session& session;
  std::string body;
  HWND window = nullptr;
  PostedMessage<std::string> event_message;
  ChatTurnId turn = 0;

  // A failed post is not retried: the window is gone or its queue is full, and a retry would
  // fare no better. The receiver drops what is not tagged with its current turn, so a lost
  // message cannot make it misplace the next turn's.
  void Post(std::unique_ptr<std::string> payload) const {
    PostOwned(window, event_message, std::move(payload), static_cast<LPARAM>(turn));
  }
  void Post(const std::string& payload) const { Post(std::make_unique<std::string>(payload)); }
};

namespace {

constexpr char kChatPath[] = "/v1/chat";
// Failures travel as ordinary events, so the UI thread has one path for every outcome.
constexpr char kNotSignedInEvent[] = R"({"type":"error","message":"not signed in"})";
constexpr char kUnreachableEvent[] = R"({"type":"error","message":"could not reach the service"})";

// Why the turn brought no answer, as the event that tells the player; nothing when the
// stream itself ended the turn. After a 401 whose refresh was refused the player is signed
// out, and saying so tells them what to do, where a bare status would not.
std::optional<std::string> FailureEvent(const std::optional<HttpResponse>& reply, bool signed_in) {
  if (!reply || (TokenRefused(*reply) && !signed_in)) return kNotSignedInEvent;
  if (!reply->ok) return kUnreachableEvent;
  if (reply->status == 200) return std::nullopt;
  return R"({"type":"error","status":)" + std::to_string(reply->status) + "}";
}

// Without a thread the turn can neither run nor end, and the view would wait for ever; the
// crash path records why instead.
[[noreturn]] void FailThreadStart(const char* what) {
  Log(kLogError, L"chat thread creation failed: %hs", what);
  RaiseException(static_cast<DWORD>(E_OUTOFMEMORY), EXCEPTION_NONCONTINUABLE, 0, nullptr);
  std::terminate();
}

}  // namespace

ChatTurnId Session::StreamChatAsync(const std::string& game, const std::string& message,
                                    HWND window, PostedMessage<std::string> event_message) {
  if (streaming_.exchange(true)) {
    Log(kLogWarn, L"a stream is already running; ignoring");
    return 0;
  }
  if (chat_thread_.joinable()) chat_thread_.join();
  chat_cancel_.Reset();
  try {
    auto job = std::make_unique<ChatStreamJob>(ChatStreamJob{
        *this, JsonWriteFlatObject({{"game", game}, {"message", message}}), window, event_message,
        ++last_turn_});
    chat_thread_ = std::thread(&Session::ChatStreamWorker, std::move(job));
  } catch (const std::exception& e) {
    FailThreadStart(e.what());
  }
  return last_turn_;
}

void Session::CancelStream() { chat_cancel_.Cancel(); }

void Session::ChatStreamWorker(std::unique_ptr<ChatStreamJob> job) noexcept {
  Session& session = job->session;
  try {
    session.RunChatTurn(*job);
  } catch (const std::exception& e) {
    Log(kLogWarn, L"chat turn failed: %hs", e.what());
  } catch (...) {
    Log(kLogWarn, L"chat turn failed: %hs", "unknown exception");
  }
  // Cleared before the end mark goes out: a question the player sends as soon as the end is
  // shown must find the session free, or it is dropped and its answer never comes.
  session.streaming_.store(false);
  job->Post(std::unique_ptr<std::string>());
}

// An expired access token is met as on every request: one refresh, one resend. A stream
// that got no response at all is sent once more too, after a refresh that tells whether the
// service can be reached now. Events only ever follow a 200, which is never resent, so the
// player never sees a piece of the answer twice. A cancelled turn does not resend, so that
// shutdown is not held up by another round of time-outs.
void Session::RunChatTurn(const ChatStreamJob& job) {
  EventStream stream(client_);
  const auto on_event = [&job](const std::string& payload) { job.Post(payload); };
  const std::optional<HttpResponse> reply = SendAuthorized(
      [&](const std::string& token) {
        return stream.Post(kChatPath, job.body, token, on_event, chat_cancel_);
      },
      [&](const HttpResponse& first) {
        return !chat_cancel_.cancelled() && (!first.ok || TokenRefused(first));
      });
  if (std::optional<std::string> failure = FailureEvent(reply, IsSignedIn())) job.Post(*failure);
}

}  // namespace qn
