#include <windows.h>

#include <exception>
#include <memory>
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
  cancel_requested_.store(false);
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

void Session::CancelStream() { cancel_requested_.store(true); }

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

// One retry after a refresh: an access token that expired mid-session fails the first
// attempt, and a fresh one is all the second needs. A cancelled turn does not retry, so that
// shutdown is not held up by another round of time-outs.
void Session::RunChatTurn(const ChatStreamJob& job) {
  std::string token = CopyAccessToken();
  if (token.empty()) {
    job.Post(kNotSignedInEvent);
    return;
  }
  EventStream stream(client_);
  const auto on_event = [&job](const std::string& payload) { job.Post(payload); };
  const auto cancelled = [this] { return cancel_requested_.load(); };
  if (stream.Post(kChatPath, job.body, token, on_event, cancelled)) return;
  if (!cancelled() && RefreshAccessToken()) {
    token = CopyAccessToken();
    if (stream.Post(kChatPath, job.body, token, on_event, cancelled)) return;
  }
  job.Post(kUnreachableEvent);
}

std::string Session::CopyAccessToken() const {
  std::lock_guard lock(mutex_);
  return access_token_;
}

}  // namespace qn
