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
