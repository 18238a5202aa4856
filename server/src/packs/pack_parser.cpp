// toml++ is used header-only and without exceptions, in this file alone: nothing of it is
// seen outside, and a syntax error comes back as a value like every other error of a pack.
#define TOML_HEADER_ONLY 1
#define TOML_EXCEPTIONS 0
#include "packs/pack_parser.h"

#include <toml++/toml.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <optional>
#include <set>

#include "answers/text.h"

namespace hintwick {
namespace {

std::int64_t LineOf(const toml::source_region& source) {
  return std::max<std::int64_t>(static_cast<std::int64_t>(source.begin.line), 1);
}

std::int64_t LineOf(const toml::node& node) { return LineOf(node.source()); }

// Matched as the answers' spoiler guard matches it, so that a note this check lets through is
// never one the guard would hold back: case-folded, and as whole words.
bool NamesTerm(std::string_view text, std::string_view term) {
  const std::string haystack = FoldCase(text), needle = FoldCase(term);
  if (needle.empty()) return false;
  for (auto at = haystack.find(needle); at != std::string::npos;
       at = haystack.find(needle, at + 1)) {
    if (!WordCharBefore(haystack, at) && !WordCharAt(haystack, at + needle.size())) return true;
  }
  return false;
}

// Authors wrap a long body to fit their editor; the player's window wraps it again, so only a
// blank line (a new paragraph) stays a break. Lines are trimmed and runs of blank lines fold.
std::string FlowedParagraphs(std::string_view text) {
  std::string flowed;
  int breaks = 0;  // line ends since the last text
  for (std::size_t at = 0; at <= text.size();) {
    std::size_t end = std::min(text.find('\n', at), text.size());
    std::string_view line = text.substr(at, end - at);
    line.remove_prefix(std::min(line.find_first_not_of(" \t\r"), line.size()));
    line.remove_suffix(line.size() - (line.find_last_not_of(" \t\r") + 1));
    if (line.empty()) {
      ++breaks;
    } else {
      if (!flowed.empty()) flowed += breaks > 1 ? "\n\n" : " ";
      flowed += line;
      breaks = 1;
    }
    at = end + 1;
  }
  return flowed;
}

std::string Quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

// A game key is the name of the game's executable as the program derives it.
std::optional<std::string> GameKeyProblem(std::string_view key) {
  if (key.empty()) return "a game key is empty";
  if (FoldCase(key) != key) return "game key " + Quoted(key) + " must be lower-case";
  if (key.ends_with(".exe")) return "game key " + Quoted(key) + " must leave out \".exe\"";
  if (key.find_first_of("/\\ \t") != std::string_view::npos) {
    return "game key " + Quoted(key) + " must be a file name, without a folder or spaces";
  }
  return std::nullopt;
}

std::optional<Tier> TierNamed(std::string_view name) {
  if (name == "nudge") return Tier::kNudge;
  if (name == "hint") return Tier::kHint;
  if (name == "answer") return Tier::kAnswer;
  return std::nullopt;
}

class Reader {
 public:
  explicit Reader(const toml::table& root) : root_(root) {}
  PackParse Read();

 private:
  void Fail(std::int64_t line, std::string message) {
    errors_.push_back({line, std::move(message)});
  }
  void OnlyKeys(const toml::table& table, std::initializer_list<std::string_view> known,
                std::string_view what);
  std::optional<std::string> Text(const toml::table& table, std::string_view key,
                                  std::string_view what);
  std::vector<std::string> Texts(const toml::table& table, std::string_view key);
  std::vector<const toml::table*> Tables(std::string_view key);
  std::optional<std::int64_t> StageOf(const toml::table& table, std::string_view what);
  std::optional<Tier> TierOf(const toml::table& table);
  void Name(const std::string& name, std::int64_t ordinal, std::int64_t line);
  void ReadKeys();
  void ReadStages();
  void ReadSpoilers();
  void ReadNote(const toml::table& table);
  void CheckLeaks(const PackNote& note, const toml::table& table);

  struct Named {
    std::int64_t ordinal;
    std::int64_t line;
  };

