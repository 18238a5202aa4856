// Knowledge packs and the search over their notes. Retrieval gates before it ranks: the WHERE
// clause keeps only the game's notes that the player's stage and tier allow, and only those
// are ever ranked, so what lies past the player never competes for a place in the answer.
#include <algorithm>
#include <iterator>
#include <limits>
#include <set>

#include "store/sql_store.h"

namespace hintwick {
namespace {

constexpr std::size_t kMaxTerms = 24;      // a pasted essay is not a question
constexpr std::size_t kMaxTermBytes = 64;  // nor is a word longer than this
constexpr int kMaxResults = 50;

// Words too common to tell notes apart. PostgreSQL's English search drops them itself; on
// SQLite every note that holds "the" would otherwise match a question.
constexpr std::string_view kCommonWords[] = {
    "a",     "about", "am",   "an",     "and",   "are",  "at",   "be",  "but",   "by",   "can",
    "could", "did",   "do",   "does",   "for",   "from", "had",  "has", "have",  "here", "how",
    "i",     "if",    "im",   "in",     "is",    "it",   "its",  "me",  "my",    "not",  "of",
    "on",    "or",    "s",    "should", "so",    "t",    "that", "the", "there", "this", "to",
    "was",   "what",  "when", "where",  "which", "who",  "why",  "with"};

bool IsWordByte(unsigned char byte) {
  return byte >= 0x80 || (byte >= '0' && byte <= '9') || (byte >= 'a' && byte <= 'z');
}

struct Utf8Lead {
  std::size_t length;                     // 0: not a lead byte
  unsigned char second_low, second_high;  // overlong forms and surrogates are refused here
};

Utf8Lead LeadOf(unsigned char byte) {
  if (byte < 0x80) return {1, 0, 0};
  if (byte >= 0xC2 && byte <= 0xDF) return {2, 0x80, 0xBF};
  if (byte == 0xE0) return {3, 0xA0, 0xBF};
  if (byte == 0xED) return {3, 0x80, 0x9F};
  if (byte >= 0xE1 && byte <= 0xEF) return {3, 0x80, 0xBF};
  if (byte == 0xF0) return {4, 0x90, 0xBF};
  if (byte >= 0xF1 && byte <= 0xF3) return {4, 0x80, 0xBF};
  if (byte == 0xF4) return {4, 0x80, 0x8F};
  return {0, 0, 0};
}

// PostgreSQL refuses a parameter that is not UTF-8; a word that is not is no word.
bool IsUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const Utf8Lead lead = LeadOf(static_cast<unsigned char>(text[at]));
    if (lead.length == 0 || at + lead.length > text.size()) return false;
    for (std::size_t next = at + 1; next < at + lead.length; ++next) {
      const auto byte = static_cast<unsigned char>(text[next]);
      const bool second = next == at + 1;
      if (byte < (second ? lead.second_low : 0x80) || byte > (second ? lead.second_high : 0xBF)) {
        return false;
      }
    }
    at += lead.length;
  }
  return true;
}

bool Usable(const std::string& word) {
  return word.size() <= kMaxTermBytes && IsUtf8(word) &&
         std::find(std::begin(kCommonWords), std::end(kCommonWords), word) ==
             std::end(kCommonWords);
}

// The question's words, lower-case, each once. Anything that is not a letter or a digit
// separates words, so no quote, operator, colon or star of the question survives into a query.
std::vector<std::string> SearchTerms(const std::string& question) {
  std::vector<std::string> terms;
  std::set<std::string> seen;
  std::string word;
  for (std::size_t at = 0; at <= question.size() && terms.size() < kMaxTerms; ++at) {
    auto byte = at < question.size() ? static_cast<unsigned char>(question[at]) : '\0';
    if (byte >= 'A' && byte <= 'Z') byte = static_cast<unsigned char>(byte - 'A' + 'a');
    if (IsWordByte(byte)) {
      word.push_back(static_cast<char>(byte));
    } else if (!word.empty()) {
      if (Usable(word) && seen.insert(word).second) terms.push_back(word);
      word.clear();
    }
  }
  return terms;
}

// Every term as a quoted string, doubled quotes inside, so both databases' query syntaxes
// read it as a word and never as an operator; any one term is enough for a note to match.
std::string MatchQuery(const std::vector<std::string>& terms, std::string_view either) {
  std::string query;
  for (const std::string& term : terms) {
    if (!query.empty()) query += either;
    query += '"';
    for (const char c : term) query += c == '"' ? std::string("\"\"") : std::string(1, c);
    query += '"';
  }
  return query;
}

constexpr const char* kGate =
    " WHERE n.game_id = (SELECT game_id FROM game_keys WHERE game_key = $1)"
    " AND n.stage_ordinal <= $2 AND n.tier <= $3 AND ";

std::string SearchSql(Dialect dialect) {
  const std::string columns = "SELECT n.stage_ordinal, n.tier, n.title, n.body FROM ";
  if (dialect == Dialect::kSqlite) {
    return columns + "pack_notes_text JOIN pack_notes n ON n.id = pack_notes_text.rowid" + kGate +
           "pack_notes_text MATCH $4 ORDER BY bm25(pack_notes_text, 3.0, 1.0), n.id LIMIT $5";
  }
  return columns + "pack_notes n" + kGate +
         "n.words @@ websearch_to_tsquery('english', $4)"
         " ORDER BY ts_rank(n.words, websearch_to_tsquery('english', $4)) DESC, n.id LIMIT $5";
}

