#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/messages.h"
#include "core/data_dir.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/utf.h"
#include "net/session.h"
#include "net/token_store.h"
#include "support/fake_service.h"
#include "support/test_files.h"
#include "net/session_fixture.h"

namespace qn {
namespace {

constexpr char kCatalogue[] =
    "[{\"slug\":\"g\",\"display_name\":\"G \\u00e9\",\"has_index\":true},\r\n"
    " {\"slug\":\"plain\",\"title\":\"Plain\"}]\r\n";

using test::NoAnswer;
using test::Reply;

std::string Describe(const std::vector<GameEntry>& games) {
  std::string out;
  for (const GameEntry& g : games)
    out += g.slug + "|" + g.display_name + (g.has_index ? "|i;" : ";");
  return out;
}

// The receiving end of the lookup: a message-only window that takes ownership of each result.
class ResultWindow {
 public:
  ResultWindow() {
    WNDCLASSW window_class{};
    window_class.lpfnWndProc = &ResultWindow::Procedure;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = L"HintwickLookupTestWindow";
    RegisterClassW(&window_class);
    window_.reset(CreateWindowExW(0, window_class.lpszClassName, L"", 0, 0, 0, 0, 0, HWND_MESSAGE,
                                  nullptr, window_class.hInstance, nullptr));
    SetWindowLongPtrW(window_.get(), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  }
  HWND get() const { return window_.get(); }
  // Pumps until `count` results have arrived or the time is up.
  const std::vector<std::unique_ptr<GameLookupResult>>& WaitFor(size_t count,
                                                                DWORD timeout_ms = 15000) {
    const ULONGLONG deadline = GetTickCount64() + timeout_ms;
    while (results_.size() < count && GetTickCount64() < deadline) {
      MsgWaitForMultipleObjects(0, nullptr, FALSE, 20, QS_ALLINPUT);
      Drain();
    }
    return results_;
  }
  void Drain() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
  }

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    if (message != kMsgProgressSnapshot.id) return DefWindowProcW(window, message, wparam, lparam);
    auto* self = reinterpret_cast<ResultWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    self->results_.push_back(AdoptPosted(kMsgProgressSnapshot, wparam));
    return 0;
  }