  const toml::table& root_;
  Pack pack_;
  std::vector<PackError> errors_;
  std::map<std::string, Named> stage_names_;  // every stage name and alias, case-folded
  std::map<std::string, std::int64_t> spoiler_lines_;
};

// A misspelt key would otherwise be ignored in silence, and its value missed.
void Reader::OnlyKeys(const toml::table& table, std::initializer_list<std::string_view> known,
                      std::string_view what) {
  for (const auto& [key, node] : table) {
    if (std::find(known.begin(), known.end(), key.str()) == known.end()) {
      Fail(LineOf(key.source()), "unknown key " + Quoted(key.str()) + " in " + std::string(what));
    }
  }
}

// A required string that holds more than blanks.
std::optional<std::string> Reader::Text(const toml::table& table, std::string_view key,
                                        std::string_view what) {
  const toml::node* node = table.get(key);
  const std::string where = std::string(what) + " " + Quoted(key);
  if (node == nullptr) {
    Fail(LineOf(table), std::string(what) + " has no " + Quoted(key));
  } else if (!node->is_string()) {
    Fail(LineOf(*node), where + " must be a string");
  } else if (node->as_string()->get().find_first_not_of(" \t\r\n") == std::string::npos) {
    Fail(LineOf(*node), where + " is empty");
  } else {
    return node->as_string()->get();
  }
  return std::nullopt;
}

// An optional list of strings; each is also checked for blanks.
std::vector<std::string> Reader::Texts(const toml::table& table, std::string_view key) {
  std::vector<std::string> texts;
  const toml::node* node = table.get(key);
  if (node == nullptr) return texts;
  if (!node->is_array()) {
    Fail(LineOf(*node), Quoted(key) + " must be a list of strings, such as [\"a\", \"b\"]");
    return texts;
  }
  for (const toml::node& element : *node->as_array()) {
    if (element.is_string() && !element.as_string()->get().empty()) {
      texts.push_back(element.as_string()->get());
    } else {
      Fail(LineOf(element), "each of " + Quoted(key) + " must be a non-empty string");
    }
  }
  return texts;
}

std::vector<const toml::table*> Reader::Tables(std::string_view key) {
  std::vector<const toml::table*> tables;
  const toml::node* node = root_.get(key);
  const toml::array* array = node != nullptr ? node->as_array() : nullptr;
  if (node != nullptr && (array == nullptr || !array->is_array_of_tables())) {
    Fail(LineOf(*node), Quoted(key) + " must be written as [[" + std::string(key) + "]] sections");
    return tables;
  }
  if (array != nullptr) {
    for (const toml::node& element : *array) tables.push_back(element.as_table());
  }
  return tables;
}

std::optional<std::int64_t> Reader::StageOf(const toml::table& table, std::string_view what) {
  const std::optional<std::string> name = Text(table, "stage", what);
  if (!name) return std::nullopt;
  const auto found = stage_names_.find(FoldCase(*name));
  if (found != stage_names_.end()) return found->second.ordinal;
  Fail(LineOf(*table.get("stage")), "no stage is named " + Quoted(*name));
  return std::nullopt;
}

std::optional<Tier> Reader::TierOf(const toml::table& table) {
  const toml::node* node = table.get("tier");
  if (node == nullptr) {
    Fail(LineOf(table), "note has no \"tier\"");
    return std::nullopt;
  }
  const std::optional<std::int64_t> number = node->value<std::int64_t>();
  const std::optional<std::string> name = node->value<std::string>();
  if (number && *number >= 1 && *number <= 3) return static_cast<Tier>(*number);
  if (name && TierNamed(*name)) return TierNamed(*name);
  Fail(LineOf(*node), "tier must be 1 (or \"nudge\"), 2 (\"hint\") or 3 (\"answer\")");
  return std::nullopt;
}

// Stage names and aliases share one space: a question that names any of them must point to
// exactly one stage.
void Reader::Name(const std::string& name, std::int64_t ordinal, std::int64_t line) {
  const auto [found, added] = stage_names_.try_emplace(FoldCase(name), Named{ordinal, line});
  if (added) return;
  Fail(line, Quoted(name) + " already names stage " + std::to_string(found->second.ordinal) +
                 " (line " + std::to_string(found->second.line) + ")");
}

void Reader::ReadKeys() {
  const toml::node* node = root_.get("keys");
  const std::vector<std::string> keys = Texts(root_, "keys");
  const toml::array* list = node != nullptr ? node->as_array() : nullptr;
  if (node == nullptr || (list != nullptr && list->empty())) {
    Fail(node != nullptr ? LineOf(*node) : 1,
         "the pack lists no \"keys\": the game's executable names");
  }
  std::set<std::string> seen;
  for (const std::string& key : keys) {
    if (const auto problem = GameKeyProblem(key)) {
      Fail(LineOf(*node), *problem);
    } else if (!seen.insert(key).second) {
      Fail(LineOf(*node), "game key " + Quoted(key) + " is listed twice");
    } else {
      pack_.outline.keys.push_back(key);
    }
  }
}

void Reader::ReadStages() {
  const std::vector<const toml::table*> tables = Tables("stage");
  if (tables.empty()) Fail(1, "the pack has no [[stage]]: list the game's stages in order");
  for (const toml::table* table : tables) {
    OnlyKeys(*table, {"name", "aliases"}, "[[stage]]");
    PackStage& stage = pack_.outline.stages.emplace_back();
    const auto ordinal = static_cast<std::int64_t>(pack_.outline.stages.size());
    stage.name = Text(*table, "name", "stage").value_or("");
    if (!stage.name.empty()) Name(stage.name, ordinal, LineOf(*table->get("name")));
    stage.aliases = Texts(*table, "aliases");
    for (const std::string& alias : stage.aliases) {
      Name(alias, ordinal, LineOf(*table->get("aliases")));
    }
  }
}

void Reader::ReadSpoilers() {
  for (const toml::table* table : Tables("spoiler")) {
    OnlyKeys(*table, {"term", "stage"}, "[[spoiler]]");
    const std::optional<std::string> term = Text(*table, "term", "spoiler");
    const std::optional<std::int64_t> stage = StageOf(*table, "spoiler");
    if (!term || !stage) continue;
    const std::int64_t line = LineOf(*table->get("term"));
    const auto [found, added] = spoiler_lines_.try_emplace(FoldCase(*term), line);
    if (!added) {
      Fail(line, "spoiler " + Quoted(*term) + " is already listed on line " +
                     std::to_string(found->second));
      continue;
    }
    pack_.outline.spoilers.push_back({*term, *stage});
  }
}

void Reader::ReadNote(const toml::table& table) {
  OnlyKeys(table, {"stage", "tier", "title", "body"}, "[[note]]");
  const std::optional<std::int64_t> stage = StageOf(table, "note");
  const std::optional<Tier> tier = TierOf(table);
  const std::optional<std::string> title = Text(table, "title", "note");
  const std::optional<std::string> body = Text(table, "body", "note");
  if (!stage || !tier || !title || !body) return;
  const PackNote& note =
      pack_.notes.emplace_back(PackNote{*stage, *tier, *title, FlowedParagraphs(*body)});
  CheckLeaks(note, table);
}

// A note may only name what the player has already met by its stage.
void Reader::CheckLeaks(const PackNote& note, const toml::table& table) {
  for (const PackSpoiler& spoiler : pack_.outline.spoilers) {
    if (spoiler.stage <= note.stage) continue;
    for (const std::string_view key : {"title", "body"}) {
      const std::string& text = table.get(key)->as_string()->get();
      if (!NamesTerm(text, spoiler.term)) continue;
      Fail(LineOf(*table.get(key)), "the note's " + std::string(key) + " names " +
                                        Quoted(spoiler.term) + ", which first appears at stage " +
                                        std::to_string(spoiler.stage) +
                                        ", after the note's stage " + std::to_string(note.stage));
    }
  }
}

PackParse Reader::Read() {
  OnlyKeys(root_, {"title", "keys", "stage", "note", "spoiler"}, "the pack");
  pack_.outline.title = Text(root_, "title", "the pack").value_or("");
  ReadKeys();
  ReadStages();
  ReadSpoilers();
  for (const toml::table* table : Tables("note")) ReadNote(*table);
  if (errors_.empty()) return std::move(pack_);
  std::stable_sort(errors_.begin(), errors_.end(),
                   [](const PackError& a, const PackError& b) { return a.line < b.line; });
  return std::move(errors_);
}

}  // namespace

PackParse ParsePack(std::string_view text, std::string_view file_name) {
  toml::parse_result parsed = toml::parse(text, file_name);
  if (!parsed) {
    const toml::parse_error& error = parsed.error();
    return std::vector<PackError>{{LineOf(error.source()), std::string(error.description())}};
  }
  return Reader(parsed.table()).Read();
}

std::string Located(std::string_view file_name, const PackError& error) {
  return std::string(file_name) + ":" + std::to_string(error.line) + ": " + error.message;
}

}  // namespace hintwick
