#include "answers/turn.h"

#include "answers/bridge.h"
#include "answers/builtin.h"
#include "answers/events.h"
#include "answers/spoiler_guard.h"

namespace hintwick {
namespace {

using boost::asio::awaitable;

// Small enough that the built-in answer streams in word-sized pieces, as a model's would.
constexpr std::size_t kBuiltinPieceBytes = 24;

// One attempt at the answer, its pieces through the guard and out as tokens.
awaitable<AnswerResult> Attempt(const AnswerRequest& request, Answerer& answerer, bool strict,
                                SpoilerGuard& guard, const EventSink& send, bool& player_gone,
                                Cancellation& cancel) {
  PieceSink sink = [&](std::string_view piece) -> awaitable<bool> {
    SpoilerGuard::Step step = guard.Feed(piece);
    if (!step.released.empty() && !co_await send(EventLine(TokenEvent{step.released}))) {
      player_gone = true;
      co_return false;
    }
    co_return !step.hit;
  };
  co_return co_await answerer.Generate(request, strict, sink, cancel);
}

awaitable<bool> SendAll(const EventSink& send, std::vector<AnswerEvent> events) {
  for (const AnswerEvent& event : events) {
    if (!co_await send(EventLine(event))) co_return false;
  }
  co_return true;
}

}  // namespace

void Cancellation::Cancel() {
  std::function<void()> hook;
  {
    std::lock_guard lock(mutex_);
    if (cancelled_) return;
    cancelled_ = true;
    hook = std::move(hook_);
  }
  if (hook) hook();
}

bool Cancellation::Cancelled() const {
  std::lock_guard lock(mutex_);
  return cancelled_;
}

void Cancellation::SetHook(std::function<void()> hook) {
  {
    std::lock_guard lock(mutex_);
    if (!cancelled_) {
      hook_ = std::move(hook);
      return;
    }
  }
  if (hook) hook();
}

awaitable<AnswerResult> BuiltinAnswerer::Generate(const AnswerRequest& request, bool,
                                                  const PieceSink& sink, Cancellation& cancel) {
  std::string answer = BuiltinAnswer(request);
  for (std::string_view piece : TokenPieces(answer, kBuiltinPieceBytes)) {
    if (cancel.Cancelled()) co_return AnswerResult{AnswerEnd::kCancelled, ""};
    if (!co_await sink(piece)) co_return AnswerResult{AnswerEnd::kStopped, ""};
  }
  co_return AnswerResult{};
}

awaitable<AnswerResult> ModelAnswerer::Generate(const AnswerRequest& request, bool strict,
                                                const PieceSink& sink, Cancellation& cancel) {
  std::vector<GatedNote> notes = request.has_pack ? UsableNotes(request) : std::vector<GatedNote>{};
  std::string body = CompletionRequestBody(endpoint_.model, request, notes, strict);
  bool answered = false;
  PieceSink counting = [&](std::string_view piece) -> awaitable<bool> {
    answered = answered || !piece.empty();
    co_return co_await sink(piece);
  };
  AnswerResult result = co_await StreamCompletion(endpoint_, std::move(body), counting, cancel);
  // A reasoning model can spend its whole reply thinking, and its thoughts are never passed on.
  if (result.end == AnswerEnd::kComplete && !answered) {
    co_return AnswerResult{AnswerEnd::kFailed,
                           "The answer model finished without an answer. Try asking again."};
  }
  if (result.end != AnswerEnd::kComplete || notes.empty()) co_return result;
  if (!co_await sink(SourcesLine(notes))) co_return AnswerResult{AnswerEnd::kStopped, ""};
  co_return result;
}

awaitable<TurnEnd> RunAnswer(const AnswerRequest& request, Answerer& answerer,
                             const EventSink& send, Cancellation& cancel) {
  SpoilerGuard guard(request.outline, request.position);
  bool player_gone = false;
  for (bool strict : {false, true}) {
    AnswerResult result =
        co_await Attempt(request, answerer, strict, guard, send, player_gone, cancel);
    if (player_gone || cancel.Cancelled() || result.end == AnswerEnd::kCancelled) {
      co_return TurnEnd::kCancelled;
    }
    if (result.end == AnswerEnd::kFailed) {
      co_await send(EventLine(ErrorEvent{result.error, std::nullopt}));
      co_return TurnEnd::kFailed;
    }
    SpoilerGuard::Step last = guard.Finish();
    if (!last.hit) {
      std::vector<AnswerEvent> ending{DoneEvent{}};
      if (!last.released.empty()) ending.insert(ending.begin(), TokenEvent{last.released});
      bool sent = co_await SendAll(send, std::move(ending));
      co_return sent ? TurnEnd::kAnswered : TurnEnd::kCancelled;
    }
    if (strict || !answerer.Regenerates()) break;
    if (!co_await send(EventLine(DiscardEvent{}))) co_return TurnEnd::kCancelled;
    guard.Restart();
  }
  bool sent = co_await SendAll(send, {RedactedEvent{std::string(kRedactedMessage)}, DoneEvent{}});
  co_return sent ? TurnEnd::kRedacted : TurnEnd::kCancelled;
}

}  // namespace hintwick
