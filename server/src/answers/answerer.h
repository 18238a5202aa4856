#pragma once
// One interface for every way of composing an answer, and the cancellation that the chat
// handler triggers when its client goes away.
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include <boost/asio/awaitable.hpp>

#include "answers/inputs.h"

namespace hintwick {

// Safe to trigger from any thread, any number of times.
class Cancellation {
 public:
  void Cancel();
  bool Cancelled() const;
  // `hook` runs once at Cancel(), or at once when already cancelled. An answerer sets it to
  // close what it waits on, and clears it (an empty hook) before that goes away.
  void SetHook(std::function<void()> hook);

 private:
  mutable std::mutex mutex_;
  bool cancelled_ = false;
  std::function<void()> hook_;
};

// Takes the next piece of the answer; false stops the answer (a spoiler caught, the player
// gone).
using PieceSink = std::function<boost::asio::awaitable<bool>(std::string_view piece)>;

enum class AnswerEnd { kComplete, kStopped, kCancelled, kFailed };
struct AnswerResult {
  AnswerEnd end = AnswerEnd::kComplete;
  std::string error;  // kFailed: what the player is told, and what they can do about it
};

class Answerer {
 public:
  virtual ~Answerer() = default;
  // Pieces in order to `sink`; `strict` is the one retry after a spoiler was caught. Any
  // answer drawn from notes ends with their titles.
  virtual boost::asio::awaitable<AnswerResult> Generate(const AnswerRequest& request, bool strict,
                                                        const PieceSink& sink,
                                                        Cancellation& cancel) = 0;
  // Whether a second attempt can differ from the first; the notes' own text cannot.
  virtual bool Regenerates() const = 0;
};

}  // namespace hintwick
