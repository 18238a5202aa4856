#pragma once
// The answer without a model: the best gated notes, as written by the pack's author, and the
// honest "I don't know" when none fits. Also the tier rule both answerers share.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "answers/inputs.h"

namespace hintwick {

// The highest tier a question may be answered with: coach gives nudges only, answer every tier,
// and hints gives hints, one tier more each time the same question comes back.
int AllowedTier(Directness directness, int times_asked_before);

// How often each player asked each question about each game, kept in this process's memory
// for `window`. Several processes each count their own, so behind a balancer that spreads one
// player's requests the tier rises more slowly, never faster. The lasting form is a store
// call, one upsert keyed by user, game and NormalizedQuestion that returns the previous count
// and is cleared by a new playthrough.
class QuestionRepeats {
 public:
  explicit QuestionRepeats(std::chrono::seconds window = std::chrono::hours(12),
                           std::size_t capacity = 200000);
  // The times this question was asked before, within the window; this asking is counted.
  int Count(std::int64_t user, std::string_view game, std::string_view question,
            std::chrono::steady_clock::time_point now);

 private:
  struct Asked {
    int times = 0;
    std::chrono::steady_clock::time_point last;
    std::list<std::string>::iterator age;
  };
  std::mutex mutex_;
  std::chrono::seconds window_;
  std::size_t capacity_;
  std::unordered_map<std::string, Asked> asked_;
  std::list<std::string> oldest_first_;
};

// The notes an answer may draw on: at or below the player's stage (any stage with
// spoilers_ok), within the allowed tier, best first, one per title, at most `limit`.
std::vector<GatedNote> UsableNotes(const AnswerRequest& request, std::size_t limit = 3);

// The answer's closing line naming the notes it came from; empty without notes.
std::string SourcesLine(const std::vector<GatedNote>& notes);

// The built-in answer's whole text, sources included.
std::string BuiltinAnswer(const AnswerRequest& request);

}  // namespace hintwick
