#include "answers/spoiler_guard.h"

#include <algorithm>

#include "answers/text.h"

namespace hintwick {
namespace {

// A character after the term that has not wholly arrived is at most 4 bytes.
constexpr std::size_t kNextCharBytes = 4;

// Whether the occurrence of `term` at `at` in `text` stands as a whole word; nullopt while the
// character after it has yet to arrive.
std::optional<bool> WholeWordAt(std::string_view text, std::size_t at, std::string_view term,
                                bool at_end) {
  if (WordCharAt(term, 0) && WordCharBefore(text, at)) return false;
  if (!WordCharBefore(term, term.size())) return true;
  std::size_t after = at + term.size();
  if (after == text.size()) return at_end ? std::optional(true) : std::nullopt;
  bool whole = after + Utf8Length(static_cast<unsigned char>(text[after])) <= text.size();
  if (!whole && !at_end) return std::nullopt;
  return !WordCharAt(text, after);
}

}  // namespace

SpoilerGuard::SpoilerGuard(const GameOutline& outline, const PlayerPosition& position) {
  if (position.spoilers_ok) return;
  for (const SpoilerTerm& term : outline.spoiler_terms) {
    if (term.term.empty() || term.first_stage_ordinal <= position.stage_ordinal) continue;
    folded_terms_.push_back(FoldCase(term.term));
    hold_bytes_ = std::max(hold_bytes_, term.term.size() + kNextCharBytes);
  }
}

SpoilerGuard::Step SpoilerGuard::Feed(std::string_view piece) {
  if (hit_) return {"", true};
  pending_ += piece;
  if (HoldsTerm(false)) return {"", hit_ = true};
  return Release(pending_.size() > hold_bytes_ ? pending_.size() - hold_bytes_ : 0);
}

SpoilerGuard::Step SpoilerGuard::Finish() {
  if (hit_) return {"", true};
  if (HoldsTerm(true)) return {"", hit_ = true};
  Step step{pending_, false};
  pending_.clear();
  return step;
}

void SpoilerGuard::Restart() {
  pending_.clear();
  before_.clear();
  hit_ = false;
}

bool SpoilerGuard::HoldsTerm(bool at_end) const {
  std::string window = FoldCase(before_ + pending_);
  for (const std::string& term : folded_terms_) {
    for (std::size_t at = window.find(term, before_.size()); at != std::string::npos;
         at = window.find(term, at + 1)) {
      if (WholeWordAt(window, at, term, at_end).value_or(false)) return true;
    }
  }
  return false;
}

SpoilerGuard::Step SpoilerGuard::Release(std::size_t cut) {
  cut = Utf8Boundary(pending_, cut);
  if (cut == 0) return {};
  Step step{pending_.substr(0, cut), false};
  pending_.erase(0, cut);
  before_ = step.released.substr(Utf8Boundary(step.released, step.released.size() - 1));
  return step;
}

}  // namespace hintwick