PackNote ReadNote(const Row& row) {
  return {row.Int(0), static_cast<Tier>(row.Int(1)), row.Text(2), row.Text(3)};
}

void ClearPack(Db& db, std::int64_t game) {
  for (const char* table : {"pack_stages", "pack_aliases", "pack_spoilers", "pack_notes"}) {
    db.Run(std::string("DELETE FROM ") + table + " WHERE game_id = $1", {game});
  }
}

void InsertOutline(Db& db, std::int64_t game, const PackOutline& outline) {
  for (std::size_t index = 0; index < outline.stages.size(); ++index) {
    const auto ordinal = static_cast<std::int64_t>(index + 1);
    const PackStage& stage = outline.stages[index];
    db.Run("INSERT INTO pack_stages (game_id, ordinal, name) VALUES ($1, $2, $3)",
           {game, ordinal, stage.name});
    for (std::size_t seq = 0; seq < stage.aliases.size(); ++seq) {
      db.Run("INSERT INTO pack_aliases (game_id, ordinal, seq, alias) VALUES ($1, $2, $3, $4)",
             {game, ordinal, static_cast<std::int64_t>(seq), stage.aliases[seq]});
    }
  }
  for (std::size_t seq = 0; seq < outline.spoilers.size(); ++seq) {
    const PackSpoiler& spoiler = outline.spoilers[seq];
    db.Run("INSERT INTO pack_spoilers (game_id, seq, term, stage_ordinal) VALUES ($1, $2, $3, $4)",
           {game, static_cast<std::int64_t>(seq), spoiler.term, spoiler.stage});
  }
}

void InsertNotes(Db& db, std::int64_t game, const std::vector<PackNote>& notes) {
  for (const PackNote& note : notes) {
    db.Run(
        "INSERT INTO pack_notes (game_id, stage_ordinal, tier, title, body)"
        " VALUES ($1, $2, $3, $4, $5)",
        {game, note.stage, static_cast<std::int64_t>(note.tier), note.title, note.body});
  }
}

PackOutline ReadOutline(Db& db, std::int64_t game, std::string title) {
  PackOutline outline{.title = std::move(title)};
  for (const Row& row : db.Run("SELECT game_key FROM game_keys WHERE game_id = $1"
                               " ORDER BY game_key",
                               {game})) {
    outline.keys.push_back(row.Text(0));
  }
  for (const Row& row :
       db.Run("SELECT name FROM pack_stages WHERE game_id = $1 ORDER BY ordinal", {game})) {
    outline.stages.push_back({row.Text(0), {}});
  }
  for (const Row& row : db.Run("SELECT ordinal, alias FROM pack_aliases WHERE game_id = $1"
                               " ORDER BY ordinal, seq",
                               {game})) {
    outline.stages.at(static_cast<std::size_t>(row.Int(0) - 1)).aliases.push_back(row.Text(1));
  }
  for (const Row& row : db.Run("SELECT term, stage_ordinal FROM pack_spoilers"
                               " WHERE game_id = $1 ORDER BY seq",
                               {game})) {
    outline.spoilers.push_back({row.Text(0), row.Int(1)});
  }
  return outline;
}

}  // namespace

StoreResult<bool> SqlStore::ImportPack(const Pack& pack) {
  return Call("ImportPack", [&](Db& db) {
    if (pack.outline.keys.empty()) return false;
    Transaction transaction(db, TxKind::kWrite);
    const std::int64_t game = StoreGame(db, pack.outline.keys, pack.outline.title, true);
    ClearPack(db, game);
    InsertOutline(db, game, pack.outline);
    InsertNotes(db, game, pack.notes);
    transaction.Commit();
    return true;
  });
}

StoreResult<std::optional<PackOutline>> SqlStore::GetPackOutline(const std::string& game) {
  return Call("GetPackOutline", [&](Db& db) -> std::optional<PackOutline> {
    Transaction transaction(db, TxKind::kRead);
    const Rows rows = db.Run(
        "SELECT g.id, g.title FROM game_keys k JOIN games g ON g.id = k.game_id"
        " WHERE k.game_key = $1 AND EXISTS (SELECT 1 FROM pack_stages s WHERE s.game_id = g.id)",
        {game});
    if (rows.empty()) return std::nullopt;
    PackOutline outline = ReadOutline(db, rows[0].Int(0), rows[0].Text(1));
    transaction.Commit();
    return outline;
  });
}

StoreResult<std::vector<PackNote>> SqlStore::SearchNotes(const std::string& game,
                                                         const std::string& question,
                                                         std::optional<std::int64_t> max_stage,
                                                         Tier max_tier, int limit) {
  return Call("SearchNotes", [&](Db& db) {
    std::vector<PackNote> notes;
    const std::vector<std::string> terms = SearchTerms(question);
    if (terms.empty() || limit <= 0) return notes;
    const Dialect dialect = db.SqlDialect();
    const std::string query = MatchQuery(terms, dialect == Dialect::kSqlite ? " OR " : " or ");
    const std::vector<SqlValue> params = {
        game, max_stage.value_or(std::numeric_limits<std::int64_t>::max()),
        static_cast<std::int64_t>(max_tier), query,
        static_cast<std::int64_t>(std::min(limit, kMaxResults))};
    for (const Row& row : db.Run(SearchSql(dialect), params)) notes.push_back(ReadNote(row));
    return notes;
  });
}

}  // namespace hintwick
