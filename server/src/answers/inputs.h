#pragma once
// What an answer is made from, as plain values: the player's progress, the game's outline from
// its pack, and the notes retrieval let through. The glue fills these from the store, so this
// module does not depend on how packs are kept.
#include <cstdint>
#include <string>
#include <vector>

#include "store/store.h"  // Directness

namespace hintwick {

struct PlayerPosition {
  std::string stage;  // empty: not started, gated to the start
  std::int64_t stage_ordinal = 0;
  Directness directness = Directness::kHints;
  bool spoilers_ok = false;
};

struct OutlineStage {
  std::string name;
  std::int64_t ordinal = 0;
  std::vector<std::string> aliases;
};

struct SpoilerTerm {
  std::string term;
  std::int64_t first_stage_ordinal = 0;  // the stage at which the player first meets it
};

// A game's pack, reduced to what answers need. A game without a pack has an empty outline.
struct GameOutline {
  std::string title;
  std::vector<OutlineStage> stages;  // in play order
  std::vector<SpoilerTerm> spoiler_terms;
};

// 1 nudge, 2 hint, 3 answer.
enum NoteTier : int { kNudge = 1, kHint = 2, kSolution = 3 };

struct GatedNote {
  std::string title;
  std::string body;
  int tier = kNudge;
  std::int64_t stage_ordinal = 0;  // the stage from which it is safe
};

struct AnswerRequest {
  std::string question;
  PlayerPosition position;
  GameOutline outline;
  bool has_pack = false;
  std::vector<GatedNote> notes;  // best first
  int max_tier = kNudge;         // from AllowedTier: directness and how often this was asked
};

}  // namespace hintwick
