#include <windows.h>

#include <dwrite.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "app/app.h"
#include "app/messages.h"
#include "chat/chime.h"
#include "net/session_fixture.h"

namespace qn {
namespace {

using Lines = std::vector<std::wstring>;
using Strings = std::vector<std::string>;
using test::Gate;
using test::NoAnswer;
using test::Reply;
using test::ReplyChunk;
using test::ScriptedReply;

constexpr char kChat[] = "/v1/chat";
constexpr char kRefresh[] = "/v1/auth/refresh";
constexpr char kEndMark[] = "<end>";
constexpr char kDone[] = R"({"type":"done"})";
constexpr wchar_t kWaiting[] = L"1:\u2026";
const std::wstring kNoAnswer = L"1:" + std::wstring(kNoAnswerText);
constexpr wchar_t kUnreachable[] = L"2:(could not reach the service)";
constexpr wchar_t kReachNotice[] =
    L"2:Can't reach the service right now, so your question wasn't sent. It will work again "
    L"when the connection is back.";
constexpr wchar_t kSignInNotice[] =
    L"2:You're not signed in yet, so your question wasn't sent. Open Hintwick from the tray "
    L"icon (bottom-right of the taskbar) and sign in or create an account - then ask again, no "
    L"restart needed.";

std::string Token(const std::string& text) { return R"({"type":"token","text":")" + text + "\"}"; }

// With a gate, the events after the first wait for it. Such a stream ends at the close, not
// in chunks: Wine's WinHTTP reads ahead into the next chunk before it returns the first.
ScriptedReply Sse(const Strings& payloads, const std::shared_ptr<Gate>& hold_after_first = {}) {
  ScriptedReply reply;
  reply.headers = {{"Content-Type", "text/event-stream"}};
  reply.chunked = !hold_after_first;
  for (const std::string& payload : payloads) {
    const bool held = hold_after_first && !reply.chunks.empty();
    reply.chunks.push_back(
        ReplyChunk{"data: " + payload + "\n\n", held ? hold_after_first : nullptr, nullptr});
  }
  return reply;
}

// Counts what would reach the sound device. The clock moves on ten seconds per look, so the
// chime's rate limit never holds a play back.
int g_plays = 0;
ULONGLONG g_now = 0;
ULONGLONG WINAPI SteppingClock() { return g_now += 10000; }
BOOL WINAPI CountingPlayer(LPCWSTR sound, HMODULE, DWORD) {
  if (sound) ++g_plays;
  return TRUE;
}

std::wstring ClipboardText() {
  std::wstring text;
  if (!OpenClipboard(nullptr)) return L"<closed>";
  if (HANDLE data = GetClipboardData(CF_UNICODETEXT)) {
    if (const auto* units = static_cast<const wchar_t*>(GlobalLock(data))) {
      text = units;
      GlobalUnlock(data);
    }
  }
  CloseClipboard();
  return text;
}

class ChatTurnTest : public SessionFixture {
 protected:
  void SetUp() override {
    SessionFixture::SetUp();
    ASSERT_TRUE(SUCCEEDED(DWriteCreateFactory(DWRITE_FACTORY_TYPE_SHARED, __uuidof(IDWriteFactory),
                                              reinterpret_cast<IUnknown**>(dwrite_.put()))));
    SetChimeHooks(&SteppingClock, &CountingPlayer);
    BuildChime(40);
    g_plays = 0;
  }
  void TearDown() override {
    app_.reset();
    FreeChime();
    SetChimeHooks(nullptr, nullptr);
    SessionFixture::TearDown();
  }

  // A fresh service, data directory, log and application for one row of a table.
  void ResetAll() {
    app_.reset();
    Reset();
    events_.clear();
    g_plays = 0;
  }

