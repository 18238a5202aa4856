#include "store/sql_store.h"

#include <algorithm>
#include <array>
#include <climits>

#include "store/migrations.h"

namespace hintwick {
namespace {

using namespace std::chrono;

std::string DirectnessName(Directness directness) {
  return std::string(DirectnessText(directness));
}

Directness DirectnessNamed(const std::string& text) {
  const auto directness = DirectnessFromText(text);
  if (!directness) throw DbFailure("stored directness unknown: " + text);
  return *directness;
}

User ReadUser(const Rows& rows) { return {rows[0].Int(0), rows[0].Text(1), rows[0].Text(2)}; }

std::optional<User> FirstUser(const Rows& rows) {
  return rows.empty() ? std::nullopt : std::optional(ReadUser(rows));
}

Progress ReadProgress(const Row& row) {
  return {row.Text(0), row.Int(1), DirectnessNamed(row.Text(2)), row.Int(3) != 0, row.Int(4)};
}

// The key and the values an insert starts the record from.
std::vector<SqlValue> ProgressRow(UserId user, const std::string& game, const Progress& first) {
  return {user,
          game,
          first.stage,
          first.stage_ordinal,
          DirectnessName(first.directness),
          std::int64_t{first.spoilers_ok}};
}

Progress Patched(Progress progress, const ProgressPatch& patch) {
  progress.stage = patch.stage.value_or(progress.stage);
  progress.stage_ordinal = patch.stage_ordinal.value_or(progress.stage_ordinal);
  progress.directness = patch.directness.value_or(progress.directness);
  progress.spoilers_ok = patch.spoilers_ok.value_or(progress.spoilers_ok);
  return progress;
}

// The patch's members in the same order, NULL where the patch leaves the stored value.
std::vector<SqlValue> PatchValues(const ProgressPatch& patch) {
  std::vector<SqlValue> values(4, nullptr);
  if (patch.stage) values[0] = *patch.stage;
  if (patch.stage_ordinal) values[1] = *patch.stage_ordinal;
  if (patch.directness) values[2] = DirectnessName(*patch.directness);
  if (patch.spoilers_ok) values[3] = std::int64_t{*patch.spoilers_ok};
  return values;
}

constexpr const char* kInsertProgress =
    "INSERT INTO progress"
    " (user_id, game, stage, stage_ordinal, directness, spoilers_ok, revision)"
    " VALUES ($1, $2, $3, $4, $5, $6, 1) ON CONFLICT (user_id, game) DO UPDATE SET ";
constexpr const char* kProgressReturned =
    ", revision = progress.revision + 1"
    " RETURNING stage, stage_ordinal, directness, spoilers_ok, revision";

std::int64_t GameOfKeys(Db& db, const std::vector<std::string>& keys) {
  for (const std::string& key : keys) {
    const Rows rows = db.Run("SELECT game_id FROM game_keys WHERE game_key = $1", {key});
    if (!rows.empty()) return rows[0].Int(0);
  }
  return 0;
}

// The game holding any of the keys takes the title and exactly these keys; a new one is made
// when none does.
std::int64_t SaveGame(Db& db, const std::vector<std::string>& keys, const std::string& title,
                      bool has_index) {
  const std::int64_t game = GameOfKeys(db, keys);
  const std::int64_t indexed = has_index ? 1 : 0;
  if (game == 0) {
    return db
        .Run("INSERT INTO games (title, has_index) VALUES ($1, $2) RETURNING id",
             {title, indexed})[0]
        .Int(0);
  }
  db.Run("UPDATE games SET title = $2, has_index = $3 WHERE id = $1", {game, title, indexed});
  db.Run("DELETE FROM game_keys WHERE game_id = $1", {game});
  return game;
}

constexpr std::array<std::pair<Directness, std::string_view>, 3> kDirectnessTexts = {{
    {Directness::kCoach, "coach"},
    {Directness::kHints, "hints"},
    {Directness::kAnswer, "answer"},
}};

}  // namespace

std::string_view DirectnessText(Directness directness) {
  for (const auto& [value, text] : kDirectnessTexts) {
    if (value == directness) return text;
  }
  return "hints";  // not a level: read as the default
}

std::optional<Directness> DirectnessFromText(std::string_view text) {
  for (const auto& [value, name] : kDirectnessTexts) {
    if (text == name) return value;
  }
  return std::nullopt;
}

std::int64_t StoreGame(Db& db, const std::vector<std::string>& keys, const std::string& title,
                       bool has_index) {
  const std::int64_t game = SaveGame(db, keys, title, has_index);
  for (const std::string& key : keys) {
    db.Run(
        "INSERT INTO game_keys (game_key, game_id) VALUES ($1, $2)"
        " ON CONFLICT (game_key) DO UPDATE SET game_id = excluded.game_id",
        {key, game});
  }
  db.Run("DELETE FROM games WHERE id NOT IN (SELECT game_id FROM game_keys)", {});
  return game;
}

Rows Write(Db& db, const std::string& sql, const std::vector<SqlValue>& params) {
  Transaction transaction(db, TxKind::kWrite);
  Rows rows = db.Run(sql, params);
  transaction.Commit();
  return rows;
}

std::int64_t Millis(TimePoint time) {
  return duration_cast<milliseconds>(time.time_since_epoch()).count();
}

std::int64_t Millis(milliseconds span) { return span.count(); }

StoreResult<std::optional<User>> SqlStore::CreateUser(const std::string& email,
                                                      const std::string& password_hash) {
  return Call("CreateUser", [&](Db& db) {
    return FirstUser(Write(db,
                           "INSERT INTO users (email, password_hash) VALUES ($1, $2)"
                           " ON CONFLICT (email) DO NOTHING RETURNING id, email, password_hash",
                           {email, password_hash}));
  });
}

StoreResult<std::optional<User>> SqlStore::FindUser(const std::string& email) {
  return Call("FindUser", [&](Db& db) {
    return FirstUser(
        db.Run("SELECT id, email, password_hash FROM users WHERE email = $1", {email}));
  });
}

StoreResult<bool> SqlStore::SetPasswordHash(UserId user, const std::string& password_hash) {
  return Call("SetPasswordHash", [&](Db& db) {
    return !Write(db, "UPDATE users SET password_hash = $2 WHERE id = $1 RETURNING id",
                  {user, password_hash})
                .empty();
  });
}

// Families, their tokens and the progress records go with the user through the cascades.
StoreResult<bool> SqlStore::DeleteUser(const std::string& email) {
  return Call("DeleteUser", [&](Db& db) {
    return !Write(db, "DELETE FROM users WHERE email = $1 RETURNING id", {email}).empty();
  });
}

StoreResult<std::vector<GameEntry>> SqlStore::ListGames() {
  return Call("ListGames", [&](Db& db) {
    std::vector<GameEntry> games;
    for (const Row& row : db.Run("SELECT k.game_key, g.title, g.has_index FROM game_keys k"
                                 " JOIN games g ON g.id = k.game_id ORDER BY k.game_key",
                                 {})) {
      games.push_back({row.Text(0), row.Text(1), row.Int(2) != 0});
    }
    return games;
  });
}

StoreResult<bool> SqlStore::PutGame(const std::vector<std::string>& keys, const std::string& title,
                                    bool has_index) {
  return Call("PutGame", [&](Db& db) {
    if (keys.empty()) return false;
    Transaction transaction(db, TxKind::kWrite);
    StoreGame(db, keys, title, has_index);
    transaction.Commit();
    return true;
  });
}

StoreResult<Progress> SqlStore::GetProgress(UserId user, const std::string& game) {
  return Call("GetProgress", [&](Db& db) {
    const Rows rows = db.Run(
        "SELECT stage, stage_ordinal, directness, spoilers_ok, revision FROM progress"
        " WHERE user_id = $1 AND game = $2",
        {user, game});
    return rows.empty() ? Progress{} : ReadProgress(rows[0]);
  });
}

StoreResult<Progress> SqlStore::PatchProgress(UserId user, const std::string& game,
                                              const ProgressPatch& patch) {
  return Call("PatchProgress", [&](Db& db) {
    std::vector<SqlValue> values = ProgressRow(user, game, Patched(Progress{}, patch));
    const std::vector<SqlValue> patched = PatchValues(patch);
    values.insert(values.end(), patched.begin(), patched.end());
    return ReadProgress(Write(db,
                              std::string(kInsertProgress) +
                                  "stage = COALESCE($7, progress.stage),"
                                  " stage_ordinal = COALESCE($8, progress.stage_ordinal),"
                                  " directness = COALESCE($9, progress.directness),"
                                  " spoilers_ok = COALESCE($10, progress.spoilers_ok)" +
                                  kProgressReturned,
                              values)[0]);
  });
}

StoreResult<Progress> SqlStore::NewPlaythrough(UserId user, const std::string& game) {
  return Call("NewPlaythrough", [&](Db& db) {
    Transaction transaction(db, TxKind::kWrite);
    const Progress progress = ReadProgress(
        db.Run(std::string(kInsertProgress) + "stage = $3, stage_ordinal = $4" + kProgressReturned,
               ProgressRow(user, game, Progress{}))[0]);
    db.Run("DELETE FROM question_repeats WHERE user_id = $1 AND game = $2", {user, game});
    transaction.Commit();
    return progress;
  });
}

// The gap is measured from the latest asking any process recorded, so a process whose clock
// lags counts into the record rather than restarting it.
StoreResult<int> SqlStore::CountQuestion(UserId user, const std::string& game,
                                         const std::string& question_key, TimePoint now) {
  return Call("CountQuestion", [&](Db& db) {
    const Row row =
        Write(db,
              "INSERT INTO question_repeats (user_id, game, question_key, times, last_ms)"
              " VALUES ($1, $2, $3, 1, $4)"
              " ON CONFLICT (user_id, game, question_key) DO UPDATE SET"
              " times = CASE WHEN $4 - question_repeats.last_ms > $5 THEN 1"
              " ELSE question_repeats.times + 1 END,"
              " last_ms = CASE WHEN $4 > question_repeats.last_ms THEN $4"
              " ELSE question_repeats.last_ms END"
              " RETURNING times",
              {user, game, question_key, Millis(now),
               Millis(duration_cast<milliseconds>(kQuestionRepeatWindow))})[0];
    return static_cast<int>(std::min<std::int64_t>(row.Int(0) - 1, INT_MAX));
  });
}

StoreResult<std::optional<seconds>> SqlStore::Hit(const std::string& key, int limit, seconds window,
                                                  TimePoint now) {
  return Call("Hit", [&](Db& db) -> std::optional<seconds> {
    const std::int64_t span = std::max<std::int64_t>(window.count(), 1);
    const std::int64_t now_s = duration_cast<seconds>(now.time_since_epoch()).count();
    // A process whose clock lags counts into the window already open rather than reopening
    // an older one.
    const Row row = Write(db,
                          "INSERT INTO rate_windows (limit_key, window_start_s, hits)"
                          " VALUES ($1, $2, 1) ON CONFLICT (limit_key) DO UPDATE SET"
                          " hits = CASE WHEN $2 > rate_windows.window_start_s THEN 1"
                          " ELSE rate_windows.hits + 1 END,"
                          " window_start_s = CASE WHEN $2 > rate_windows.window_start_s"
                          " THEN $2 ELSE rate_windows.window_start_s END"
                          " RETURNING hits, window_start_s",
                          {key, now_s - now_s % span})[0];
    if (row.Int(0) <= limit) return std::nullopt;
    const auto window_end = milliseconds((row.Int(1) + span) * 1000);
    const auto wait = ceil<seconds>(window_end - milliseconds(Millis(now)));
    return std::max(wait, seconds(1));
  });
}

StoreResult<std::unique_ptr<Store>> OpenStore(const std::string& url, int connections) {
  try {
    std::vector<std::unique_ptr<Db>> pool;
    pool.push_back(Connect(url));
    Migrate(*pool.front());
    while (static_cast<int>(pool.size()) < connections) pool.push_back(Connect(url));
    return std::unique_ptr<Store>(std::make_unique<SqlStore>(std::move(pool)));
  } catch (const std::exception& failure) {
    return StoreError{std::string("OpenStore: ") + failure.what()};
  }
}

}  // namespace hintwick
