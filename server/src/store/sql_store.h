#pragma once
// The Store over SQL that SQLite and PostgreSQL both run: the queries are written once, the
// connection decides the database. Writes take the write lock at their start, so each call is
// one transaction that another connection or process cannot interleave with.
#include <exception>
#include <type_traits>

#include "store/db.h"
#include "store/pool.h"
#include "store/store.h"

namespace hintwick {

class SqlStore final : public Store {
 public:
  explicit SqlStore(std::vector<std::unique_ptr<Db>> connections) : pool_(std::move(connections)) {}

  StoreResult<std::optional<User>> CreateUser(const std::string& email,
                                              const std::string& password_hash) override;
  StoreResult<std::optional<User>> FindUser(const std::string& email) override;
  StoreResult<bool> SetPasswordHash(UserId user, const std::string& password_hash) override;
  StoreResult<bool> DeleteUser(const std::string& email) override;

  StoreResult<std::int64_t> StartFamily(UserId user, const TokenHashes& tokens,
                                        const std::string& device_label, TimePoint now,
                                        const TokenLifetimes& lifetimes) override;
  StoreResult<Rotation> Rotate(const std::string& presented_refresh_hash, const TokenHashes& fresh,
                               TimePoint now, const TokenLifetimes& lifetimes) override;
  StoreResult<std::optional<UserId>> Authenticate(const std::string& access_hash,
                                                  TimePoint now) override;
  StoreResult<bool> RevokeFamilyOf(const std::string& refresh_hash) override;

  StoreResult<std::vector<GameEntry>> ListGames() override;
  StoreResult<bool> PutGame(const std::vector<std::string>& keys, const std::string& title,
                            bool has_index) override;

  StoreResult<Progress> GetProgress(UserId user, const std::string& game) override;
  StoreResult<Progress> PatchProgress(UserId user, const std::string& game,
                                      const ProgressPatch& patch) override;
  StoreResult<Progress> NewPlaythrough(UserId user, const std::string& game) override;
  StoreResult<int> CountQuestion(UserId user, const std::string& game,
                                 const std::string& question_key, TimePoint now) override;

  StoreResult<bool> ImportPack(const Pack& pack) override;
  StoreResult<std::optional<PackOutline>> GetPackOutline(const std::string& game) override;
  StoreResult<std::vector<PackNote>> SearchNotes(const std::string& game,
                                                 const std::string& question,
                                                 std::optional<std::int64_t> max_stage,
                                                 Tier max_tier, int limit) override;

  StoreResult<std::optional<std::chrono::seconds>> Hit(const std::string& key, int limit,
                                                       std::chrono::seconds window,
                                                       TimePoint now) override;
  StoreResult<std::int64_t> Purge(TimePoint now, const TokenLifetimes& lifetimes,
                                  std::chrono::seconds longest_window) override;

 private:
  // Runs `body` on a pooled connection; whatever it throws comes back as a StoreError that
  // names the call.
  template <typename Body>
  auto Call(const char* name, Body&& body) -> StoreResult<std::invoke_result_t<Body&, Db&>> {
    try {
      const auto db = pool_.Acquire();
      db->StartCall();
      return body(*db);
    } catch (const std::exception& failure) {
      return StoreError{std::string(name) + ": " + failure.what()};
    } catch (...) {
      return StoreError{std::string(name) + ": unknown failure"};
    }
  }

  Pool<Db> pool_;
};

// One statement as a write transaction of its own.
Rows Write(Db& db, const std::string& sql, const std::vector<SqlValue>& params);
// The game that holds any of `keys` (else a new one) takes the title and exactly these keys;
// games left with no key go. Runs inside the caller's write transaction; gives the game's id.
std::int64_t StoreGame(Db& db, const std::vector<std::string>& keys, const std::string& title,
                       bool has_index);
std::int64_t Millis(TimePoint time);
std::int64_t Millis(std::chrono::milliseconds span);

}  // namespace hintwick
