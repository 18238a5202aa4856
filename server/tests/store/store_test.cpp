// Every table runs on SQLite and on PostgreSQL, each test on a database of its own.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <latch>
#include <map>
#include <thread>

#include "store/db.h"
#include "store/migrations.h"
#include "store/store.h"

namespace hintwick {
namespace {

using namespace std::chrono_literals;
using Outcome = RotateOutcome;
constexpr Outcome kRot = Outcome::kRotated, kGrace = Outcome::kGraceReissued,
                  kRevoked = Outcome::kReuseRevoked, kUnknown = Outcome::kUnknown;

const TimePoint kT0{std::chrono::seconds(1'800'000'000)};  // a multiple of every window below

template <typename T>
T Ok(StoreResult<T> result) {
  if (const auto* error = std::get_if<StoreError>(&result)) throw std::runtime_error(error->text);
  return std::get<T>(std::move(result));
}

std::string NewDatabaseName() {
  static std::atomic<int> made{0};
  return "store_test_" + std::to_string(getpid()) + "_" + std::to_string(++made);
}

class StoreTest : public testing::TestWithParam<bool> {  // true: PostgreSQL
 protected:
  void SetUp() override {
    if (GetParam()) {
      if (const char* skip = std::getenv("HINTWICK_TEST_POSTGRES_SKIP")) GTEST_SKIP() << skip;
      const char* admin = std::getenv("HINTWICK_TEST_POSTGRES_URL");
      if (admin == nullptr) GTEST_SKIP() << "HINTWICK_TEST_POSTGRES_URL is not set";
      admin_url_ = admin;
      name_ = NewDatabaseName();
      Connect(admin_url_)->Run("CREATE DATABASE " + name_, {});
      url_ = "postgresql:///" + name_ + admin_url_.substr(admin_url_.find('?'));
    } else {
      url_ = (std::filesystem::temp_directory_path() / (NewDatabaseName() + ".db")).string();
    }
    store_ = Open();
    user_ = Ok(store_->CreateUser("a@example.org", "hash-a"))->id;
  }
  void TearDown() override {
    store_.reset();
    if (!GetParam()) {
      for (const char* suffix : {"", "-wal", "-shm"}) std::filesystem::remove(url_ + suffix);
    }
  }
  std::unique_ptr<Store> Open() { return Ok(OpenStore(url_, 4)); }
  std::int64_t StartFamily(Store& store, TokenLifetimes lifetimes = {}) {
    return Ok(store.StartFamily(user_, {"r0", "a0"}, "windows-client", kT0, lifetimes));
  }
  bool Stands(Store& store) { return Ok(store.Authenticate("a0", kT0 + 1s)).has_value(); }

  std::string admin_url_, name_, url_;
  std::unique_ptr<Store> store_;
  UserId user_ = 0;
};

TEST_P(StoreTest, AccountsAndDeletionWithEverythingKeptForTheUser) {
  EXPECT_FALSE(Ok(store_->CreateUser("a@example.org", "other")).has_value());
  EXPECT_TRUE(Ok(store_->SetPasswordHash(user_, "hash-a2")));
  EXPECT_FALSE(Ok(store_->SetPasswordHash(user_ + 1000, "x")));
  EXPECT_EQ(Ok(store_->FindUser("a@example.org"))->password_hash, "hash-a2");
  StartFamily(*store_);
  Ok(store_->PatchProgress(user_, "game", {.stage = "cave"}));

  EXPECT_TRUE(Ok(store_->DeleteUser("a@example.org")));
  EXPECT_FALSE(Ok(store_->DeleteUser("a@example.org")));
  EXPECT_FALSE(Ok(store_->FindUser("a@example.org")).has_value());
  EXPECT_FALSE(Stands(*store_));
  EXPECT_EQ(Ok(store_->Rotate("r0", {"r1", "a1"}, kT0, {})).outcome, kUnknown);
  EXPECT_EQ(Ok(store_->GetProgress(user_, "game")).revision, 0);
  EXPECT_NE(Ok(store_->CreateUser("a@example.org", "hash-b"))->id, user_);
}

// Presenting "r<token>" at kT0 + at; a rotation or reissue stores "r<step+1>" / "a<step+1>".
struct Presentation {
  int token;
  std::chrono::seconds at;
  Outcome expected;
  bool through_other_store = false;  // as another process on the same database
};
struct RotationCase {
  const char* name;
  std::chrono::seconds grace;
  std::vector<Presentation> steps;
  bool stands;  // every access token issued still authenticates; else none does
};

// clang-format off
const std::vector<RotationCase> kRotations = {
    {"the previous token up to the cap, which each rotation resets", 30s,
     {{0, 0s, kRot}, {0, 1s, kGrace}, {0, 2s, kGrace}, {0, 30s, kGrace}, {1, 31s, kRot},
      {1, 32s, kGrace}}, true},
    {"the previous token over the cap", 30s,
     {{0, 0s, kRot}, {0, 1s, kGrace}, {0, 2s, kGrace}, {0, 3s, kGrace}, {0, 4s, kRevoked},
      {1, 5s, kUnknown}}, false},
    {"the previous token after the grace", 30s, {{0, 0s, kRot}, {0, 31s, kRevoked}}, false},
    {"the previous token with no grace", 0s, {{0, 0s, kRot}, {0, 0s, kRevoked}}, false},
    {"a token older than the previous one", 30s,
     {{0, 0s, kRot}, {1, 1s, kRot}, {0, 2s, kRevoked}}, false},
    {"a grace refresh token, never stored", 30s,
     {{0, 0s, kRot}, {0, 1s, kGrace}, {2, 2s, kUnknown}, {1, 3s, kRot}}, true},
    {"the current token past and at its idle time", 30s,
     {{0, 601s, kUnknown}, {0, 600s, kRot}}, true},
    {"a reuse caught by another process", 30s,
     {{0, 0s, kRot}, {0, 31s, kRevoked, true}, {1, 32s, kUnknown}}, false},
};
// clang-format on

TEST_P(StoreTest, RotationTable) {
  const std::unique_ptr<Store> other = Open();
  for (const RotationCase& row : kRotations) {
    SCOPED_TRACE(row.name);
    ASSERT_TRUE(Ok(store_->DeleteUser("a@example.org")));
    user_ = Ok(store_->CreateUser("a@example.org", "hash-a"))->id;
    const TokenLifetimes lifetimes{.refresh_idle = 600s, .reuse_grace = row.grace};
    const std::int64_t family = StartFamily(*store_, lifetimes);
    std::vector<std::string> issued = {"a0"};
    for (std::size_t step = 0; step < row.steps.size(); ++step) {
      const Presentation& p = row.steps[step];
      const std::string fresh = std::to_string(step + 1) + row.name;  // unique across rows
      Store& store = p.through_other_store ? *other : *store_;
      const Rotation got = Ok(store.Rotate(p.token == 0 ? "r0" : std::to_string(p.token) + row.name,
                                           {fresh, "a" + fresh}, kT0 + p.at, lifetimes));
      EXPECT_EQ(got.outcome, p.expected) << "step " << step;
      if (got.outcome == kUnknown) continue;
      EXPECT_EQ(std::pair(got.user, got.family), std::pair(user_, family));
      if (got.outcome != kRevoked) issued.push_back("a" + fresh);
    }
    for (const std::string& access : issued) {
      EXPECT_EQ(Ok(store_->Authenticate(access, kT0 + 1s)).has_value(), row.stands) << access;
    }
  }
}

// Revoking a family is the sign-out's, and the service's tests sign out.
TEST_P(StoreTest, AccessTokensExpire) {
  StartFamily(*store_, {.access = 60s});
  const std::vector<std::tuple<std::string, std::chrono::seconds, bool>> checks = {
      {"a0", 59s, true}, {"a0", 60s, false}, {"r0", 0s, false}, {"a9", 0s, false}};
  for (const auto& [access, at, valid] : checks) {
    EXPECT_EQ(Ok(store_->Authenticate(access, kT0 + at)).has_value(), valid) << access << at;
  }
}

// Four refreshes of one token at once, two through each of two stores on the database, as two
// processes would send them.
TEST_P(StoreTest, ConcurrentRotationsAcrossTwoStores) {
  const std::unique_ptr<Store> other = Open();
  for (const auto grace : {30s, 0s}) {
    SCOPED_TRACE(grace.count());
    ASSERT_TRUE(Ok(store_->DeleteUser("a@example.org")));
    user_ = Ok(store_->CreateUser("a@example.org", "hash-a"))->id;
    const TokenLifetimes lifetimes{.reuse_grace = grace};
    StartFamily(*store_, lifetimes);
    std::map<Outcome, int> outcomes;
    std::mutex mutex;
    std::latch start(4);
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&, i] {
        Store& store = i % 2 == 0 ? *store_ : *other;
        const std::string fresh = std::to_string(grace.count()) + "-" + std::to_string(i);
        start.arrive_and_wait();
        const auto result = store.Rotate("r0", {"r" + fresh, "a" + fresh}, kT0, lifetimes);
        const std::lock_guard lock(mutex);
        ++outcomes[std::holds_alternative<Rotation>(result) ? std::get<Rotation>(result).outcome
                                                            : Outcome{-1}];
      });
    }
    threads.clear();
    EXPECT_EQ(outcomes[kRot], 1);
    EXPECT_EQ(outcomes[kGrace], grace > 0s ? 3 : 0);
    EXPECT_EQ(outcomes[Outcome{-1}], 0) << "a store call failed";
    EXPECT_EQ(Stands(*other), grace > 0s);
  }
}

TEST_P(StoreTest, ProgressTable) {
  const UserId other = Ok(store_->CreateUser("b@example.org", "hash-b"))->id;
  enum class Op { kGet, kPatch, kNew };
  const Directness kAnswer = Directness::kAnswer, kHints = Directness::kHints;
  // clang-format off
  const std::vector<std::tuple<Op, UserId, std::string, ProgressPatch, Progress>> steps = {
      {Op::kGet, user_, "g", {}, {"", 0, kHints, false, 0}},
      {Op::kPatch, user_, "g", {.stage = "cave", .stage_ordinal = 3}, {"cave", 3, kHints, false, 1}},
      {Op::kPatch, user_, "g", {.directness = kAnswer, .spoilers_ok = true}, {"cave", 3, kAnswer, true, 2}},
      {Op::kPatch, user_, "g", {}, {"cave", 3, kAnswer, true, 3}},
      {Op::kGet, other, "g", {}, {"", 0, kHints, false, 0}},
      {Op::kNew, user_, "g", {}, {"", 0, kAnswer, true, 4}},
      {Op::kGet, user_, "g", {}, {"", 0, kAnswer, true, 4}},
      {Op::kNew, user_, "h", {}, {"", 0, kHints, false, 1}},
      {Op::kPatch, other, "g", {.stage = "", .spoilers_ok = true}, {"", 0, kHints, true, 1}},
  };
  // clang-format on
  for (std::size_t i = 0; i < steps.size(); ++i) {
    const auto& [op, user, game, patch, expected] = steps[i];
    const Progress got = Ok(op == Op::kGet     ? store_->GetProgress(user, game)
                            : op == Op::kPatch ? store_->PatchProgress(user, game, patch)
                                               : store_->NewPlaythrough(user, game));
    EXPECT_EQ(std::tie(got.stage, got.stage_ordinal, got.directness, got.spoilers_ok, got.revision),
              std::tie(expected.stage, expected.stage_ordinal, expected.directness,
                       expected.spoilers_ok, expected.revision))
        << "step " << i;
  }
}

std::string Listed(const std::vector<GameEntry>& games) {
  std::string text;
  for (const GameEntry& game : games) {
    text += game.key + "=" + game.title + (game.has_index ? "+ " : " ");
  }
  return text;
}

TEST_P(StoreTest, GamesTable) {
  const std::vector<std::tuple<std::vector<std::string>, std::string, bool, bool, std::string>>
      puts = {
          {{"alpha", "alpha64"}, "Alpha", true, true, "alpha=Alpha+ alpha64=Alpha+ "},
          {{"beta"}, "Beta", false, true, "alpha=Alpha+ alpha64=Alpha+ beta=Beta "},
          // The game of alpha64 keeps only these keys, and beta leaves its game.
          {{"alpha64", "beta", "delta"}, "Both", false, true, "alpha64=Both beta=Both delta=Both "},
          {{}, "None", true, false, "alpha64=Both beta=Both delta=Both "},
          {{"alpha"}, "Alpha", true, true, "alpha=Alpha+ alpha64=Both beta=Both delta=Both "},
      };
  for (const auto& [keys, title, has_index, put, listed] : puts) {
    EXPECT_EQ(Ok(store_->PutGame(keys, title, has_index)), put) << title;
    EXPECT_EQ(Listed(Ok(store_->ListGames())), listed);
  }
}

TEST_P(StoreTest, RateLimitWindows) {
  using Wait = std::optional<std::chrono::seconds>;
  const std::vector<std::tuple<std::string, std::chrono::milliseconds, Wait>> hits = {
      {"ip", 0ms, {}},      {"ip", 10s, {}}, {"ip", 20s, 40s}, {"account", 20s, {}},
      {"ip", 59'500ms, 1s}, {"ip", 60s, {}}, {"ip", 61s, {}},  {"ip", 62s, 58s},
      {"ip", 30s, 90s},  // a lagging clock counts into the window already open
  };
  for (const auto& [key, at, wait] : hits) {
    EXPECT_EQ(Ok(store_->Hit(key, 2, 60s, kT0 + at)), wait) << key << " " << at.count();
  }
}

// Each row one asking, at kT0 + at, and the times the store says it was asked before.
struct Asking {
  bool other_player;
  std::string game, question;
  std::chrono::seconds at;
  int before;
  bool through_other_store = false;  // as another process on the same database
};

TEST_P(StoreTest, QuestionRepeatsAcrossProcessesWithinTheirWindow) {
  const UserId other = Ok(store_->CreateUser("b@example.org", "hash-b"))->id;
  const std::unique_ptr<Store> second = Open();
  const std::chrono::seconds window = kQuestionRepeatWindow;
  const std::vector<Asking> askings = {
      {false, "g", "gate", 0s, 0},
      {false, "g", "gate", 60s, 1, true},
      {false, "g", "gate", 120s, 2},
      {true, "g", "gate", 120s, 0},
      {false, "h", "gate", 120s, 0},
      {false, "g", "lever", 120s, 0},
      {false, "g", "gate", 30s, 3, true},      // a lagging clock counts into the record
      {false, "g", "gate", 120s + window, 4},  // the gap is from the latest asking
      {false, "g", "gate", 121s + 2 * window, 0},
      {false, "g", "gate", 122s + 2 * window, 1},
  };
  for (std::size_t i = 0; i < askings.size(); ++i) {
    const Asking& row = askings[i];
    Store& store = row.through_other_store ? *second : *store_;
    EXPECT_EQ(Ok(store.CountQuestion(row.other_player ? other : user_, row.game, row.question,
                                     kT0 + row.at)),
              row.before)
        << "asking " << i;
  }
  // A new playthrough forgets the game's questions, and only that game's.
  Ok(store_->NewPlaythrough(user_, "g"));
  EXPECT_EQ(Ok(store_->CountQuestion(user_, "g", "gate", kT0 + 123s + 2 * window)), 0);
  EXPECT_EQ(Ok(store_->CountQuestion(user_, "h", "gate", kT0 + 123s)), 1);
  // The purge takes what was last asked more than a window ago: the other player's gate and
  // h's gate, not the gate asked again in the new playthrough.
  EXPECT_EQ(Ok(store_->Purge(kT0 + 124s + window, {}, 60s)), 2);
  EXPECT_EQ(Ok(store_->Purge(kT0 + 124s + window, {}, 60s)), 0);
  EXPECT_EQ(Ok(store_->CountQuestion(user_, "g", "gate", kT0 + 124s + 2 * window)), 1);
  ASSERT_TRUE(Ok(store_->DeleteUser("a@example.org")));
  EXPECT_EQ(Ok(store_->Purge(kT0 + 200s + 4 * window, {}, 60s)), 0);  // went with the user
}

constexpr Tier kNudge = Tier::kNudge, kHint = Tier::kHint, kAnswer = Tier::kAnswer;

Pack QuestPack() {
  return {{"Quest",
           {"quest", "quest64"},
           {{"Dock", {"start"}}, {"Tower", {"tower top", "spire"}}, {"Vault", {}}},
           {{"Red Key", 3}}},
          {{1, kNudge, "Finding the rope", "The rope lies coiled under the dock's boards."},
           {1, kAnswer, "Leaving the dock", "Tie the rope to the boat and row out."},
           {1, kHint, "Lamp oil", "Buy lantern oil from the chandler on the dock."},
           {1, kNudge, "Dark corners", "A lantern would help in the cellar."},
           {2, kNudge, "Climbing the tower", "The stairs collapse; look for another way up."},
           {2, kHint, "Climbing the tower", "Throw the rope over the beam to climb."},
           {3, kAnswer, "Opening the vault", "The Red Key from the tower opens the vault."},
           {3, kNudge, "Lantern oil", "Lantern oil, lantern oil: the vault's lamps."}}};
}

// Titles found, sorted when the order is the database's own ranking.
std::vector<std::string> Titles(std::vector<PackNote> notes, bool ranked = false) {
  std::vector<std::string> titles;
  for (const PackNote& note : notes) titles.push_back(note.title);
  if (!ranked) std::sort(titles.begin(), titles.end());
  return titles;
}

struct SearchCase {
  std::string question;
  std::optional<std::int64_t> max_stage;  // nullopt: spoilers welcome
  Tier max_tier;
  std::vector<std::string> titles;
  int limit = 10;
  std::string game = "quest";
};

// clang-format off
const std::vector<SearchCase> kSearches = {
    // Stage N against N+1, and spoilers, which lift the stage but never the tier.
    {"how do I climb the tower?", 1, kAnswer, {}},
    {"how do I climb the tower?", 2, kHint, {"Climbing the tower", "Climbing the tower"}},
    {"how do I climb the tower?", 2, kNudge, {"Climbing the tower"}},
    {"how do I climb the tower?", std::nullopt, kHint, {"Climbing the tower", "Climbing the tower"}},
    {"how do I climb the tower?", std::nullopt, kAnswer,
     {"Climbing the tower", "Climbing the tower", "Opening the vault"}},
    {"where is the rope", 1, kNudge, {"Finding the rope"}},
    {"where is the rope", 1, kAnswer, {"Finding the rope", "Leaving the dock"}},
    // Ranking among what the gate lets through: the stage-3 note would outrank it.
    {"LANTERN oil", 1, kAnswer, {"Lamp oil"}, 1},
    {"any rope", 1, kAnswer, {"Finding the rope", "Leaving the dock"}, 10, "quest64"},
    {"any rope", 1, kAnswer, {"Other rope"}, 10, "other"},
    {"any rope", std::nullopt, kAnswer, {}, 10, "unknown"},
    {"any rope", 1, kAnswer, {}, 0},
    // A player's words are only words: no operator, column, prefix or phrase of either
    // database's syntax acts, and no question is an error.
    {"what's NOT \"here\"?", std::nullopt, kAnswer, {}},
    {"rope NOT dock", 1, kAnswer, {"Finding the rope", "Lamp oil", "Leaving the dock"}},
    {"title: rope", 1, kAnswer, {"Finding the rope", "Leaving the dock"}},
    {"-rope NEAR(x) ^y", 1, kAnswer, {"Finding the rope", "Leaving the dock"}},
    {"rop* OR \"boat", 1, kAnswer, {"Leaving the dock"}},
    {"rope & !boat | (oil", 1, kHint, {"Finding the rope", "Lamp oil"}},
    {"'; DROP TABLE pack_notes; --", std::nullopt, kAnswer, {}},
    {"\xff\xfe\xed\xa0\x80 rope", 1, kNudge, {"Finding the rope"}},
    {" ?! \"\" ** ", std::nullopt, kAnswer, {}},
};
// clang-format on

TEST_P(StoreTest, SearchGatesBeforeItRanks) {
  ASSERT_TRUE(Ok(store_->ImportPack(QuestPack())));
  ASSERT_TRUE(Ok(store_->ImportPack({{"Other", {"other"}, {{"One", {}}}, {}},
                                     {{1, kNudge, "Other rope", "A rope elsewhere."}}})));
  for (const SearchCase& row : kSearches) {
    const auto notes =
        Ok(store_->SearchNotes(row.game, row.question, row.max_stage, row.max_tier, row.limit));
    EXPECT_EQ(Titles(notes, row.limit < 10), row.titles)
        << row.question << " at " << row.max_stage.value_or(-1);
  }
}

std::string Outlined(const std::optional<PackOutline>& outline) {
  if (!outline) return "none";
  std::string text = outline->title;
  for (const PackStage& stage : outline->stages) {
    text += " | " + stage.name;
    for (const std::string& alias : stage.aliases) text += ", " + alias;
  }
  for (const PackSpoiler& spoiler : outline->spoilers) {
    text += " | " + spoiler.term + "@" + std::to_string(spoiler.stage);
  }
  return text;
}

TEST_P(StoreTest, ImportReplacesThePackWhole) {
  Pack second = {{"Quest II", {"quest"}, {{"Pier", {"start"}}, {"Keep", {}}}, {{"Crown", 2}}},
                 {{1, kNudge, "The pier", "Boats tie up at the pier."}}};
  ASSERT_TRUE(Ok(store_->PutGame({"plain"}, "Plain", false)));
  // clang-format off
  const std::vector<std::tuple<std::optional<Pack>, std::string, std::string, std::string>> steps = {
      {QuestPack(), "quest", "Quest | Dock, start | Tower, tower top, spire | Vault | Red Key@3",
       "plain=Plain quest=Quest+ quest64=Quest+ "},
      {QuestPack(), "quest64", "", ""},  // the same pack again changes nothing
      {second, "quest", "Quest II | Pier, start | Keep | Crown@2", "plain=Plain quest=Quest II+ "},
      {std::nullopt, "quest64", "none", ""},
      {std::nullopt, "plain", "none", ""},
  };
  // clang-format on
  std::string outlined, listed;
  for (const auto& [pack, key, outline, games] : steps) {
    if (pack) EXPECT_TRUE(Ok(store_->ImportPack(*pack)));
    outlined = outline.empty() ? outlined : outline;
    listed = games.empty() ? listed : games;
    EXPECT_EQ(Outlined(Ok(store_->GetPackOutline(key))), outlined);
    EXPECT_EQ(Listed(Ok(store_->ListGames())), listed);
  }
  EXPECT_EQ(Titles(Ok(store_->SearchNotes("quest", "rope boats pier", 3, kAnswer, 10))),
            std::vector<std::string>{"The pier"});
  EXPECT_FALSE(Ok(store_->ImportPack({})));
}

TEST_P(StoreTest, PurgeDropsOnlyWhatNoLongerCounts) {
  const TokenLifetimes lifetimes{.refresh_idle = 600s};
  StartFamily(*store_, lifetimes);  // idle since kT0
  Ok(store_->StartFamily(user_, {"r-kept", "a-kept"}, "w", kT0 + 500s, lifetimes));
  Ok(store_->StartFamily(user_, {"r-gone", "a-gone"}, "w", kT0 + 500s, lifetimes));
  ASSERT_TRUE(Ok(store_->RevokeFamilyOf("r-gone")));
  for (const auto& [key, at] : {std::pair("ended", 0s), std::pair("open", 600s)}) {
    Ok(store_->Hit(key, 1, 60s, kT0 + at));
  }
  EXPECT_EQ(Ok(store_->Purge(kT0 + 601s, lifetimes, 60s)), 3);
  EXPECT_FALSE(Ok(store_->RevokeFamilyOf("r0")));
  EXPECT_FALSE(Ok(store_->RevokeFamilyOf("r-gone")));
  EXPECT_EQ(Ok(store_->Rotate("r-kept", {"r1", "a1"}, kT0 + 601s, lifetimes)).outcome, kRot);
  EXPECT_FALSE(Ok(store_->Hit("ended", 1, 60s, kT0 + 30s)).has_value());  // counts from 0 again
  EXPECT_TRUE(Ok(store_->Hit("open", 1, 60s, kT0 + 601s)).has_value());
}

TEST_P(StoreTest, MigrationsRunOnceAndReopeningKeepsTheData) {
  const std::unique_ptr<Db> db = Connect(url_);
  EXPECT_EQ(Migrate(*db), 0);
  EXPECT_EQ(SchemaVersion(*db), LatestSchemaVersion());
  EXPECT_EQ(Ok(Open()->FindUser("a@example.org"))->id, user_);
}

TEST_P(StoreTest, SessionsTheServerEndedAreOpenedAgain) {
  if (!GetParam()) GTEST_SKIP() << "SQLite has no server to end a session";
  Connect(admin_url_)->Run(
      "SELECT pg_terminate_backend(pid, 5000) FROM pg_stat_activity WHERE datname = $1", {name_});
  EXPECT_EQ(Ok(store_->FindUser("a@example.org"))->id, user_);
}

INSTANTIATE_TEST_SUITE_P(Stores, StoreTest, testing::Bool(),
                         [](const auto& info) { return info.param ? "Postgres" : "Sqlite"; });

TEST(StoreOpen, FailuresAreReportedNotThrown) {
  for (const char* url : {"sqlite::memory:", "sqlite:/nonexistent/folder/x.db",
                          "postgresql:///none?host=/nonexistent"}) {
    const auto result = OpenStore(url, 2);
    ASSERT_TRUE(std::holds_alternative<StoreError>(result)) << url;
    EXPECT_TRUE(std::get<StoreError>(result).text.starts_with("OpenStore: ")) << url;
  }
}

}  // namespace
}  // namespace hintwick
