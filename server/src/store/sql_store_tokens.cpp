// Token families. The family row holds its current refresh token and the one it replaced, so
// a rotation is one conditional UPDATE of that row: whichever connection or process changes
// it first wins, and every other sees the outcome before it decides.
#include "store/sql_store.h"

namespace hintwick {
namespace {

struct Family {
  std::int64_t id = 0;
  UserId user = 0;
};

// Each issue also drops the family's expired access tokens, so that a family keeps few.
void IssueAccess(Db& db, const std::string& access_hash, std::int64_t family, TimePoint now,
                 const TokenLifetimes& lifetimes) {
  db.Run("DELETE FROM access_tokens WHERE family_id = $1 AND expires_ms <= $2",
         {family, Millis(now)});
  db.Run("INSERT INTO access_tokens (hash, family_id, expires_ms) VALUES ($1, $2, $3)",
         {access_hash, family, Millis(now) + Millis(lifetimes.access)});
}

std::optional<Family> FirstFamily(const Rows& rows) {
  if (rows.empty()) return std::nullopt;
  return Family{rows[0].Int(0), rows[0].Int(1)};
}

// The compare-and-swap: only a current, standing, recently issued token moves the family on.
std::optional<Family> SwapCurrent(Db& db, const std::string& presented, const TokenHashes& fresh,
                                  TimePoint now, const TokenLifetimes& lifetimes) {
  return FirstFamily(db.Run(
      "UPDATE token_families SET current_refresh = $2, current_issued_ms = $3,"
      " previous_refresh = $1, previous_rotated_ms = $3, previous_reuses = 0"
      " WHERE current_refresh = $1 AND revoked = 0 AND current_issued_ms >= $4"
      " RETURNING id, user_id",
      {presented, fresh.refresh, Millis(now), Millis(now) - Millis(lifetimes.refresh_idle)}));
}

// Counts one more reuse of the family's previous token, if the grace still covers it.
std::optional<Family> TakeGrace(Db& db, const std::string& presented, TimePoint now,
                                const TokenLifetimes& lifetimes) {
  if (lifetimes.reuse_grace.count() <= 0) return std::nullopt;
  return FirstFamily(
      db.Run("UPDATE token_families SET previous_reuses = previous_reuses + 1"
             " WHERE previous_refresh = $1 AND revoked = 0 AND previous_rotated_ms >= $2"
             " AND previous_reuses < $3 RETURNING id, user_id",
             {presented, Millis(now) - Millis(lifetimes.reuse_grace),
              std::int64_t{lifetimes.reuse_grace_max}}));
}

// A token the swap and the grace both refused: an older token of a standing family is reuse,
// and the family ends. The current token past its idle time, a revoked family or a token never
// issued are only unknown.
Rotation RefuseOrRevoke(Db& db, const std::string& presented) {
  const Rows rows = db.Run(
      "SELECT f.id, f.user_id, f.revoked, f.current_refresh FROM refresh_tokens t"
      " JOIN token_families f ON f.id = t.family_id WHERE t.hash = $1",
      {presented});
  if (rows.empty() || rows[0].Int(2) != 0 || rows[0].Text(3) == presented) return {};
  db.Run("UPDATE token_families SET revoked = 1 WHERE id = $1", {rows[0].Int(0)});
  return {RotateOutcome::kReuseRevoked, rows[0].Int(1), rows[0].Int(0)};
}

Rotation RotateIn(Db& db, const std::string& presented, const TokenHashes& fresh, TimePoint now,
                  const TokenLifetimes& lifetimes) {
  if (const auto family = SwapCurrent(db, presented, fresh, now, lifetimes)) {
    db.Run("INSERT INTO refresh_tokens (hash, family_id) VALUES ($1, $2)",
           {fresh.refresh, family->id});
    IssueAccess(db, fresh.access, family->id, now, lifetimes);
    return {RotateOutcome::kRotated, family->user, family->id};
  }
  if (const auto family = TakeGrace(db, presented, now, lifetimes)) {
    IssueAccess(db, fresh.access, family->id, now, lifetimes);
    return {RotateOutcome::kGraceReissued, family->user, family->id};
  }
  return RefuseOrRevoke(db, presented);
}

}  // namespace

StoreResult<std::int64_t> SqlStore::StartFamily(UserId user, const TokenHashes& tokens,
                                                const std::string& device_label, TimePoint now,
                                                const TokenLifetimes& lifetimes) {
  return Call("StartFamily", [&](Db& db) {
    Transaction transaction(db, TxKind::kWrite);
    // A sign-in clears away the user's families that can no longer refresh, with their tokens;
    // a token of theirs presented later is refused as unknown.
    db.Run(
        "DELETE FROM token_families WHERE user_id = $1"
        " AND (revoked = 1 OR current_issued_ms < $2)",
        {user, Millis(now) - Millis(lifetimes.refresh_idle)});
    const std::int64_t family =
        db.Run(
              "INSERT INTO token_families"
              " (user_id, device_label, created_ms, current_refresh, current_issued_ms)"
              " VALUES ($1, $2, $3, $4, $3) RETURNING id",
              {user, device_label, Millis(now), tokens.refresh})
            .at(0)
            .Int(0);
    db.Run("INSERT INTO refresh_tokens (hash, family_id) VALUES ($1, $2)",
           {tokens.refresh, family});
    IssueAccess(db, tokens.access, family, now, lifetimes);
    transaction.Commit();
    return family;
  });
}

StoreResult<Rotation> SqlStore::Rotate(const std::string& presented_refresh_hash,
                                       const TokenHashes& fresh, TimePoint now,
                                       const TokenLifetimes& lifetimes) {
  return Call("Rotate", [&](Db& db) {
    Transaction transaction(db, TxKind::kWrite);
    const Rotation rotation = RotateIn(db, presented_refresh_hash, fresh, now, lifetimes);
    transaction.Commit();
    return rotation;
  });
}

// A revoked family's access tokens stay in the table but no longer authenticate.
StoreResult<std::optional<UserId>> SqlStore::Authenticate(const std::string& access_hash,
                                                          TimePoint now) {
  return Call("Authenticate", [&](Db& db) -> std::optional<UserId> {
    const Rows rows = db.Run(
        "SELECT f.user_id FROM access_tokens a JOIN token_families f ON f.id = a.family_id"
        " WHERE a.hash = $1 AND a.expires_ms > $2 AND f.revoked = 0",
        {access_hash, Millis(now)});
    if (rows.empty()) return std::nullopt;
    return rows[0].Int(0);
  });
}

StoreResult<bool> SqlStore::RevokeFamilyOf(const std::string& refresh_hash) {
  return Call("RevokeFamilyOf", [&](Db& db) {
    return !Write(db,
                  "UPDATE token_families SET revoked = 1"
                  " WHERE id = (SELECT family_id FROM refresh_tokens WHERE hash = $1)"
                  " RETURNING id",
                  {refresh_hash})
                .empty();
  });
}

// The cascades take each family's refresh and access tokens along.
StoreResult<std::int64_t> SqlStore::Purge(TimePoint now, const TokenLifetimes& lifetimes,
                                          std::chrono::seconds longest_window) {
  return Call("Purge", [&](Db& db) {
    Transaction transaction(db, TxKind::kWrite);
    const std::int64_t now_s =
        std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
    const Rows families = db.Run(
        "DELETE FROM token_families WHERE revoked = 1 OR current_issued_ms < $1 RETURNING id",
        {Millis(now) - Millis(lifetimes.refresh_idle)});
    const Rows windows =
        db.Run("DELETE FROM rate_windows WHERE window_start_s <= $1 RETURNING window_start_s",
               {now_s - longest_window.count()});
    const Rows questions =
        db.Run("DELETE FROM question_repeats WHERE last_ms < $1 RETURNING last_ms",
               {Millis(now) - Millis(std::chrono::milliseconds(kQuestionRepeatWindow))});
    transaction.Commit();
    return static_cast<std::int64_t>(families.size() + windows.size() + questions.size());
  });
}

}  // namespace hintwick
