#pragma once
// A game's knowledge pack as the service keeps it: what an author wrote, checked, with every
// stage named by its place in the game. Stages count from 1, the pack's first stage, so that a
// progress record's ordinal 0 stays "not started".
#include <cstdint>
#include <string>
#include <vector>

namespace hintwick {

// How much a note gives away, from a push in the right direction to the full solution.
enum class Tier : int { kNudge = 1, kHint = 2, kAnswer = 3 };

struct PackStage {
  std::string name;
  std::vector<std::string> aliases;
};

struct PackSpoiler {
  std::string term;
  std::int64_t stage = 1;  // where the term first appears in the game
};

struct PackNote {
  std::int64_t stage = 1;  // from this stage on, the note is safe to give
  Tier tier = Tier::kNudge;
  std::string title;
  std::string body;
};

// What an answerer needs to know of a pack besides its notes: the stages to recognise in a
// question, the terms to hold back from an answer.
struct PackOutline {
  std::string title;
  std::vector<std::string> keys;  // executable names without ".exe", lower-case
  std::vector<PackStage> stages;  // in the game's order: stages[0] is stage 1
  std::vector<PackSpoiler> spoilers;
};

struct Pack {
  PackOutline outline;
  std::vector<PackNote> notes;
};

}  // namespace hintwick
