#pragma once
// Progress from the conversation: "I just beat …", "I'm at …", "I reached …" followed by a stage
// or alias of the game's outline moves the player's record. The stage and the words of the
// change come from the outline, never from a model.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "answers/events.h"
#include "answers/inputs.h"

namespace hintwick {

struct StageMove {
  std::string stage;  // the outline's name of the stage the player is now at
  std::int64_t ordinal = 0;
  std::vector<std::string> changes;  // shown by the program as "Noted — a; b"
};

// Beating or finishing a stage puts the player at the one after it (the last stays the last);
// being at or reaching one puts them there. Nothing when the question says no such thing, names
// no stage, or names the stage the player is already at.
std::optional<StageMove> StageMoveFromQuestion(std::string_view question,
                                               const GameOutline& outline,
                                               const PlayerPosition& position);

MemoryEvent MemoryEventFor(const StageMove& move);

}  // namespace hintwick