  UniqueHwnd window_;
  std::vector<std::unique_ptr<GameLookupResult>> results_;
};

class ProgressTest : public SessionFixture {
 protected:
  std::vector<test::RecordedRequest> RequestsTo(const std::string& method) const {
    std::vector<test::RecordedRequest> found;
    for (auto& request : fake_->Requests()) {
      if (request.method == method && request.path != "/v1/auth/refresh") found.push_back(request);
    }
    return found;
  }
  std::optional<std::string> GamesFile() const {
    return test::ReadFileBytes(StatePath(L"games.json"));
  }
};

TEST_F(ProgressTest, ALiveCatalogueIsKeptAndWrittenToGamesJsonAsReceived) {
  fake_->Script("GET", "/v1/games", Reply(200, kCatalogue));
  Session& session = Start();
  const std::vector<GameEntry> games = session.GetGames(true, 4000);
  EXPECT_EQ(Describe(games), "g|G \xC3\xA9|i;plain|Plain;");
  EXPECT_FALSE(session.IsCatalogueStale());
  EXPECT_EQ(GamesFile(), kCatalogue);
  const auto gets = RequestsTo("GET");
  ASSERT_EQ(gets.size(), 1u);
  EXPECT_EQ(gets[0].path, "/v1/games");
  EXPECT_EQ(gets[0].body, "");
  EXPECT_EQ(gets[0].Header("Authorization"), "Bearer a1");
  EXPECT_EQ(gets[0].Header("Content-Type"), "application/json");

  // Without asking, the table in memory is the answer and it is not stale.
  EXPECT_EQ(Describe(session.GetGames(false, 4000)), Describe(games));
  EXPECT_FALSE(session.IsCatalogueStale());
  EXPECT_EQ(RequestsTo("GET").size(), 1u);
}

TEST_F(ProgressTest, AFailedCatalogueFallsBackToMemoryThenGamesJsonAndIsStale) {
  const std::string cached = R"([{"slug":"old","title":"Old","has_index":true}])";
  const struct {
    const char* what;
    test::ScriptedReply failure;
  } failures[] = {
      {"server error", Reply(500, kCatalogue)},
      {"wrapped in an object", Reply(200, std::string("{\"games\":") + kCatalogue + "}")},
      {"empty array", Reply(200, "[]")},
      {"no answer", NoAnswer()},
      {"unauthorized", Reply(401)},
  };
  for (const auto& f : failures) {
    // The table in memory wins over the file, and the file is left as it was.
    Reset();
    fake_->Script("GET", "/v1/games", Reply(200, kCatalogue));
    fake_->Script("GET", "/v1/games", f.failure);
    Session& warm = Start();
    ASSERT_EQ(warm.GetGames(true, 4000).size(), 2u) << f.what;
    test::WriteFileBytes(StatePath(L"games.json"), cached);
    EXPECT_EQ(Describe(warm.GetGames(true, 4000)), "g|G \xC3\xA9|i;plain|Plain;") << f.what;
    EXPECT_TRUE(warm.IsCatalogueStale()) << f.what;
    EXPECT_EQ(GamesFile(), cached) << f.what;
    EXPECT_TRUE(Logged("WARN  games lookup unavailable; falling back to the cached table"))
        << f.what;

    // A fresh session has only the file.
    Reset();
    fake_->Script("GET", "/v1/games", f.failure);
    test::WriteFileBytes(StatePath(L"games.json"), cached);
    Session& cold = Start();
    EXPECT_EQ(Describe(cold.GetGames(true, 4000)), "old|Old|i;") << f.what;
    EXPECT_TRUE(cold.IsCatalogueStale()) << f.what;
    EXPECT_EQ(GamesFile(), cached) << f.what;
  }
}

TEST_F(ProgressTest, NoCatalogueAnywhereIsAnEmptyStaleTable) {
  fake_->Script("GET", "/v1/games", Reply(503));
  Session& session = Start();
  EXPECT_TRUE(session.GetGames(true, 4000).empty());
  EXPECT_TRUE(session.IsCatalogueStale());
  EXPECT_FALSE(GamesFile());
}

TEST_F(ProgressTest, GetMemoryReadsTheRecordOrGivesDefaults) {
  const std::string record =
      R"({"stage":"act 2","stage_ordinal":3,"directness":"answer","spoilers_ok":true,)"
      R"("revision":12})";
  const struct {
    const char* what;
    test::ScriptedReply reply;
    MemoryRecord expected;
  } cases[] = {
      {"found", Reply(200, record), {true, "act 2", 3, "answer", true, 12}},
      {"fresh record", Reply(200, "{}"), {true, "", 0, "", false, 0}},
      {"unknown game", Reply(404, record), {}},
      {"unauthorized", Reply(401, record), {}},
      {"no answer", NoAnswer(), {}},
  };
  for (const auto& c : cases) {
    Reset();
    fake_->Script("GET", "/v1/memory/g", c.reply);
    Session& session = Start();
    EXPECT_EQ(session.GetMemory("g", 4000), c.expected) << c.what;
    const auto gets = RequestsTo("GET");
    ASSERT_EQ(gets.size(), 1u) << c.what;
    EXPECT_EQ(gets[0].path, "/v1/memory/g");
    EXPECT_EQ(gets[0].Header("Authorization"), "Bearer a1");
  }
}

// The path layer escapes only what may not appear in a request line (the space); the slug
// itself is never encoded, so its slash and its "%20" reach the service unchanged.
TEST_F(ProgressTest, TheSlugGoesIntoThePathUnencoded) {
  Session& session = Start();
  session.GetMemory("a b/c%20", 4000);
  session.PatchMemory("a b/c%20", {.stage = "x"});
  session.NewPlaythrough("a b/c%20");
  const auto requests = fake_->Requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_EQ(requests[1].path, "/v1/memory/a%20b/c%20");
  EXPECT_EQ(requests[2].path, "/v1/memory/a%20b/c%20");
  EXPECT_EQ(requests[3].path, "/v1/memory/a%20b/c%20/new-playthrough");
}

TEST_F(ProgressTest, ChangesToTheRecordReportTheirOutcome) {
  const struct {
    const char* method;
    const char* path;
    const char* body;
    bool (*call)(Session&);
    std::string done;
    std::string failed;
  } operations[] = {
      {"PATCH", "/v1/memory/g", R"({"spoilers_ok":false})",
       [](Session& s) { return s.PatchMemory("g", {.spoilers_ok = false}); },
       "INFO  memory patched for g", "WARN  memory patch failed ("},
      {"POST", "/v1/memory/g/new-playthrough", "{}",
       [](Session& s) { return s.NewPlaythrough("g"); }, "INFO  progress reset for g",
       "WARN  new playthrough failed ("},
  };
  const std::pair<test::ScriptedReply, int> outcomes[] = {
      {Reply(200), 200}, {Reply(401), 401}, {Reply(409), 409}, {Reply(500), 500}, {NoAnswer(), 0}};
  for (const auto& op : operations) {
    for (const auto& [reply, status] : outcomes) {
      Reset();
      fake_->Script(op.method, op.path, reply);
      Session& session = Start();
      EXPECT_EQ(op.call(session), status == 200) << op.path << " " << status;
      const std::string line = status == 200 ? op.done : op.failed + std::to_string(status) + ")";
      EXPECT_TRUE(Logged(line)) << line << "\n" << LogText();
      const auto sent = RequestsTo(op.method);
      ASSERT_EQ(sent.size(), 1u) << op.path;
      EXPECT_EQ(sent[0].path, op.path);
      EXPECT_EQ(sent[0].body, op.body);
      EXPECT_EQ(sent[0].Header("Authorization"), "Bearer a1");
      EXPECT_EQ(sent[0].Header("Content-Type"), "application/json");
    }
  }
}

TEST_F(ProgressTest, NothingIsSentWithoutATokenOrWithoutAChange) {
  EXPECT_TRUE(Start().PatchMemory("g", {}));
  EXPECT_EQ(fake_->RequestCount(), 1u);  // the start's refresh only
  Reset();
  Session& session = Start(false);
  EXPECT_EQ(session.GetMemory("g", 4000), MemoryRecord());
  EXPECT_FALSE(session.PatchMemory("g", {.spoilers_ok = false}));
  EXPECT_FALSE(session.NewPlaythrough("g"));
  EXPECT_EQ(fake_->RequestCount(), 0u);
}

TEST_F(ProgressTest, LookupPostsWhatTheServiceKnowsOfTheGame) {
  const std::string record = R"({"stage":"act 2","stage_ordinal":3,"directness":"coach"})";
  const struct {
    const char* what;
    bool signed_in;
    std::string key;
    bool catalogue_live;
    bool known, has_index, stale, memory_loaded;
    std::string display_name, stage;
  } cases[] = {
      {"indexed game", true, "g", true, true, true, false, true, "G \xC3\xA9", "act 2"},
      {"game without index", true, "plain", true, true, false, false, false, "Plain", ""},
      {"unknown game", true, "G", true, false, false, false, false, "", ""},
      {"catalogue from games.json", true, "g", false, true, true, true, false, "G \xC3\xA9", ""},
      {"not signed in", false, "g", true, false, false, false, false, "", ""},
  };
  for (const auto& c : cases) {
    Reset();
    fake_->Script("GET", "/v1/games", c.catalogue_live ? Reply(200, kCatalogue) : Reply(503));
    fake_->Script("GET", "/v1/memory/g", Reply(200, record));
    test::WriteFileBytes(StatePath(L"games.json"), kCatalogue);
    Session& session = Start(c.signed_in);
    ResultWindow window;
    session.LookupGameAsync(c.key, window.get(), kMsgProgressSnapshot);
    const auto& results = window.WaitFor(1);
    ASSERT_EQ(results.size(), 1u) << c.what;
    const GameLookupResult& r = *results[0];
    EXPECT_EQ(r.key, c.key) << c.what;
    EXPECT_EQ(r.signed_in, c.signed_in) << c.what;
    EXPECT_EQ(r.known, c.known) << c.what;
    EXPECT_EQ(r.display_name, c.display_name) << c.what;
    EXPECT_EQ(r.has_index, c.has_index) << c.what;
    EXPECT_EQ(r.catalogue_stale, c.stale) << c.what;
    EXPECT_EQ(r.memory_loaded, c.memory_loaded) << c.what;
    EXPECT_EQ(r.stage, c.stage) << c.what;
    EXPECT_EQ(r.stage_ordinal, c.memory_loaded ? 3 : 0) << c.what;
    EXPECT_EQ(r.directness, c.memory_loaded ? "coach" : "") << c.what;
    size_t memory_reads = 0;
    for (const auto& request : RequestsTo("GET")) memory_reads += request.path == "/v1/memory/g";
    EXPECT_EQ(memory_reads, c.memory_loaded ? 1u : 0u) << c.what;
  }
}

TEST_F(ProgressTest, ALookupWhileOneRunsStartsNothingAndPostsNothingExtra) {
  auto release = std::make_shared<test::Gate>();
  test::ScriptedReply held = Reply(200);
  held.chunks = {{kCatalogue, release, nullptr}};
  fake_->Script("GET", "/v1/games", held);
  Session& session = Start();
  ResultWindow window;
  session.LookupGameAsync("plain", window.get(), kMsgProgressSnapshot);
  session.LookupGameAsync("g", window.get(), kMsgProgressSnapshot);
  release->Open();
  ASSERT_EQ(window.WaitFor(1).size(), 1u);
  session_.reset();  // joins the worker, so every post it made is queued by now
  window.Drain();
  const auto& results = window.WaitFor(1);
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results[0]->key, "plain");
  EXPECT_EQ(RequestsTo("GET").size(), 1u);
}