  // Its session started against the fake (signed in as "a1" when asked, `next_refresh`
  // answering the refresh after that), its chat view ready, over the game "g". Without
  // `start` the session has never tried to sign in.
  App& MakeApp(bool signed_in = true, bool start = true,
               const ScriptedReply* next_refresh = nullptr) {
    if (signed_in) {
      TokenStore::Save("r0");
      fake_->Script("POST", kRefresh, Reply(200, R"({"access_token":"a1"})"));
      if (next_refresh) fake_->Script("POST", kRefresh, *next_refresh);
    }
    WriteConfig();
    app_ = std::make_unique<App>(GetModuleHandleW(nullptr));
    EXPECT_TRUE(app_->Init());
    if (start) {
      EXPECT_EQ(app_->ServiceSession().Start(), signed_in);
    }
    app_->Shell().chat_view_ready = app_->View().Init(dwrite_.get());
    EXPECT_TRUE(app_->Shell().chat_view_ready);
    app_->Shell().game_key = "g";
    return *app_;
  }

  // Dispatches everything that arrives until the chat event `wanted` has been handled,
  // noting each chat event (kEndMark for the end mark) in the order the window gets them.
  bool PumpUntil(const std::string& wanted = kEndMark) {
    const ULONGLONG deadline = GetTickCount64() + 20000;
    MSG message;
    while (GetTickCount64() < deadline) {
      if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
        continue;
      }
      const bool chat = message.message == kMsgChatEvent.id;
      if (chat) {
        events_.push_back(message.wParam ? *reinterpret_cast<std::string*>(message.wParam)
                                         : kEndMark);
      }
      DispatchMessageW(&message);
      if (chat && events_.back() == wanted) return true;
    }
    return false;
  }

  // Waits for the session's worker, then counts the chat events still queued. A worker that
  // posted anything after its end mark, or that ran at all, shows here.
  size_t ChatEventsLeft() {
    app_->ServiceSession().Shutdown();
    size_t left = 0;
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
      if (message.message == kMsgChatEvent.id) ++left;
      DispatchMessageW(&message);
    }
    return left;
  }

  void Ask(const std::wstring& prompt = L"q") {
    app_->SendPrompt(prompt);
    ASSERT_TRUE(PumpUntil());
    EXPECT_EQ(ChatEventsLeft(), 0u);
  }

  // The conversation after the greeting, one "role:text" line per message.
  Lines Conversation() const {
    Lines lines;
    for (const ChatMessage& message : app_->View().Messages()) {
      if (message.raw != kHintText)
        lines.push_back(std::to_wstring(message.role) + L":" + message.raw);
    }
    return lines;
  }

  std::vector<test::RecordedRequest> RequestsTo(const std::string& path) const {
    std::vector<test::RecordedRequest> found;
    for (auto& request : fake_->Requests()) {
      if (request.path == path) found.push_back(request);
    }
    return found;
  }

  ComPtr<IDWriteFactory> dwrite_;
  std::unique_ptr<App> app_;
  Strings events_;
};

