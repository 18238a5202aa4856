#include "answers/stage_move.h"

#include <algorithm>
#include <array>

#include "answers/text.h"

namespace hintwick {
namespace {

using Words = std::vector<std::string>;

struct Trigger {
  Words words;
  bool past = false;  // the named stage is behind the player
};

Words Split(std::string_view text) {
  Words words;
  for (std::string& word : WordsAndClauses(text)) {
    if (!word.empty()) words.push_back(std::move(word));
  }
  return words;
}

void AddTriggers(std::vector<Trigger>& triggers, std::initializer_list<std::string_view> openers,
                 std::initializer_list<std::string_view> verbs, bool past) {
  for (std::string_view opener : openers) {
    for (std::string_view verb : verbs) {
      triggers.push_back({Split(std::string(opener) + ' ' + std::string(verb)), past});
    }
  }
}

const std::vector<Trigger>& Triggers() {
  static const std::vector<Trigger> triggers = [] {
    std::vector<Trigger> built;
    std::initializer_list<std::string_view> done = {"i",        "i just", "i finally",   "ive",
                                                    "ive just", "i have", "i have just", "just"};
    std::initializer_list<std::string_view> am = {"im",       "i am",       "im now",
                                                  "i am now", "im finally", "i am finally"};
    AddTriggers(built, done,
                {"beat", "beaten", "defeated", "finished", "completed", "cleared", "got past"},
                true);
    AddTriggers(built, am, {"past", "done with", "through"}, true);
    AddTriggers(built, am, {"at", "in", "on", "up to"}, false);
    AddTriggers(built, done, {"reached", "got to", "made it to", "arrived at"}, false);
    return built;
  }();
  return triggers;
}

// A word before "i" that makes the clause a question or a wish: "how do I beat …".
bool Blocks(const std::string& word) {
  static constexpr std::array kBlockers = {"do",    "does", "did",   "can",    "could", "should",
                                           "would", "will", "shall", "might",  "must",  "to",
                                           "if",    "how",  "cant",  "cannot", "dont",  "didnt",
                                           "wont",  "not",  "never", "havent", "until", "before"};
  return std::find(kBlockers.begin(), kBlockers.end(), word) != kBlockers.end();
}

// Words allowed between the phrase and the stage's name: "I just beat the first boss, …".
bool IsFiller(const std::string& word) {
  static constexpr std::array kFillers = {"the",   "a",     "an",      "now",   "finally", "just",
                                          "level", "stage", "chapter", "act",   "area",    "boss",
                                          "zone",  "part",  "world",   "final", "first",   "last"};
  return std::find(kFillers.begin(), kFillers.end(), word) != kFillers.end();
}
constexpr std::size_t kMaxFillers = 3;

bool IsArticle(const std::string& word) { return word == "the" || word == "a" || word == "an"; }

// A phrase at `at` said as a question or a wish. One that follows "i" ("i just beat") is judged
// where the "i" stands.
bool Blocked(const Words& words, std::size_t at) {
  if (at == 0) return false;
  if (words[at - 1] == "i" && words[at] != "i") return true;
  return Blocks(words[at - 1]);
}

bool MatchesAt(const Words& words, std::size_t at, const Words& phrase) {
  if (phrase.empty() || at + phrase.size() > words.size()) return false;
  return std::equal(phrase.begin(), phrase.end(), words.begin() + static_cast<std::ptrdiff_t>(at));
}

// The stage named at `at`, the longest name or alias when several fit.
const OutlineStage* StageAt(const Words& words, std::size_t at, const GameOutline& outline) {
  const OutlineStage* best = nullptr;
  std::size_t best_length = 0;
  for (const OutlineStage& stage : outline.stages) {
    std::vector<std::string_view> names{stage.name};
    names.insert(names.end(), stage.aliases.begin(), stage.aliases.end());
    for (std::string_view name : names) {
      Words phrase = Split(name);
      // "The Gate" is also just "gate"; an article before it is then a filler word.
      if (phrase.size() > 1 && IsArticle(phrase.front())) phrase.erase(phrase.begin());
      if (phrase.size() > best_length && MatchesAt(words, at, phrase)) {
        best = &stage;
        best_length = phrase.size();
      }
    }
  }
  return best;
}

const OutlineStage* StageAfter(std::size_t from, const Words& words, const GameOutline& outline) {
  for (std::size_t at = from, fillers = 0; at < words.size() && !words[at].empty(); ++at) {
    if (const OutlineStage* stage = StageAt(words, at, outline)) return stage;
    if (!IsFiller(words[at]) || ++fillers > kMaxFillers) return nullptr;
  }
  return nullptr;
}

StageMove MoveFor(const OutlineStage& named, bool past, const GameOutline& outline) {
  if (!past) return {named.name, named.ordinal, {"now at " + named.name}};
  auto it = std::find_if(outline.stages.begin(), outline.stages.end(),
                         [&](const OutlineStage& stage) { return &stage == &named; });
  const OutlineStage& next = it + 1 != outline.stages.end() ? *(it + 1) : named;
  if (&next == &named) return {named.name, named.ordinal, {"past " + named.name}};
  return {next.name, next.ordinal, {"past " + named.name, "now at " + next.name}};
}

}  // namespace

std::optional<StageMove> StageMoveFromQuestion(std::string_view question,
                                               const GameOutline& outline,
                                               const PlayerPosition& position) {
  Words words = WordsAndClauses(question);
  for (std::size_t at = 0; at < words.size(); ++at) {
    if (Blocked(words, at)) continue;
    for (const Trigger& trigger : Triggers()) {
      if (!MatchesAt(words, at, trigger.words)) continue;
      const OutlineStage* named = StageAfter(at + trigger.words.size(), words, outline);
      if (!named) continue;
      StageMove move = MoveFor(*named, trigger.past, outline);
      if (move.ordinal == position.stage_ordinal && move.stage == position.stage) return {};
      return move;
    }
  }
  return {};
}

MemoryEvent MemoryEventFor(const StageMove& move) { return {move.stage, move.changes}; }

}  // namespace hintwick
