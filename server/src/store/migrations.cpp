#include "store/migrations.h"

namespace hintwick {
namespace {

struct Migration {
  std::int64_t version;
  // "{key}" stands for the database's generated-key column type.
  std::vector<std::string> statements;
  // Statements that only one database understands, run after the shared ones.
  std::vector<std::string> sqlite_only = {};
  std::vector<std::string> postgres_only = {};
};

// Times are UTC milliseconds (or seconds where the name says so) as integers; flags are 0/1.
const std::vector<Migration>& Migrations() {
  static const std::vector<Migration> migrations = {
      {1,
       {"CREATE TABLE users (id {key}, email TEXT NOT NULL UNIQUE, password_hash TEXT NOT NULL)",
        "CREATE TABLE token_families (id {key},"
        " user_id BIGINT NOT NULL REFERENCES users (id) ON DELETE CASCADE,"
        " device_label TEXT NOT NULL, created_ms BIGINT NOT NULL,"
        " revoked INTEGER NOT NULL DEFAULT 0,"
        " current_refresh TEXT NOT NULL UNIQUE, current_issued_ms BIGINT NOT NULL,"
        " previous_refresh TEXT, previous_rotated_ms BIGINT,"
        " previous_reuses INTEGER NOT NULL DEFAULT 0)",
        "CREATE INDEX token_families_user ON token_families (user_id)",
        "CREATE INDEX token_families_previous ON token_families (previous_refresh)",
        // Every refresh token a family ever had, so that any old one presented again is known.
        "CREATE TABLE refresh_tokens (hash TEXT PRIMARY KEY,"
        " family_id BIGINT NOT NULL REFERENCES token_families (id) ON DELETE CASCADE)",
        "CREATE INDEX refresh_tokens_family ON refresh_tokens (family_id)",
        "CREATE TABLE access_tokens (hash TEXT PRIMARY KEY,"
        " family_id BIGINT NOT NULL REFERENCES token_families (id) ON DELETE CASCADE,"
        " expires_ms BIGINT NOT NULL)",
        "CREATE INDEX access_tokens_family ON access_tokens (family_id)"}},
      {2,
       {"CREATE TABLE games (id {key}, title TEXT NOT NULL, has_index INTEGER NOT NULL)",
        "CREATE TABLE game_keys (game_key TEXT PRIMARY KEY,"
        " game_id BIGINT NOT NULL REFERENCES games (id) ON DELETE CASCADE)",
        "CREATE INDEX game_keys_game ON game_keys (game_id)",
        "CREATE TABLE progress ("
        " user_id BIGINT NOT NULL REFERENCES users (id) ON DELETE CASCADE,"
        " game TEXT NOT NULL, stage TEXT NOT NULL, stage_ordinal BIGINT NOT NULL,"
        " directness TEXT NOT NULL, spoilers_ok INTEGER NOT NULL, revision BIGINT NOT NULL,"
        " PRIMARY KEY (user_id, game))",
        "CREATE TABLE rate_windows (limit_key TEXT PRIMARY KEY,"
        " window_start_s BIGINT NOT NULL, hits BIGINT NOT NULL)"}},
      // Knowledge packs, a game's at a time; "seq" keeps the author's order.
      {3,
       {"CREATE TABLE pack_stages ("
        " game_id BIGINT NOT NULL REFERENCES games (id) ON DELETE CASCADE,"
        " ordinal BIGINT NOT NULL, name TEXT NOT NULL, PRIMARY KEY (game_id, ordinal))",
        "CREATE TABLE pack_aliases ("
        " game_id BIGINT NOT NULL REFERENCES games (id) ON DELETE CASCADE,"
        " ordinal BIGINT NOT NULL, seq BIGINT NOT NULL, alias TEXT NOT NULL,"
        " PRIMARY KEY (game_id, ordinal, seq))",
        "CREATE TABLE pack_spoilers ("
        " game_id BIGINT NOT NULL REFERENCES games (id) ON DELETE CASCADE,"
        " seq BIGINT NOT NULL, term TEXT NOT NULL, stage_ordinal BIGINT NOT NULL,"
        " PRIMARY KEY (game_id, seq))",
        "CREATE TABLE pack_notes (id {key},"
        " game_id BIGINT NOT NULL REFERENCES games (id) ON DELETE CASCADE,"
        " stage_ordinal BIGINT NOT NULL, tier INTEGER NOT NULL,"
        " title TEXT NOT NULL, body TEXT NOT NULL)",
        "CREATE INDEX pack_notes_gate ON pack_notes (game_id, stage_ordinal, tier)"}},
      // The notes' words for ranking. SQLite keeps them in an FTS5 index that triggers keep in
      // step (notes are only ever inserted and deleted); PostgreSQL in a generated tsvector.
      // Titles weigh more than bodies on both. English stemming: "keys" finds "key".
      {4,
       {},
       {"CREATE VIRTUAL TABLE pack_notes_text USING fts5(title, body, content='pack_notes',"
        " content_rowid='id', tokenize='porter unicode61 remove_diacritics 2')",
        "CREATE TRIGGER pack_notes_text_insert AFTER INSERT ON pack_notes BEGIN"
        " INSERT INTO pack_notes_text (rowid, title, body) VALUES (new.id, new.title, new.body);"
        " END",
        "CREATE TRIGGER pack_notes_text_delete AFTER DELETE ON pack_notes BEGIN"
        " INSERT INTO pack_notes_text (pack_notes_text, rowid, title, body)"
        " VALUES ('delete', old.id, old.title, old.body); END"},
       {"ALTER TABLE pack_notes ADD COLUMN words tsvector GENERATED ALWAYS AS"
        " (setweight(to_tsvector('english', title), 'A') ||"
        " setweight(to_tsvector('english', body), 'B')) STORED",
        "CREATE INDEX pack_notes_words ON pack_notes USING GIN (words)"}},
      // How often each player asked each question about each game, for the tier that rises
      // with every repeat; last_ms is what the purge goes by.
      {5,
       {"CREATE TABLE question_repeats ("
        " user_id BIGINT NOT NULL REFERENCES users (id) ON DELETE CASCADE,"
        " game TEXT NOT NULL, question_key TEXT NOT NULL,"
        " times BIGINT NOT NULL, last_ms BIGINT NOT NULL,"
        " PRIMARY KEY (user_id, game, question_key))",
        "CREATE INDEX question_repeats_last ON question_repeats (last_ms)"}},
  };
  return migrations;
}

std::string WithKeyType(std::string statement, const std::string& key_type) {
  const std::string placeholder = "{key}";
  for (auto at = statement.find(placeholder); at != std::string::npos;
       at = statement.find(placeholder, at)) {
    statement.replace(at, placeholder.size(), key_type);
  }
  return statement;
}

bool ApplyIfMissing(Db& db, const Migration& migration) {
  Transaction transaction(db, TxKind::kSchema);
  db.Run("CREATE TABLE IF NOT EXISTS schema_version (version BIGINT PRIMARY KEY)", {});
  const std::int64_t current = SchemaVersion(db);
  if (current > LatestSchemaVersion()) {
    throw DbFailure("the database is at schema version " + std::to_string(current) +
                    ", newer than this server's " + std::to_string(LatestSchemaVersion()));
  }
  const bool missing = current < migration.version;
  if (missing) {
    const bool sqlite = db.SqlDialect() == Dialect::kSqlite;
    for (const auto* statements :
         {&migration.statements, sqlite ? &migration.sqlite_only : &migration.postgres_only}) {
      for (const std::string& statement : *statements) {
        db.Run(WithKeyType(statement, db.GeneratedKeyType()), {});
      }
    }
    db.Run("INSERT INTO schema_version (version) VALUES ($1)", {migration.version});
  }
  transaction.Commit();
  return missing;
}

}  // namespace

std::int64_t LatestSchemaVersion() { return Migrations().back().version; }

std::int64_t SchemaVersion(Db& db) {
  return db.Run("SELECT COALESCE(MAX(version), 0) FROM schema_version", {}).at(0).Int(0);
}

int Migrate(Db& db) {
  int applied = 0;
  for (const Migration& migration : Migrations()) applied += ApplyIfMissing(db, migration) ? 1 : 0;
  return applied;
}

}  // namespace hintwick