TEST_F(ChatTurnTest, EachAnswerEventChangesTheViewInArrivalOrder) {
  const std::string memory = R"({"type":"memory","stage":"act 2","changes":["a","b \u00e9"]})";
  const std::string redacted = R"({"type":"redacted","message":"Not yet."})";
  const struct {
    const char* what;
    Strings events;
    Lines conversation;
    std::wstring status = L"";
  } cases[] = {
      {"tokens", {Token("a "), Token("**b**"), kDone, Token("after")}, {L"1:a **b**"}},
      {"nothing came", {kDone}, {kNoAnswer}},
      {"no done before the end", {Token("part")}, {L"1:part"}},
      {"discard", {Token("old"), R"({"type":"discard"})", Token("new"), kDone}, {L"1:new"}},
      // Later tokens are dropped: the redaction stands.
      {"redacted", {Token("spoiler"), redacted, Token("late"), kDone}, {L"1:Not yet."}},
      {"redacted bare",
       {Token("spoiler"), R"({"type":"redacted"})"},
       {L"1:I don't have anything on that."}},
      {"memory",
       {Token("x"), memory, kDone},
       {L"1:x", L"2:Noted \u2014 a; b \u00e9"},
       L"g \u2014 act 2"},
      {"memory, nothing in it",
       {Token("x"), R"({"type":"memory","stage":"","changes":[]})", kDone},
       {L"1:x"}},
      {"error",
       {Token("part"), R"({"type":"error","message":"busy","status":503})", Token("z")},
       {L"1:part", L"2:(busy, http 503)"}},
      {"error, status only",
       {R"({"type":"error","status":503})"},
       {kNoAnswer, L"2:(something went wrong, http 503)"}},
      {"warning",
       {Token("a"), R"({"type":"warning","message":"x"})", Token("b")},
       {L"1:a", L"2:(x)"}},
      {"unusable",
       {Token("a"), R"({"type":"Token","text":"b"})", R"({"text":"c"})", "not json",
        R"({"type":"token"})", R"({"type":"other"})", kDone},
       {L"1:a"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ResetAll();
    fake_->Script("POST", kChat, Sse(c.events));
    MakeApp();
    Ask();
    Strings posted = c.events;
    posted.push_back(kEndMark);
    EXPECT_EQ(events_, posted);
    EXPECT_EQ(Conversation(), c.conversation);
    EXPECT_EQ(app_->View().StatusLine(), c.status);
    EXPECT_FALSE(app_->View().Waiting());
  }
}

TEST_F(ChatTurnTest, ATransportFailureIsRetriedOnceAfterARefresh) {
  const std::string body = "{\"game\":\"g\",\"message\":\"caf\xC3\xA9 \\\"x\\\"\"}";
  const struct {
    const char* what;
    ScriptedReply refresh;
    std::vector<ScriptedReply> chat;
    size_t attempts;
    Lines conversation;
  } cases[] = {
      {"retry succeeds",
       Reply(200, R"({"access_token":"a2"})"),
       {NoAnswer(), Sse({Token("hi"), kDone})},
       2,
       {L"1:hi"}},
      {"retry fails",
       Reply(200, R"({"access_token":"a2"})"),
       {NoAnswer(), NoAnswer()},
       2,
       {kNoAnswer, kUnreachable}},
      {"refresh refused", Reply(401), {NoAnswer()}, 1, {kNoAnswer, kUnreachable}},
      {"refresh unanswered", NoAnswer(), {NoAnswer()}, 1, {kNoAnswer, kUnreachable}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ResetAll();
    for (const ScriptedReply& reply : c.chat) fake_->Script("POST", kChat, reply);
    MakeApp(true, true, &c.refresh);
    Ask(L"caf\u00e9 \"x\"");
    const auto sent = RequestsTo(kChat);
    ASSERT_EQ(sent.size(), c.attempts);
    for (const auto& request : sent) EXPECT_EQ(request.body, body);
    if (sent.size() == 2) {
      EXPECT_EQ(sent[1].Header("Authorization"), "Bearer a2");
    }
    EXPECT_EQ(RequestsTo(kRefresh).size(), 2u);
    EXPECT_EQ(Conversation(), c.conversation);
    EXPECT_EQ(std::count(events_.begin(), events_.end(), kEndMark), 1);
    EXPECT_EQ(events_.back(), kEndMark);
  }
}

TEST_F(ChatTurnTest, APromptWhileSignedOutIsRefusedWithoutAnyRequest) {
  const struct {
    const char* what;
    bool start;
    ScriptedReply login;
    const wchar_t* notice;
    const char* logged;
  } cases[] = {
      {"no error yet", false, Reply(401), kSignInNotice, "not signed in"},
      {"wrong password", true, Reply(401), kSignInNotice, "wrong email or password"},
      {"service unreachable", true, NoAnswer(), kReachNotice, "cannot reach the service"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ResetAll();
    fake_->Script("POST", "/v1/auth/login", c.login);
    App& app = MakeApp(false, c.start);
    std::string error;
    if (c.start) {
      EXPECT_NE(app.ServiceSession().SignIn("p@example.com", "secret"), ServiceFailure::kNone);
    }
    app.View().SetText(kRoleAnswer, L"earlier");
    app.SendPrompt(L"q");
    EXPECT_EQ(Conversation(), (Lines{L"1:earlier", c.notice}));
    EXPECT_TRUE(Logged(std::string("WARN  prompt not sent: ") + c.logged + "\r\n"));
    EXPECT_EQ(ChatEventsLeft(), 0u);
    EXPECT_TRUE(RequestsTo(kChat).empty());
  }
}

TEST_F(ChatTurnTest, ATokenLostBeforeTheWorkerStartsEndsTheTurnWithANotice) {
  MakeApp();
  app_->View().BeginAnswer();
  app_->ServiceSession().ClearTokens();
  app_->ServiceSession().StreamChatAsync("g", "q", app_->MessageWindow(), kMsgChatEvent);
  ASSERT_TRUE(PumpUntil());
  EXPECT_EQ(events_, (Strings{R"({"type":"error","message":"not signed in"})", kEndMark}));
  EXPECT_EQ(Conversation(), (Lines{kNoAnswer, L"2:(not signed in)"}));
  EXPECT_TRUE(RequestsTo(kChat).empty());
}

TEST_F(ChatTurnTest, AQuestionAskedWhileATurnRunsIsDroppedAndTheTurnGoesOn) {
  const auto release = std::make_shared<Gate>();
  fake_->Script("POST", kChat, Sse({Token("A"), Token("B"), kDone}, release));
  App& app = MakeApp();
  app.SendPrompt(L"first");
  ASSERT_TRUE(PumpUntil(Token("A")));
  app.SendPrompt(L"second");
  EXPECT_TRUE(Logged("WARN  a stream is already running; ignoring\r\n"));
  EXPECT_EQ(Conversation(), (Lines{L"1:A", kWaiting}));
  release->Open();
  ASSERT_TRUE(PumpUntil());
  EXPECT_EQ(ChatEventsLeft(), 0u);
  EXPECT_EQ(events_, (Strings{Token("A"), Token("B"), kDone, kEndMark}));
  EXPECT_EQ(Conversation(), (Lines{L"1:A", L"1:B"}));
  const auto sent = RequestsTo(kChat);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].body, R"({"game":"g","message":"first"})");
}

TEST_F(ChatTurnTest, TheEndChimesOnlyForAnAnswerThatFinishedBehindAClosedDrawer) {
  const struct {
    const char* what;
    bool pending, open, sound, drawer_window;
    int plays;
    bool idle_timer;
  } cases[] = {
      {"closed mid-answer", true, false, true, true, 1, true},
      {"reopened before the end", true, true, true, true, 0, false},
      {"sound off", true, false, false, true, 0, true},
      {"closed before the question", false, false, true, true, 0, true},
      {"no drawer window", true, false, true, false, 1, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ResetAll();
    fake_->Script("POST", kChat, Sse({Token("a"), kDone}));
    App& app = MakeApp();
    app.Shell() = {c.open, c.drawer_window, true, c.pending, c.sound, "g"};
    Ask();
    EXPECT_EQ(g_plays, c.plays);
    EXPECT_FALSE(app.Shell().chime_pending);
    EXPECT_EQ(KillTimer(app.MessageWindow(), 2) != FALSE, c.idle_timer);
  }
}

TEST_F(ChatTurnTest, EventsBeforeTheViewIsReadyAreDroppedAndTheEndOnlyClearsTheChime) {
  App& app = MakeApp();
  app.View().BeginAnswer();
  app.Shell().chat_view_ready = false;
  app.Shell().chime_pending = true;
  app.Shell().drawer_open = true;
  for (const std::string& payload : {Token("x"), std::string(R"({"type":"error"})")}) {
    auto event = std::make_unique<std::string>(payload);
    ASSERT_TRUE(PostMessageW(app.MessageWindow(), kMsgChatEvent.id,
                             reinterpret_cast<WPARAM>(event.release()), 0));
  }
  ASSERT_TRUE(PostMessageW(app.MessageWindow(), kMsgChatEvent.id, 0, 0));
  ASSERT_TRUE(PumpUntil());
  EXPECT_EQ(Conversation(), Lines{kWaiting});
  EXPECT_TRUE(app.View().Waiting());
  EXPECT_FALSE(app.Shell().chime_pending);
}

TEST_F(ChatTurnTest, CopyPutsTheRawAnswerOnTheClipboardAndAnEmptyAnswerTouchesNothing) {
  App& app = MakeApp();
  app.View().SetText(kRoleAnswer, L"a **b** \u00e9");
  app.View().SetText(kRoleNotice, L"n");
  app.CopyAnswer();
  EXPECT_EQ(ClipboardText(), L"a **b** \u00e9");
  EXPECT_EQ(Conversation(), (Lines{L"1:a **b** \u00e9", L"2:n", L"2:Answer copied."}));

  app.View().Clear();
  app.CopyAnswer();
  EXPECT_EQ(ClipboardText(), L"a **b** \u00e9");
  EXPECT_TRUE(app.View().Messages().empty());
}

TEST_F(ChatTurnTest, TheStatusLineNamesTheGameFromTheCatalogueAtHand) {
  const struct {
    const char* what;
    bool signed_in;
    const char* games_json;
    std::wstring status;
  } cases[] = {
      {"signed out", false, nullptr,
       L"Not signed in \u2014 open Hintwick from the tray icon to sign in or create an account."},
      {"titled", true, R"([{"slug":"g","display_name":"G \u00e9"}])",
       L"G \u00e9 \u2014 checking\u2026"},
      {"not listed", true, R"([{"slug":"h","title":"H"}])", L"g \u2014 checking\u2026"},
      {"first match untitled", true, R"([{"slug":"g","title":""},{"slug":"g","title":"G"}])",
       L"g \u2014 checking\u2026"},
      {"no catalogue", true, nullptr, L"g \u2014 checking\u2026"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ResetAll();
    if (c.games_json) test::WriteFileBytes(StatePath(L"games.json"), c.games_json);
    App& app = MakeApp(c.signed_in);
    app.Shell().chat_view_ready = false;
    app.RefreshStatusLine();
    EXPECT_EQ(app.View().StatusLine(), L"");
    app.Shell().chat_view_ready = true;
    app.RefreshStatusLine();
    EXPECT_EQ(app.View().StatusLine(), c.status);
    EXPECT_TRUE(RequestsTo("/v1/games").empty());
  }
}

TEST_F(ChatTurnTest, AProgressSnapshotForTheCurrentGameSetsTheStatusLine) {
  const struct {
    const char* what;
    const char* key;
    bool signed_in;
    const char* title;  // null: not in the catalogue
    bool has_index, stale, loaded;
    const char* stage;
    std::wstring status;
    bool ready = true;
  } cases[] = {
      {"stage", "g", true, "G \xC3\xA9", true, false, true, "act 2", L"G \u00e9 \u2014 act 2"},
      {"no stage", "g", true, "G", true, false, true, "",
       L"G \u2014 progress not set, gated to the start"},
      {"no record", "g", true, "G", true, false, false, "",
       L"G \u2014 offline, using what is cached"},
      {"stale", "g", true, "G", true, true, false, "",
       L"G \u2014 offline, using what is cached  (offline)"},
      {"no wiki, stale", "g", true, "G", false, true, false, "",
       L"G \u2014 no wiki yet, answering from general knowledge  (offline)"},
      {"untitled", "g", true, "", false, false, false, "",
       L"g \u2014 no wiki yet, answering from general knowledge"},
      {"unknown game", "g", true, nullptr, false, false, false, "",
       L"g \u2014 no wiki yet, answering from general knowledge"},
      {"signed out", "g", false, nullptr, false, false, false, "", L"before"},
      {"another game", "h", true, "H", true, false, true, "x", L"before"},
      {"view not ready", "g", true, "G", true, false, true, "x", L"before", false},
  };
  App& app = MakeApp();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    app.View().SetStatusLine(L"before");
    app.Shell().chat_view_ready = c.ready;
    auto snapshot = std::make_unique<GameLookupResult>();
    snapshot->key = c.key;
    snapshot->signed_in = c.signed_in;
    snapshot->known = c.title != nullptr;
    snapshot->display_name = c.title ? c.title : "";
    snapshot->has_index = c.has_index;
    snapshot->catalogue_stale = c.stale;
    snapshot->memory_loaded = c.loaded;
    snapshot->stage = c.stage;
    ASSERT_TRUE(PostMessageW(app.MessageWindow(), kMsgProgressSnapshot.id,
                             reinterpret_cast<WPARAM>(snapshot.release()), 0));
    EXPECT_EQ(ChatEventsLeft(), 0u);
    EXPECT_EQ(app.View().StatusLine(), c.status);
  }
  EXPECT_TRUE(Logged("INFO  discarding a progress snapshot for 'h'; current game is 'g'\r\n"));
}

}  // namespace
}  // namespace qn
