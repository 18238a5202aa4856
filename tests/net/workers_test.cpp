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
constexpr char kAsked[] = R"({"game":"g","message":"q"})";

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

using RequestTest = SessionFixture;

TEST_F(RequestTest, TheCatalogueComesLiveAndFallsBackToWhatIsKept) {
  const std::string cached = R"([{"slug":"old","title":"Old","has_index":true}])";
  fake_->Script("GET", "/v1/games", Reply(200, kCatalogue));
  fake_->Script("GET", "/v1/games", Reply(500, kCatalogue));
  Session& warm = Start();
  warm.GetGames(true, 4000);
  EXPECT_EQ(GamesFile(), kCatalogue);
  // A failure keeps the table in memory, marked stale, and leaves the file alone.
  test::WriteFileBytes(StatePath(L"games.json"), cached);
  EXPECT_EQ(Describe(warm.GetGames(true, 4000)), "g|G \xC3\xA9|i;plain|Plain;");
  EXPECT_TRUE(warm.IsCatalogueStale());
  EXPECT_EQ(GamesFile(), cached);
  EXPECT_TRUE(Logged("WARN  games lookup unavailable; falling back to the cached table"));
}

TEST_F(RequestTest, ALookupPostsWhatTheServiceKnowsOfTheGame) {
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
TEST_F(RequestTest, TheLatestLookupWins) {
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

constexpr char kFirst[] = "Bearer a1;";
constexpr char kBoth[] = "Bearer a1;Bearer a2;";

// One chat turn's events, each followed by a space, the end mark last.
std::string Ask(Session& session) {
  ReceiverWindow window;
  session.StreamChatAsync("g", "q", window.get(), kMsgChatEvent);
  window.PumpUntil([&] { return !window.events.empty() && window.events.back() == "<end>"; });
  std::string out;
  for (const std::string& event : window.events) out += event + " ";
  return out;
}

// Every request made with the access token: a 401 earns one refresh and one resend with the
// new token, and no more; a chat stream that got no answer at all is sent again too, and none
// that has delivered an event. Slugs go unencoded into the path (the request line escapes spaces).
// The progress read's refresh is the real service's test, where its access token expires.
TEST_F(RequestTest, A401IsMetWithOneRefreshAndOneResend) {
  const std::string token = R"({"type":"token","text":"a"})";
  const std::string expired = R"({"type":"error","status":401})";
  const test::ScriptedReply answer = Reply(200, "data: " + token + "\n");
  const test::ScriptedReply cut = Reply(200, "data: " + token + "\ndata: " + expired + "\n");
  const struct {
    const char* method;
    const char* path;
    const char* body;
    std::string (*call)(Session&);
    test::ScriptedReply first, then;
    std::string outcome;
    const char* bearers;
    const char* log = "";
    bool refresh_refused = false;
  } cases[] = {
      {"GET", "/v1/games", "", [](Session& s) { return Describe(s.GetGames(true, 4000)); },
       Reply(401), Reply(200, kCatalogue), "g|G \xC3\xA9|i;plain|Plain;", kBoth},
      {"PATCH", "/v1/memory/g", R"({"spoilers_ok":false})",
       [](Session& s) { return std::to_string(s.PatchMemory("g", {.spoilers_ok = false})); },
       Reply(401), Reply(200), "1", kBoth, "INFO  memory patched for g"},
      {"PATCH", "/v1/memory/g", R"({"stage":"x"})",
       [](Session& s) { return std::to_string(s.PatchMemory("g", {.stage = "x"})); }, NoAnswer(),
       NoAnswer(), "0", kFirst, "WARN  memory patch failed (0)"},
      {"POST", "/v1/memory/a%20b/c%20/new-playthrough", "{}",
       [](Session& s) { return std::to_string(s.NewPlaythrough("a b/c%20")); }, Reply(401),
       Reply(200), "1", kBoth, "INFO  progress reset for a b/c%20"},
      {"POST", "/v1/chat", kAsked, Ask, Reply(401), answer, token + " <end> ", kBoth},
      {"POST", "/v1/chat", kAsked, Ask, NoAnswer(), answer, token + " <end> ", kBoth},
      {"POST", "/v1/chat", kAsked, Ask, cut, cut, token + " " + expired + " <end> ", kFirst},
      {"POST", "/v1/chat", kAsked, Ask, Reply(401), Reply(401), expired + " <end> ", kBoth},
      {"POST", "/v1/chat", kAsked, Ask, Reply(401), Reply(401),
       R"({"type":"error","message":"not signed in"} <end> )", kFirst, "", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path + std::string(" ") + c.outcome);
    Reset();
    fake_->Script(c.method, c.path, c.first);
    fake_->Script(c.method, c.path, c.then);
    Session& session = Start(true, c.refresh_refused);
    EXPECT_EQ(c.call(session), c.outcome);
    EXPECT_TRUE(Logged(c.log)) << log_.Text();
    std::string bearers;
    for (const auto& sent : RequestsTo(c.path)) {
      EXPECT_EQ(sent.body, c.body);
      EXPECT_EQ(sent.Header("Accept").value_or("-"), c.call == Ask ? "text/event-stream" : "-");
      bearers += sent.Header("Authorization").value_or("-") + ";";
    }
    EXPECT_EQ(bearers, c.bearers);
  }
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
}

}  // namespace
}  // namespace qn
