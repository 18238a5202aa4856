#include "store/db.h"

#include <charconv>

namespace hintwick {

const std::string& Row::Text(std::size_t column) const {
  const auto& cell = cells.at(column);
  if (!cell) throw DbFailure("unexpected NULL in column " + std::to_string(column));
  return *cell;
}

std::int64_t Row::Int(std::size_t column) const {
  const std::string& text = Text(column);
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw DbFailure("not an integer in column " + std::to_string(column) + ": " + text);
  }
  return value;
}

Transaction::~Transaction() {
  if (!open_) return;
  try {
    db_.Run("ROLLBACK", {});
  } catch (const DbFailure&) {
    // The failure that brought us here is the one reported; SQLite may already have rolled
    // back on its own, and a dropped connection has no transaction left to end.
  }
}

void Transaction::Commit() {
  db_.Run("COMMIT", {});
  open_ = false;
}

std::unique_ptr<Db> Connect(const std::string& url) {
  if (url.starts_with("postgres://") || url.starts_with("postgresql://")) {
    return ConnectPostgres(url);
  }
  const std::string path = url.starts_with("sqlite:") ? url.substr(7) : url;
  // Every pooled connection would open a memory database of its own.
  if (path.empty() || path == ":memory:") throw DbFailure("sqlite: the store needs a file");
  return ConnectSqlite(path);
}

}  // namespace hintwick
