#include "answers/builtin.h"

#include <algorithm>

#include "answers/text.h"

namespace hintwick {

int AllowedTier(Directness directness, int times_asked_before) {
  switch (directness) {
    case Directness::kCoach:
      return kNudge;
    case Directness::kHints:
      return std::min<int>(kSolution, kHint + std::max(0, times_asked_before));
    case Directness::kAnswer:
      return kSolution;
  }
  return kNudge;
}

QuestionRepeats::QuestionRepeats(std::chrono::seconds window, std::size_t capacity)
    : window_(window), capacity_(std::max<std::size_t>(capacity, 1)) {}

int QuestionRepeats::Count(std::int64_t user, std::string_view game, std::string_view question,
                           std::chrono::steady_clock::time_point now) {
  std::string key =
      std::to_string(user) + '\n' + std::string(game) + '\n' + NormalizedQuestion(question);
  std::lock_guard lock(mutex_);
  auto [it, fresh] = asked_.try_emplace(key);
  Asked& asked = it->second;
  if (!fresh) oldest_first_.erase(asked.age);
  if (!fresh && now - asked.last > window_) asked.times = 0;
  int before = asked.times++;
  asked.last = now;
  asked.age = oldest_first_.insert(oldest_first_.end(), key);
  if (asked_.size() > capacity_) {
    asked_.erase(oldest_first_.front());
    oldest_first_.pop_front();
  }
  return before;
}

std::vector<GatedNote> UsableNotes(const AnswerRequest& request, std::size_t limit) {
  std::vector<GatedNote> usable;
  for (const GatedNote& note : request.notes) {
    if (usable.size() == limit) break;
    bool reached =
        request.position.spoilers_ok || note.stage_ordinal <= request.position.stage_ordinal;
    bool tier_ok = note.tier >= kNudge && note.tier <= request.max_tier;
    bool seen = std::any_of(usable.begin(), usable.end(),
                            [&](const GatedNote& kept) { return kept.title == note.title; });
    if (reached && tier_ok && !seen) usable.push_back(note);
  }
  return usable;
}

std::string SourcesLine(const std::vector<GatedNote>& notes) {
  if (notes.empty()) return "";
  std::string line = "\n\nFrom the notes: ";
  for (std::size_t i = 0; i < notes.size(); ++i) line += (i ? "; " : "") + notes[i].title;
  return line;
}

std::string BuiltinAnswer(const AnswerRequest& request) {
  if (!request.has_pack) {
    return "I have no notes for this game yet, so I can't answer without guessing.";
  }
  std::vector<GatedNote> notes = UsableNotes(request);
  if (notes.empty()) {
    return "I have no note that answers this at your point in the game. If you are further "
           "along than I think, tell me where you are (\"I'm at …\").";
  }
  std::string text;
  for (const GatedNote& note : notes) text += (text.empty() ? "" : "\n\n") + note.body;
  return text + SourcesLine(notes);
}

}  // namespace hintwick
