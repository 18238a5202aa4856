#pragma once
// One answer from question to "done": the answerer's pieces through the spoiler guard and out as
// events, the one regeneration a model gets after a spoiler, and the end the player sees.
#include <functional>
#include <string>

#include "answers/answerer.h"
#include "answers/model_protocol.h"

namespace hintwick {

// The notes' own text, without a model.
class BuiltinAnswerer final : public Answerer {
 public:
  boost::asio::awaitable<AnswerResult> Generate(const AnswerRequest& request, bool strict,
                                                const PieceSink& sink,
                                                Cancellation& cancel) override;
  bool Regenerates() const override { return false; }
};

// An OpenAI-compatible model server.
class ModelAnswerer final : public Answerer {
 public:
  explicit ModelAnswerer(ModelEndpoint endpoint) : endpoint_(std::move(endpoint)) {}
  boost::asio::awaitable<AnswerResult> Generate(const AnswerRequest& request, bool strict,
                                                const PieceSink& sink,
                                                Cancellation& cancel) override;
  bool Regenerates() const override { return true; }

 private:
  ModelEndpoint endpoint_;
};

// Writes one event line to the player; false once the player is gone.
using EventSink = std::function<boost::asio::awaitable<bool>(std::string line)>;

enum class TurnEnd { kAnswered, kRedacted, kFailed, kCancelled };

// Streams the answer to `request` as token events, then "done"; a spoiler ends in "redacted"
// and "done" (after one "discard" and a stricter second attempt with a model), a failure in one
// "error". Nothing more is written once `send` reports the player gone or `cancel` fires.
boost::asio::awaitable<TurnEnd> RunAnswer(const AnswerRequest& request, Answerer& answerer,
                                          const EventSink& send, Cancellation& cancel);

}  // namespace hintwick
