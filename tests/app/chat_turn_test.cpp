// Whole chat turns through the application object against the fake service. What each event
// does is tabled natively next to the turn's rules; these show the pieces wired together.
#include <windows.h>

#include <dwrite.h>

#include <gtest/gtest.h>

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
using test::Reply;
using test::ScriptedReply;

constexpr char kChat[] = "/v1/chat";

std::string Token(const std::string& text) { return R"({"type":"token","text":")" + text + "\"}"; }

// With a gate, the events after the first wait for it. Such a stream ends at the close, not
// in chunks: Wine's WinHTTP reads ahead into the next chunk before it returns the first.
ScriptedReply Sse(const std::vector<std::string>& payloads,
                  const std::shared_ptr<test::Gate>& hold_after_first = {}) {
  ScriptedReply reply;
  reply.headers = {{"Content-Type", "text/event-stream"}};
  reply.chunked = !hold_after_first;
  for (const std::string& payload : payloads) {
    const bool held = hold_after_first && !reply.chunks.empty();
    reply.chunks.push_back({"data: " + payload + "\n\n", held ? hold_after_first : nullptr, {}});
  }
  return reply;
}

// Counts what would reach the sound device; the clock jumps so the rate limit never holds one.
int g_plays = 0, g_now = 0;
ULONGLONG WINAPI SteppingClock() { return g_now += 10000; }
BOOL WINAPI CountingPlayer(LPCWSTR sound, HMODULE, DWORD) {
  if (sound) ++g_plays;
  return TRUE;
}

std::wstring ClipboardText() {
  const OpenedClipboard clipboard(nullptr);
  HANDLE data = clipboard ? GetClipboardData(CF_UNICODETEXT) : nullptr;
  const GlobalLockScope<const wchar_t> units(data);
  return units ? units.get() : L"<none>";
}

class ChatTurnTest : public SessionFixture {
 protected:
  void SetUp() override {
    SessionFixture::SetUp();
    ASSERT_HRESULT_SUCCEEDED(DWriteCreateFactory(DWRITE_FACTORY_TYPE_SHARED,
                                                 __uuidof(IDWriteFactory),
                                                 reinterpret_cast<IUnknown**>(dwrite_.put())));
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

  // Started against the fake (signed in as "a1" when asked), its view ready, over game "g".
  App& MakeApp(bool signed_in = true) {
    if (signed_in) {
      TokenStore::Save("r0");
      fake_->Script("POST", "/v1/auth/refresh", Reply(200, R"({"access_token":"a1"})"));
    }
    WriteConfig();
    app_ = std::make_unique<App>(GetModuleHandleW(nullptr));
    EXPECT_TRUE(app_->Init());
    EXPECT_EQ(app_->ServiceSession().Start(), signed_in);
    app_->Shell().chat_view_ready = app_->View().Init(dwrite_.get());
    app_->Shell().game_key = "g";
    return *app_;
  }

  // Dispatches what arrives until the chat event `wanted` ("<end>" for the end mark) has been
  // handled.
  bool PumpUntil(const std::string& wanted = "<end>") {
    MSG message;
    for (const ULONGLONG deadline = GetTickCount64() + 20000; GetTickCount64() < deadline;) {
      if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        MsgWaitForMultipleObjects(0, nullptr, FALSE, 50, QS_ALLINPUT);
        continue;
      }
      const auto* event = reinterpret_cast<const std::string*>(message.wParam);
      const bool found =
          message.message == kMsgChatEvent.id && (event ? *event : "<end>") == wanted;
      DispatchMessageW(&message);
      if (found) return true;
    }
    return false;
  }

  // The conversation after the greeting, one "role:text" line per message.
  Lines Conversation() const {
    Lines lines;
    for (const ChatMessage& m : app_->Chat().Messages()) {
      if (m.raw != kHintText) lines.push_back(std::to_wstring(m.role) + L":" + m.raw);
    }
    return lines;
  }

  ComPtr<IDWriteFactory> dwrite_;
  std::unique_ptr<App> app_;
};

TEST_F(ChatTurnTest, AStreamedAnswerBehindAClosedDrawerLandsChimesAndCopies) {
  const std::string memory = R"({"type":"memory","stage":"act 2","changes":["found the key"]})";
  fake_->Script("POST", kChat, Sse({Token("Go **north**"), memory, R"({"type":"done"})"}));
  test::WriteFileBytes(StatePath(L"games.json"), R"([{"slug":"g","display_name":"G \u00e9"}])");
  App& app = MakeApp();
  app.RefreshStatusLine();
  EXPECT_EQ(app.Chat().StatusLine(), L"G \u00e9 \u2014 checking\u2026");
  app.Shell() = {false, true, true, true, true, "g"};  // closed mid-answer, sound on

  app.SendPrompt(L"caf\u00e9 \"x\"");
  ASSERT_TRUE(PumpUntil());
  EXPECT_EQ(RequestsTo(kChat).at(0).body, "{\"game\":\"g\",\"message\":\"caf\xC3\xA9 \\\"x\\\"\"}");
  EXPECT_EQ(Conversation(), (Lines{L"1:Go **north**", L"2:Noted \u2014 found the key"}));
  EXPECT_EQ(g_plays, 1);
  EXPECT_FALSE(app.Shell().chime_pending);
  EXPECT_TRUE(KillTimer(app.MessageWindow(), 2)) << "the idle release is armed";

  app.CopyAnswer();
  EXPECT_EQ(ClipboardText(), L"Go **north**");
  EXPECT_EQ(Conversation().back(), L"2:Answer copied.");
  app.Chat().Clear();
  app.CopyAnswer();
  EXPECT_TRUE(app.Chat().Messages().empty()) << "nothing to copy, nothing said";

  auto other = std::make_unique<GameLookupResult>();
  other->key = "h";
  app.OnProgressSnapshot(other.release());
  EXPECT_TRUE(Logged("INFO  discarding a progress snapshot for 'h'; current game is 'g'\r\n"));
  EXPECT_EQ(app.Chat().StatusLine(), L"g \u2014 act 2") << "from the memory event";
}

// What the worker still posts while the application shuts down is freed, not applied: no
// chime, no timer on the way out.
TEST_F(ChatTurnTest, ShutdownMidAnswerStopsTheTurnAndOnlyFreesItsLastEvents) {
  const auto release = std::make_shared<test::Gate>();
  fake_->Script("POST", kChat, Sse({Token("A"), Token("B"), R"({"type":"done"})"}, release));
  App& app = MakeApp();
  app.SendPrompt(L"first");
  ASSERT_TRUE(PumpUntil(Token("A")));
  app.Shell() = {false, true, true, true, true, "g"};
  release->Open();
  app.Shutdown();
  MSG message;
  EXPECT_FALSE(PeekMessageW(&message, nullptr, kMsgChatEvent.id, kMsgChatEvent.id, PM_REMOVE));
  EXPECT_EQ(Conversation(), Lines{L"1:A"});
  EXPECT_EQ(g_plays, 0);
}

}  // namespace
}  // namespace qn
