// The session's requests for the game catalogue and the progress record, and its two
// workers: the game lookup and the chat turn.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "net/session_fixture.h"

namespace qn {
namespace {

using test::NoAnswer;
using test::Reply;

constexpr char kCatalogue[] =
    "[{\"slug\":\"g\",\"display_name\":\"G \\u00e9\",\"has_index\":true},\r\n"
    " {\"slug\":\"plain\",\"title\":\"Plain\"}]\r\n";
constexpr char kRecord[] = R"({"stage":"act 2","stage_ordinal":3,"directness":"coach"})";

std::string Describe(const std::vector<GameEntry>& games) {
  std::string out;
  for (const GameEntry& g : games)
    out += g.slug + "|" + g.display_name + (g.has_index ? "|i;" : ";");
  return out;
}

// What a posted lookup says: "key signed-in known name index stale record".
std::string Describe(const GameLookupResult& r) {
  const auto flag = [](bool set, const char* word) { return std::string(set ? word : "-") + " "; };
  return r.key + " " + flag(r.signed_in, "in") + flag(r.known, "known") + r.display_name + " " +
         flag(r.has_index, "index") + flag(r.catalogue_stale, "stale") +
         (r.memory_loaded ? r.stage + "/" + std::to_string(r.stage_ordinal) + "/" + r.directness
                          : "-");
}

std::string GamesFile() { return test::ReadFileBytes(StatePath(L"games.json")).value_or(""); }

using ProgressTest = SessionFixture;

TEST_F(ProgressTest, TheCatalogueComesLiveAndFallsBackToWhatIsKept) {
  const std::string live = "g|G \xC3\xA9|i;plain|Plain;";
  const std::string cached = R"([{"slug":"old","title":"Old","has_index":true}])";
  fake_->Script("GET", "/v1/games", Reply(200, kCatalogue));
  fake_->Script("GET", "/v1/games", Reply(500, kCatalogue));
  Session& warm = Start();
  EXPECT_EQ(Describe(warm.GetGames(true, 4000)), live);
  EXPECT_EQ(GamesFile(), kCatalogue);
  EXPECT_EQ(RequestsTo("/v1/games").at(0).Header("Authorization"), "Bearer a1");
  // A failure keeps the table in memory, marked stale, and leaves the file alone.
  test::WriteFileBytes(StatePath(L"games.json"), cached);
  EXPECT_EQ(Describe(warm.GetGames(true, 4000)), live);
  EXPECT_TRUE(warm.IsCatalogueStale());
  EXPECT_EQ(GamesFile(), cached);
  EXPECT_TRUE(Logged("WARN  games lookup unavailable; falling back to the cached table"));
}

// Reads and changes of the progress record, each with its log line; the slug goes into the
// path unencoded (only the space is escaped on the request line).
TEST_F(ProgressTest, TheProgressRecordIsReadAndChanged) {
  const struct {
    const char* method;
    const char* path;
    const char* body;
    bool (*call)(Session&);
    test::ScriptedReply reply;
    bool ok;
    const char* log;
  } cases[] = {
      {"GET", "/v1/memory/a%20b/c%20", "",
       [](Session& s) { return s.GetMemory("a b/c%20", 4000) == ParseMemoryRecord(kRecord); },
       Reply(200, kRecord), true, ""},
      {"PATCH", "/v1/memory/g", R"({"spoilers_ok":false})",
       [](Session& s) { return s.PatchMemory("g", {.spoilers_ok = false}); }, Reply(200), true,
       "INFO  memory patched for g"},
      {"PATCH", "/v1/memory/g", R"({"stage":"x","stage_ordinal":2})",
       [](Session& s) { return s.PatchMemory("g", {.stage = "x", .stage_ordinal = 2}); },
       NoAnswer(), false, "WARN  memory patch failed (0)"},
      {"POST", "/v1/memory/a%20b/new-playthrough", "{}",
       [](Session& s) { return s.NewPlaythrough("a b"); }, Reply(200), true,
       "INFO  progress reset for a b"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path + std::string(" ") + c.body);
    Reset();
    fake_->Script(c.method, c.path, c.reply);
    Session& session = Start();
    EXPECT_EQ(c.call(session), c.ok);
    EXPECT_TRUE(Logged(c.log)) << log_.Text();
    const auto sent = RequestsTo(c.path);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].body, c.body);
    EXPECT_EQ(sent[0].Header("Authorization"), "Bearer a1");
  }
}

