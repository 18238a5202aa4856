#pragma once
// One database connection as the store's queries see it: SQL written once, with $1, $2...
// parameters, run on SQLite or PostgreSQL. Everything here throws DbFailure; the store turns
// that into a StoreError before anything leaves a Store call.
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace hintwick {

struct DbFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The deleter of a C library's handle, for std::unique_ptr: its own release function.
template <auto Release>
struct Releaser {
  template <typename T>
  void operator()(T* handle) const {
    Release(handle);
  }
};

using SqlValue = std::variant<std::nullptr_t, std::int64_t, std::string>;

// Cells as text: both databases hand integers over as digits, so one reading serves both.
struct Row {
  std::vector<std::optional<std::string>> cells;
  bool IsNull(std::size_t column) const { return !cells.at(column).has_value(); }
  const std::string& Text(std::size_t column) const;
  std::int64_t Int(std::size_t column) const;
};
using Rows = std::vector<Row>;

enum class TxKind {
  kRead,    // one snapshot for every statement of a call that reads several tables
  kWrite,   // takes the write lock at once, so a read-then-write cannot lose a race
  kSchema,  // also excludes other processes migrating the same database
};

// The one place the databases need SQL of their own is full-text search.
enum class Dialect { kSqlite, kPostgres };

class Db {
 public:
  virtual ~Db() = default;
  virtual Rows Run(const std::string& sql, const std::vector<SqlValue>& params = {}) = 0;
  virtual void Begin(TxKind kind) = 0;
  // Called before each store call. The store keeps to this: a call's first statement is BEGIN
  // or a read, so it can safely run twice.
  virtual void StartCall() {}
  // The column type of a generated 64-bit key that is never reused.
  virtual std::string GeneratedKeyType() const = 0;
  virtual Dialect SqlDialect() const = 0;
};

// Rolls back unless committed, so a call that throws half-way leaves nothing written.
class Transaction {
 public:
  Transaction(Db& db, TxKind kind) : db_(db) { db_.Begin(kind); }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction();
  void Commit();

 private:
  Db& db_;
  bool open_ = true;
};

// "sqlite:PATH" or a bare path, "postgres://..." or "postgresql://...".
std::unique_ptr<Db> Connect(const std::string& url);
std::unique_ptr<Db> ConnectSqlite(const std::string& path);
std::unique_ptr<Db> ConnectPostgres(const std::string& url);

}  // namespace hintwick
