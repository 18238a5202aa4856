#pragma once
// The answer without a model: the best gated notes, as written by the pack's author, and the
// honest "I don't know" when none fits. Also the tier rule both answerers share.
#include <cstddef>
#include <string>
#include <vector>

#include "answers/inputs.h"

namespace hintwick {

// The highest tier a question may be answered with: coach gives nudges only, answer every tier,
// and hints gives hints, one tier more each time the same question comes back.
int AllowedTier(Directness directness, int times_asked_before);

// The notes an answer may draw on: at or below the player's stage (any stage with
// spoilers_ok), within the allowed tier, best first, one per title, at most `limit`.
std::vector<GatedNote> UsableNotes(const AnswerRequest& request, std::size_t limit = 3);

// The answer's closing line naming the notes it came from; empty without notes.
std::string SourcesLine(const std::vector<GatedNote>& notes);

// The built-in answer's whole text, sources included.
std::string BuiltinAnswer(const AnswerRequest& request);

}  // namespace hintwick