TEST_F(ProgressTest, ALookupPostsWhatTheServiceKnowsOfTheGame) {
  const struct {
    const char* what;
    bool signed_in;
    std::string key;
    bool catalogue_live;
    const char* result;
  } cases[] = {
      {"indexed game", true, "g", true, "g in known G \xC3\xA9 index - act 2/3/coach"},
      {"game without index", true, "plain", true, "plain in known Plain - - -"},
      {"unknown game", true, "G", true, "G in -  - - -"},
      // The service just failed to answer; asking it for the record would only wait again.
      {"catalogue from games.json", true, "g", false, "g in known G \xC3\xA9 index stale -"},
      {"not signed in", false, "g", true, "g - -  - - -"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    fake_->Script("GET", "/v1/games", c.catalogue_live ? Reply(200, kCatalogue) : Reply(503));
    fake_->Script("GET", "/v1/memory/g", Reply(200, kRecord));
    test::WriteFileBytes(StatePath(L"games.json"), kCatalogue);
    Session& session = Start(c.signed_in);
    ReceiverWindow window;
    session.LookupGameAsync(c.key, window.get(), kMsgProgressSnapshot);
    ASSERT_TRUE(window.PumpUntil([&] { return !window.results.empty(); }));
    EXPECT_EQ(Describe(*window.results[0]), c.result);
    EXPECT_EQ(RequestsTo("/v1/memory/g").size(), window.results[0]->memory_loaded ? 1u : 0u);
  }
}

// The player switches from one game to another while the first lookup waits on the service:
// the game now played is the one reported, and nothing is left "checking".
TEST_F(ProgressTest, TheLatestLookupWins) {
  const auto release = std::make_shared<test::Gate>();
  test::ScriptedReply held = Reply(200);
  held.chunks = {{kCatalogue, release, nullptr}};
  fake_->Script("GET", "/v1/games", held);
  fake_->Script("GET", "/v1/games", Reply(200, kCatalogue));
  fake_->Script("GET", "/v1/memory/g", Reply(200, kRecord));
  Session& session = Start();
  ReceiverWindow window;
  session.LookupGameAsync("plain", window.get(), kMsgProgressSnapshot);
  ASSERT_TRUE(window.PumpUntil([&] { return !RequestsTo("/v1/games").empty(); }));
  session.LookupGameAsync("G", window.get(), kMsgProgressSnapshot);
  session.LookupGameAsync("g", window.get(), kMsgProgressSnapshot);
  release->Open();
  ASSERT_TRUE(window.PumpUntil(
      [&] { return !window.results.empty() && window.results.back()->key == "g"; }));
  session.Shutdown();  // every post the worker made is queued by now
  window.PumpUntil([] { return false; }, 100);
  ASSERT_EQ(window.results.size(), 1u);
  EXPECT_TRUE(window.results[0]->memory_loaded);
  EXPECT_EQ(RequestsTo("/v1/games").size(), 2u);
}

using ChatStreamTest = SessionFixture;

// Each turn's events arrive in order with its end mark last, and a question the player sends
// the moment the end mark arrives starts the next turn, under the next number, instead of
// being dropped. The gap a late-cleared flag would leave is narrow: one turn in a hundred or
// so falls into it here.
TEST_F(ChatStreamTest, AQuestionSentAtTheEndMarkStartsTheNextTurn) {
  constexpr size_t kTurns = 300;
  const std::vector<std::string> turn = {R"({"type":"token","text":"n"})", R"({"type":"done"})",
                                         "<end>"};
  fake_->Script("POST", "/v1/chat",
                Reply(200, "data: " + turn[0] + "\n\ndata: " + turn[1] + "\n\n"));
  Session& session = Start();
  ReceiverWindow window;
  std::vector<ChatTurnId> accepted;
  window.on_end = [&] {
    if (accepted.size() < kTurns) {
      accepted.push_back(session.StreamChatAsync("g", "q", window.get(), kMsgChatEvent));
    }
  };
  ASSERT_EQ(session.StreamChatAsync("g", "q", window.get(), kMsgChatEvent), 1u);
  window.PumpUntil(
      [&] { return accepted.size() == kTurns && window.events.size() == (kTurns + 1) * 3; });
  session.Shutdown();
  window.PumpUntil([] { return false; }, 100);
  std::vector<std::string> expected;
  std::vector<ChatTurnId> expected_turns;
  for (ChatTurnId id = 1; id <= kTurns + 1; ++id) {
    expected.insert(expected.end(), turn.begin(), turn.end());
    expected_turns.insert(expected_turns.end(), turn.size(), id);
  }
  EXPECT_EQ(window.events, expected);
  EXPECT_EQ(window.event_turns, expected_turns);
  EXPECT_EQ(accepted.back(), kTurns + 1);
  const auto sent = RequestsTo("/v1/chat");
  ASSERT_EQ(sent.size(), kTurns + 1);
  for (const auto& request : sent) {
    EXPECT_EQ(request.body, R"({"game":"g","message":"q"})");
    EXPECT_EQ(request.Header("Authorization"), "Bearer a1");
    EXPECT_EQ(request.Header("Accept"), "text/event-stream");
  }
}

}  // namespace
}  // namespace qn
