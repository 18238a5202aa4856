#pragma once
// The last check on every answer: text that names something the player meets only after their
// stage never leaves. Pieces are held back by the longest watched term (and the character after
// it, which decides whether the term is a whole word), so a term split across pieces is caught.
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "answers/inputs.h"

namespace hintwick {

// What the player sees in place of a held-back answer; it never names the term.
inline constexpr std::string_view kRedactedMessage =
    "I held that answer back: it was about to name something you only meet later in the game "
    "than where you are. Tell me when you get further, or turn spoilers on if you don't mind "
    "them.";

class SpoilerGuard {
 public:
  // Watches the terms that first appear after the player's stage; none with spoilers_ok.
  SpoilerGuard(const GameOutline& outline, const PlayerPosition& position);

  struct Step {
    std::string released;  // safe to send now, whole UTF-8 characters
    bool hit = false;      // a watched term: nothing more is released, ever
  };
  Step Feed(std::string_view piece);
  // The answer's end: what was held goes out unless it holds a term.
  Step Finish();
  // A fresh answer (the regeneration after a hit) under the same terms.
  void Restart();

 private:
  bool HoldsTerm(bool at_end) const;
  Step Release(std::size_t cut);

  std::vector<std::string> folded_terms_;
  std::size_t hold_bytes_ = 0;
  std::string pending_;  // received, not yet released
  std::string before_;   // the last released character: a term's left edge is tested against it
  bool hit_ = false;
};

}  // namespace hintwick
