#pragma once
// What the service keeps, behind one interface that SQLite and PostgreSQL both serve. Every
// call blocks on the database, so callers run it on the store's pool, never on an I/O thread.
// Each call is one transaction: a call that fails leaves nothing half-written.
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "packs/pack.h"

namespace hintwick {

using Clock = std::chrono::system_clock;
using TimePoint = Clock::time_point;
using UserId = std::int64_t;

// A failure of the database itself (unreachable, full, corrupt), as opposed to an answer such
// as "no such user". The text names the call and the database's own message, for the log.
struct StoreError {
  std::string text;
};

template <typename T>
using StoreResult = std::variant<T, StoreError>;

struct User {
  UserId id = 0;
  std::string email;          // lower-cased by the caller
  std::string password_hash;  // crypto_pwhash_str's encoded string
};

// A token is kept only as the SHA-256 of its text, as 64 lower-case hex digits.
struct TokenHashes {
  std::string refresh;
  std::string access;
};

struct TokenLifetimes {
  std::chrono::seconds access{3600};
  std::chrono::seconds refresh_idle{90 * 24 * 3600};
  std::chrono::seconds reuse_grace{30};  // 0: no grace
  int reuse_grace_max = 3;               // reuses of one previous token the grace allows
};

enum class RotateOutcome {
  kRotated,        // the presented token was current; `fresh` is now the family's pair
  kGraceReissued,  // the immediately previous token, within the grace: only `fresh.access`
                   // was stored, the family's current refresh token stands
  kReuseRevoked,   // a rotated token outside the grace: the whole family is now revoked
  kUnknown,        // no such token, a revoked family, or expired after its idle time
};

struct Rotation {
  RotateOutcome outcome = RotateOutcome::kUnknown;
  UserId user = 0;
  std::int64_t family = 0;
};

enum class Directness { kCoach, kHints, kAnswer };
// The levels' names, "coach", "hints" and "answer", as the program sends them and the store
// keeps them.
std::string_view DirectnessText(Directness directness);
std::optional<Directness> DirectnessFromText(std::string_view text);

struct Progress {
  std::string stage;  // empty: not started
  std::int64_t stage_ordinal = 0;
  Directness directness = Directness::kHints;
  bool spoilers_ok = false;
  std::int64_t revision = 0;  // 0 for a game the player was never seen in
};

struct ProgressPatch {
  std::optional<std::string> stage;
  std::optional<std::int64_t> stage_ordinal;
  std::optional<Directness> directness;
  std::optional<bool> spoilers_ok;
};

struct GameEntry {
  std::string key;  // the executable's name without ".exe", lower-case
  std::string title;
  bool has_index = false;
};

// A question asked again after this long is a new question: the player has likely moved on,
// and the tier starts again from the one their directness gives.
constexpr std::chrono::hours kQuestionRepeatWindow{12};

class Store {
 public:
  virtual ~Store() = default;

  // Accounts. CreateUser gives nullopt when the e-mail is taken.
  virtual StoreResult<std::optional<User>> CreateUser(const std::string& email,
                                                      const std::string& password_hash) = 0;
  virtual StoreResult<std::optional<User>> FindUser(const std::string& email) = 0;
  virtual StoreResult<bool> SetPasswordHash(UserId user, const std::string& password_hash) = 0;
  // Removes the user and everything kept for them; false when there was no such user.
  virtual StoreResult<bool> DeleteUser(const std::string& email) = 0;

  // Tokens. A sign-in starts a family; each refresh rotates within it, as one atomic step
  // however many processes share the database.
  virtual StoreResult<std::int64_t> StartFamily(UserId user, const TokenHashes& tokens,
                                                const std::string& device_label, TimePoint now,
                                                const TokenLifetimes& lifetimes) = 0;
  virtual StoreResult<Rotation> Rotate(const std::string& presented_refresh_hash,
                                       const TokenHashes& fresh, TimePoint now,
                                       const TokenLifetimes& lifetimes) = 0;
  // The user of an access token that has not expired and whose family stands.
  virtual StoreResult<std::optional<UserId>> Authenticate(const std::string& access_hash,
                                                          TimePoint now) = 0;
  // Revokes the family of this refresh token (current or rotated), its access tokens included;
  // false when the token was never issued.
  virtual StoreResult<bool> RevokeFamilyOf(const std::string& refresh_hash) = 0;

