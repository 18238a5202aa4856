// The SQLite connection: WAL so readers never wait for the writer, a busy timeout so writers
// from other connections and processes queue instead of failing, foreign keys for the cascades.
#include <sqlite3.h>

#include <charconv>
#include <chrono>
#include <unordered_map>

#include "store/db.h"

namespace hintwick {
namespace {

using SqliteHandle = std::unique_ptr<sqlite3, Releaser<sqlite3_close_v2>>;
using Statement = std::unique_ptr<sqlite3_stmt, Releaser<sqlite3_finalize>>;

constexpr std::chrono::milliseconds kBusyTimeout{10000};

// A statement is reset and unbound after each run, also when the run throws, so the cached
// statement holds no lock and no stale value.
class ResetOnExit {
 public:
  explicit ResetOnExit(sqlite3_stmt* statement) : statement_(statement) {}
  ResetOnExit(const ResetOnExit&) = delete;
  ResetOnExit& operator=(const ResetOnExit&) = delete;
  ~ResetOnExit() {
    sqlite3_reset(statement_);  // repeats the last step's error, which Step already reported
    sqlite3_clear_bindings(statement_);
  }

 private:
  sqlite3_stmt* statement_;
};

class SqliteDb final : public Db {
 public:
  explicit SqliteDb(const std::string& path);
  Rows Run(const std::string& sql, const std::vector<SqlValue>& params) override;
  // A deferred BEGIN reads from one snapshot from its first read on, without the write lock.
  void Begin(TxKind kind) override { Run(kind == TxKind::kRead ? "BEGIN" : "BEGIN IMMEDIATE", {}); }
  std::string GeneratedKeyType() const override { return "INTEGER PRIMARY KEY AUTOINCREMENT"; }
  Dialect SqlDialect() const override { return Dialect::kSqlite; }

 private:
  void Check(int rc, const std::string& what) const;
  void Configure();
  sqlite3_stmt* Prepared(const std::string& sql);
  void Bind(sqlite3_stmt* statement, const std::vector<SqlValue>& params) const;
  void BindOne(sqlite3_stmt* statement, int index, const SqlValue& value) const;
  Rows Step(sqlite3_stmt* statement, const std::string& sql) const;

  SqliteHandle db_;
  // Declared after the handle, so every statement is finalized before the handle closes.
  std::unordered_map<std::string, Statement> statements_;
};

SqliteDb::SqliteDb(const std::string& path) {
  sqlite3* raw = nullptr;
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
  const int rc = sqlite3_open_v2(path.c_str(), &raw, flags, nullptr);
  db_.reset(raw);  // owned even when the open failed: SQLite hands back a handle to close
  if (raw == nullptr) throw DbFailure("sqlite: out of memory opening " + path);
  Check(rc, "open " + path);
  Configure();
}

void SqliteDb::Configure() {
  Check(sqlite3_extended_result_codes(db_.get(), 1), "extended result codes");
  Check(sqlite3_busy_timeout(db_.get(), static_cast<int>(kBusyTimeout.count())), "busy timeout");
  const Rows mode = Run("PRAGMA journal_mode=WAL", {});
  if (mode.empty() || mode[0].Text(0) != "wal") throw DbFailure("sqlite: WAL mode refused");
  // In WAL mode NORMAL loses no committed transaction to a crash of the process, only to a
  // power cut, and saves a sync per commit.
  Run("PRAGMA synchronous=NORMAL", {});
  Run("PRAGMA foreign_keys=ON", {});
  const Rows keys = Run("PRAGMA foreign_keys", {});
  if (keys.empty() || keys[0].Int(0) != 1) throw DbFailure("sqlite: foreign keys unsupported");
}

void SqliteDb::Check(int rc, const std::string& what) const {
  if (rc == SQLITE_OK) return;
  throw DbFailure("sqlite: " + what + ": " + sqlite3_errmsg(db_.get()) + " (" + sqlite3_errstr(rc) +
                  ")");
}

sqlite3_stmt* SqliteDb::Prepared(const std::string& sql) {
  if (const auto found = statements_.find(sql); found != statements_.end()) {
    return found->second.get();
  }
  sqlite3_stmt* raw = nullptr;
  const char* tail = nullptr;
  const int rc = sqlite3_prepare_v3(db_.get(), sql.c_str(), static_cast<int>(sql.size()) + 1,
                                    SQLITE_PREPARE_PERSISTENT, &raw, &tail);
  Statement statement(raw);
  Check(rc, "prepare " + sql);
  if (statement == nullptr) throw DbFailure("sqlite: no statement in " + sql);
  if (tail != nullptr && *tail != '\0') throw DbFailure("sqlite: more than one statement: " + sql);
  return statements_.emplace(sql, std::move(statement)).first->second.get();
}

// Parameters are named $1, $2...: SQLite numbers them in order of first appearance, so each is
// bound by its name, not by its place.
void SqliteDb::Bind(sqlite3_stmt* statement, const std::vector<SqlValue>& params) const {
  const int count = sqlite3_bind_parameter_count(statement);
  for (int index = 1; index <= count; ++index) {
    const char* name = sqlite3_bind_parameter_name(statement, index);
    std::size_t number = 0;
    const std::string_view digits = name != nullptr && name[0] == '$' ? name + 1 : "";
    const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (digits.empty() || parsed.ec != std::errc() || number == 0 || number > params.size()) {
      throw DbFailure(std::string("sqlite: unbound parameter ") + (name ? name : "?"));
    }
    BindOne(statement, index, params[number - 1]);
  }
}

void SqliteDb::BindOne(sqlite3_stmt* statement, int index, const SqlValue& value) const {
  int rc = SQLITE_OK;
  if (const auto* number = std::get_if<std::int64_t>(&value)) {
    rc = sqlite3_bind_int64(statement, index, *number);
  } else if (const auto* text = std::get_if<std::string>(&value)) {
    rc = sqlite3_bind_text(statement, index, text->data(), static_cast<int>(text->size()),
                           SQLITE_TRANSIENT);
  } else {
    rc = sqlite3_bind_null(statement, index);
  }
  Check(rc, "bind");
}

Rows SqliteDb::Step(sqlite3_stmt* statement, const std::string& sql) const {
  Rows rows;
  int rc = SQLITE_ROW;
  while ((rc = sqlite3_step(statement)) == SQLITE_ROW) {
    Row& row = rows.emplace_back();
    const int columns = sqlite3_column_count(statement);
    for (int column = 0; column < columns; ++column) {
      if (sqlite3_column_type(statement, column) == SQLITE_NULL) {
        row.cells.emplace_back();
        continue;
      }
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
      if (text == nullptr) throw DbFailure("sqlite: out of memory reading " + sql);
      const auto bytes = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
      row.cells.emplace_back(std::string(text, bytes));
    }
  }
  if (rc != SQLITE_DONE) Check(rc, sql);
  return rows;
}

Rows SqliteDb::Run(const std::string& sql, const std::vector<SqlValue>& params) {
  sqlite3_stmt* statement = Prepared(sql);
  const ResetOnExit reset(statement);
  Bind(statement, params);
  return Step(statement, sql);
}

}  // namespace

std::unique_ptr<Db> ConnectSqlite(const std::string& path) {
  return std::make_unique<SqliteDb>(path);
}

}  // namespace hintwick