TEST_F(ProgressTest, ALookupRunsAgainOnceTheLastHasReported) {
  fake_->Script("GET", "/v1/games", Reply(200, kCatalogue));
  Session& session = Start();
  ResultWindow window;
  session.LookupGameAsync("plain", window.get(), kMsgProgressSnapshot);
  ASSERT_EQ(window.WaitFor(1).size(), 1u);
  // The worker clears its flag just after posting, so a call right away may still be dropped.
  for (int tries = 0; tries < 10 && window.WaitFor(2, 0).size() < 2; ++tries) {
    session.LookupGameAsync("g", window.get(), kMsgProgressSnapshot);
    window.WaitFor(2, 2000);
  }
  session_.reset();
  window.Drain();
  const auto& results = window.WaitFor(2, 0);
  ASSERT_EQ(results.size(), 2u);
  EXPECT_EQ(results[1]->key, "g");
  EXPECT_TRUE(results[1]->known);
}

TEST_F(ProgressTest, AResultThatCannotBePostedIsDroppedWithAWarning) {
  fake_->Script("GET", "/v1/games", Reply(200, kCatalogue));
  Session& session = Start();
  HWND gone = nullptr;
  {
    ResultWindow window;
    gone = window.get();
  }
  session.LookupGameAsync("g", gone, kMsgProgressSnapshot);
  session_.reset();
  EXPECT_TRUE(Logged("WARN  PostMessageW failed: 1400")) << LogText();
}

}  // namespace
}  // namespace qn