  // Games, each key an entry of its own.
  virtual StoreResult<std::vector<GameEntry>> ListGames() = 0;
  // Adds or replaces a game with its keys: the game that holds any of `keys` (else a new one)
  // takes the title and exactly these keys, and a key of another game moves to this one. False,
  // with nothing written, when `keys` is empty.
  virtual StoreResult<bool> PutGame(const std::vector<std::string>& keys, const std::string& title,
                                    bool has_index) = 0;

  // Progress, per user and game key. A game never seen reads as the defaults, revision 0; every
  // patch (an empty one too) and every new playthrough adds one to the revision.
  virtual StoreResult<Progress> GetProgress(UserId user, const std::string& game) = 0;
  virtual StoreResult<Progress> PatchProgress(UserId user, const std::string& game,
                                              const ProgressPatch& patch) = 0;
  // A new playthrough: the stage goes back to the start, the preferences stay, and the
  // questions asked so far count as never asked.
  virtual StoreResult<Progress> NewPlaythrough(UserId user, const std::string& game) = 0;

  // Counts one asking of a question and gives the times it was asked before: by this player,
  // about this game, with no gap longer than kQuestionRepeatWindow between two askings. Every
  // process on the database counts into the same record. `question_key` stands for the
  // question however it was worded; the store only compares it.
  virtual StoreResult<int> CountQuestion(UserId user, const std::string& game,
                                         const std::string& question_key, TimePoint now) = 0;

  // Knowledge packs. An import replaces the game's pack as a whole, in one transaction: the
  // game that holds any of the pack's keys (else a new one) takes its title and exactly its
  // keys, as PutGame does, with has_index set. False, with nothing written, when it has no keys.
  virtual StoreResult<bool> ImportPack(const Pack& pack) = 0;
  // The pack of the game with this key, without its notes; nullopt for a game without a pack.
  virtual StoreResult<std::optional<PackOutline>> GetPackOutline(const std::string& game) = 0;
  // The notes of the game with this key that the player may see, best match first: only notes
  // safe at `max_stage` (nullopt: any stage, for a player who wants spoilers) and of `max_tier`
  // or gentler are ranked at all. The question is only ever matched as a list of words; common
  // words are left out, and a question with no other word finds nothing.
  virtual StoreResult<std::vector<PackNote>> SearchNotes(const std::string& game,
                                                         const std::string& question,
                                                         std::optional<std::int64_t> max_stage,
                                                         Tier max_tier, int limit) = 0;

  // Fixed-window counters for rate limits, shared by every process on the database: counts one
  // hit on `key` and gives the seconds to wait (at least 1) when the window already held `limit`
  // hits. Windows start at multiples of `window` since the epoch.
  virtual StoreResult<std::optional<std::chrono::seconds>> Hit(const std::string& key, int limit,
                                                               std::chrono::seconds window,
                                                               TimePoint now) = 0;

  // Drops what no longer changes any answer, for a periodic job: families revoked or unused
  // past `lifetimes.refresh_idle`, with their tokens (any of which already reads as unknown, and
  // RevokeFamilyOf then says never issued), rate-limit windows that ended, for windows of
  // `longest_window` or shorter, and questions last asked more than kQuestionRepeatWindow ago.
  // Gives how many families, windows and questions went.
  virtual StoreResult<std::int64_t> Purge(TimePoint now, const TokenLifetimes& lifetimes,
                                          std::chrono::seconds longest_window) = 0;
};

// "sqlite:PATH" (or a bare path) opens SQLite in WAL mode; "postgres://..." or
// "postgresql://..." connects to PostgreSQL. Either way the schema is migrated to the current
// version first. `connections` bounds the database connections, one per pool thread; a call
// waits for a free one. SQLite needs a file: each connection would see a memory database of its
// own.
StoreResult<std::unique_ptr<Store>> OpenStore(const std::string& url, int connections);

}  // namespace hintwick
