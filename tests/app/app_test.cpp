// The application object started for real under Wine: its refusals, its start-up, its
// message table and the chat turns through it against the fake service, with the drawer
// over a stand-in game. Wine has no window capture, so the start checks are the tests' to
// answer and the drawer shows through what Wine has.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <thread>
#include <vector>

#include "app/app.h"
#include "app/crash_steps_win.h"
#include "app/keyboard_hooks_win.h"
#include "app/messages.h"
#include "app/target_window_win.h"
#include "app/tray_menu.h"
#include "chat/chime.h"
#include "chat/offscreen_target_win.h"
#include "net/session_fixture.h"
#include "support/box_answerer_win.h"
#include "support/fake_tray_win.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"
#include "support/program_image.h"
#include "support/test_files.h"
#include "support/test_game.h"
#include "support/test_game_win.h"
#include "ui/tray_window_layout.h"

namespace qn {
namespace {

using Lines = std::vector<std::wstring>;
using test::Reply;

uint32_t Windows10() { return 19045; }
uint32_t Build18361() { return 18361; }
bool Supported() { return true; }
bool Unsupported() { return false; }
constexpr RECT kGameRect = {100, 60, 1060, 660};

StartChecks WineChecks() {
  StartChecks checks{&Windows10, &Supported, {}, {}};
  checks.drawer.surface = [] { return test::MakeHwndSurface(); };
  checks.drawer.frames = [] { return test::MakeGdiFrameSource(); };
  checks.drawer.idle_release_ms = 200;
  return checks;
}

int g_plays = 0, g_now = 0;
ULONGLONG WINAPI SteppingClock() { return g_now += 10000; }
BOOL WINAPI CountingPlayer(LPCWSTR sound, HMODULE, DWORD) {
  if (sound) ++g_plays;
  return TRUE;
}

std::string Token(const std::string& text) { return R"({"type":"token","text":")" + text + "\"}"; }

class AppTest : public SessionFixture {
 protected:
  void SetUp() override {
    SessionFixture::SetUp();
    SetChimeHooks(&SteppingClock, &CountingPlayer);
    g_plays = 0;
  }
  void TearDown() override {
    app_.reset();
    SetChimeHooks(nullptr, nullptr);
    SessionFixture::TearDown();
  }

  // Signed in as "a1" against the fake when asked; the log goes to the data directory as in
  // the program, until `log_` takes it back.
  bool Start(StartChecks checks = WineChecks(), bool signed_in = true,
             const std::string& config_members = "") {
    if (signed_in) {
      TokenStore::Save("r0");
      fake_->Script("POST", "/v1/auth/refresh", Reply(200, R"({"access_token":"a1"})"));
    }
    WriteConfig(config_members);
    app_ = std::make_unique<App>(GetModuleHandleW(nullptr), checks);
    const bool started = app_->Init();
    // The session and the update check are the workers'; their lines belong to the start.
    if (started) {
      EXPECT_TRUE(PumpUntil([&] { return app_->StartupSettled(); }));
    }
    startup_log_ = test::ReadFileBytes(StatePath(L"hintwick.log")).value_or("");
    log_.Clear();
    return started;
  }

  template <typename Done>
  bool PumpUntil(Done done) {
    return test::PumpUntil(done);
  }
  void Post(UINT message, WPARAM wparam = 0, LPARAM lparam = 0) {
    PostMessageW(app_->MessageWindow(), message, wparam, lparam);
  }
  void PostKey(uint32_t key) {
    auto record = std::make_unique<KeyEventRecord>();
    record->key = key;
    PostOwned(app_->MessageWindow(), kMsgCapturedKey, std::move(record));
  }
  Lines Said() const {
    Lines lines;
    for (const ChatMessage& m : app_->Chat().Model().Messages()) {
      if (m.raw != kHintText) lines.push_back(std::to_wstring(m.role) + L":" + m.raw);
    }
    return lines;
  }

  test::BoxAnswerer boxes_;
  std::unique_ptr<App> app_;
  std::string startup_log_;
};

TEST_F(AppTest, AnUnsupportedSystemIsToldWhyAndNothingStarts) {
  const struct {
    StartChecks checks;
    const char* logged;
    const wchar_t* box_starts;
  } cases[] = {
      {{&Build18361, &Supported, {}, {}},
       "ERROR unsupported OS: build 18361, need 18362+",
       L"Hintwick needs Windows 10 version 1903 or newer.\n\nThe drawer's blurred backdrop"},
      {{&Windows10, &Unsupported, {}, {}},
       "ERROR Windows.Graphics.Capture reports unsupported",
       L"Screen capture is unavailable on this system, so the drawer cannot be drawn."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.logged);
    boxes_.texts.clear();
    EXPECT_FALSE(Start(c.checks, false));
    EXPECT_NE(startup_log_.find(c.logged), std::string::npos) << startup_log_;
    ASSERT_EQ(boxes_.texts.size(), 1u) << testing::PrintToString(boxes_.texts);
    EXPECT_EQ(boxes_.texts[0].rfind(c.box_starts, 0), 0u) << boxes_.texts[0];
    EXPECT_EQ(FindWindowExW(HWND_MESSAGE, nullptr, L"HintwickMessageWindow", nullptr), nullptr);
    EXPECT_TRUE(fake_->Requests().empty()) << "no session before the checks pass";
    app_.reset();
  }
}

// The start-up lines in order; then the hotkey, the tray's double click and Escape open and
// close the drawer over the game, which takes typing only while open; another window in
// front dismisses it, a toggle during the slide-out reopens it, the game's end closes it, and
// its graphics go once the idle delay has passed, the delay starting anew at each closing.
TEST_F(AppTest, StartsInOrderAndTheDrawerComesAndGoes) {
  StartChecks checks = WineChecks();
  checks.drawer.idle_release_ms = 1500;
  ASSERT_TRUE(Start(std::move(checks)));
  size_t at = 0;
  for (const char* line :
       {"INFO  initialised (build 19045); waiting for hotkey", "INFO  access token refreshed"}) {
    at = startup_log_.find(line, at);
    EXPECT_NE(at, std::string::npos) << line << "\n" << startup_log_;
  }
  const DrawerControl& drawer = app_->Drawer();
  test::TestGame game(kGameRect);
  ASSERT_TRUE(game.window());
  Post(WM_HOTKEY, 1);
  ASSERT_TRUE(PumpUntil([&] { return drawer.IsOpen(); }));
  // The game moves, grows and makes itself topmost, then goes back: the drawer follows and
  // stays above it.
  const HWND shown = drawer.DrawerWindowHandle();
  for (const auto& [game_at, drawer_at, topmost] :
       {std::tuple{RECT{40, 30, 1040, 730}, RECT{40, 499, 1040, 730}, HWND_TOPMOST},
        std::tuple{kGameRect, RECT{100, 440, 1060, 660}, HWND_NOTOPMOST}}) {
    SetWindowPos(game.window(), topmost, game_at.left, game_at.top, game_at.right - game_at.left,
                 game_at.bottom - game_at.top, SWP_NOACTIVATE);
    EXPECT_TRUE(PumpUntil([&] {
      RECT at = {};
      return GetWindowRect(shown, &at) && EqualRect(&at, &drawer_at) &&
             !IsAbove(game.window(), shown);
    }));
  }
  PostKey('C');
  PostKey(27);
  ASSERT_TRUE(PumpUntil([&] { return !drawer.IsOpen(); }));
  EXPECT_FALSE(IsWindowVisible(drawer.DrawerWindowHandle()));
  EXPECT_EQ(app_->Chat().Model().Input(), L"c");
  Post(kTrayCallbackMessage, 0, WM_LBUTTONDBLCLK);
  ASSERT_TRUE(PumpUntil([&] { return drawer.IsOpen(); }));
  std::thread(&PrepareForCrashBox).join();  // as a crash report does before its box
  EXPECT_TRUE(PumpUntil([&] { return !IsWindowVisible(drawer.DrawerWindowHandle()); }));
  {
    const test::TestGame other({20, 20, 120, 120});
    ASSERT_TRUE(PumpUntil([&] { return !drawer.IsOpen(); }));
    // From the tray, over the last game the drawer opened over, brought forward first.
    Post(kTrayCallbackMessage, 0, WM_LBUTTONDBLCLK);
    ASSERT_TRUE(
        PumpUntil([&] { return drawer.IsOpen() && GetForegroundWindow() == game.window(); }))
        << log_.Text();
    EXPECT_EQ(app_->Drawer().Facts().game_key, "hintwick_test_game");
    Post(kTrayCallbackMessage, 0, WM_LBUTTONDBLCLK);
    ASSERT_TRUE(PumpUntil([&] { return !drawer.IsOpen(); }));
  }
  EXPECT_TRUE(log_.Has("INFO  foreground moved elsewhere; dismissing"));
  ASSERT_TRUE(game.BringToFront());
  PostKey('B');                                    // the drawer is closed: nothing is typed
  for (int i = 0; i < 3; ++i) Post(WM_HOTKEY, 1);  // open, close, and open during the slide
  ASSERT_TRUE(PumpUntil([&] { return log_.Count("INFO  drawer open over") == 5; }));
  EXPECT_TRUE(drawer.IsOpen());
  game.Quit();
  ASSERT_TRUE(PumpUntil([&] { return log_.Has("idle: released GPU stack and drawer window"); }));
  EXPECT_TRUE(log_.Has("INFO  target window gone; dismissing"));
  EXPECT_FALSE(app_->Drawer().Facts().window_exists);
  EXPECT_EQ(app_->Chat().Model().Input(), L"c");
  EXPECT_EQ(log_.Count("INFO  drawer open over 'Hintwick test game' (hintwick_test_game.exe), "
                       "drawer 960x220 at (100,440)"),
            5u);
  EXPECT_EQ(log_.Count("INFO  drawer closed\r\n"), 5u);
  EXPECT_EQ(log_.Count("idle: released"), 1u);

  app_->OnSettingsApplied();
  EXPECT_TRUE(log_.Has("INFO  hotkey registered: Shift+Alt+X"));
  EXPECT_TRUE(log_.Has("INFO  settings applied: drawer 33%, blur 100%"));

  Post(WM_COMMAND, kCmdExit);
  EXPECT_EQ(app_->Run(), 0);
}

// "Account and settings..." closes the drawer and opens the window for the game last seen
// under it; the drawer stays shut while the window is open, and a hotkey saved there is
// registered at once and named by the tray menu's first entry.
TEST_F(AppTest, TheSettingsWindowHoldsTheDrawerBackAndChangesTheHotkey) {
  ASSERT_TRUE(Start());
  test::TestGame game(kGameRect);
  Post(WM_HOTKEY, 1);
  ASSERT_TRUE(PumpUntil([&] { return app_->Drawer().IsOpen(); }));
  Post(WM_COMMAND, kCmdAccount);
  HWND window = nullptr;
  ASSERT_TRUE(PumpUntil([&] { return (window = FindWindowW(kTrayWindowClass, nullptr)); }));
  EXPECT_FALSE(app_->Drawer().IsOpen());
  // The window reads the record on a worker.
  EXPECT_TRUE(PumpUntil([&] { return IsWindowEnabled(GetDlgItem(window, kIdSave)); }));
  EXPECT_EQ(ShownText(window, kIdProgress).rfind(L"hintwick_test_game: ", 0), 0u);
  Post(WM_HOTKEY, 1);
  ASSERT_TRUE(
      PumpUntil([&] { return log_.Has("INFO  tray window is open; not opening the drawer"); }));

  SendDlgItemMessageW(window, kIdHotkey, BM_CLICK, 0, 0);
  BYTE keys[256] = {};
  keys[VK_CONTROL] = keys[VK_MENU] = 0x80;
  SetKeyboardState(keys);
  SendMessageW(window, WM_KEYDOWN, VK_F1, 0);
  keys[VK_CONTROL] = keys[VK_MENU] = 0;
  SetKeyboardState(keys);
  SendDlgItemMessageW(window, kIdSave, BM_CLICK, 0, 0);
  EXPECT_TRUE(log_.Has("INFO  hotkey registered: Ctrl+Alt+F1"));
  const Settings settings = app_->ServiceSession().CurrentSettings();
  EXPECT_EQ(TrayMenuEntries(HotkeyText(settings.hotkey_mods, settings.hotkey_vk), true)[0].text,
            L"Hintwick (Ctrl+Alt+F1)");
  Post(WM_COMMAND, kCmdExit);  // the loop, with the window's keyboard handling, ends as ever
  EXPECT_EQ(app_->Run(), 0);
}

// An update found at start with a game in front waits for the desktop: the prompt, never
// nested, then answered no changes nothing. The player's own check answered yes downloads on
// a worker behind a progress window whose Cancel ends it at once and leaves the running build
// alone; the next try makes the program leave, to hand over to the new build once it has let
// go of everything.
TEST_F(AppTest, AnUpdateWaitsForTheDesktopThenHandsOverToTheNewBuild) {
  const test::TempDir dir;
  const std::wstring exe = dir.File(L"Hintwick.exe");
  test::WriteFileBytes(exe, "the running build");
  const std::string next = test::ProgramImage("the new build") + std::string(300000, 'x');
  fake_->Script("GET", "/v1/version",
                Reply(200, R"({"version":"0.1.8","url":")" + WideToUtf8(fake_->BaseUrl()) +
                               R"(/next.exe","sha256":")" + Updater::Sha256Hex(next) + R"("})"));
  test::ScriptedReply held = Reply(200);
  held.chunks = {{next.substr(0, 290000), nullptr, nullptr},
                 {next.substr(290000), std::make_shared<test::Gate>(), nullptr}};
  fake_->Script("GET", "/next.exe", held);
  fake_->Script("GET", "/next.exe", Reply(200, next));
  test::TestGame game(kGameRect);
  ASSERT_TRUE(game.BringToFront());
  StartChecks checks = WineChecks();
  checks.updater.exe_path = exe;
  ASSERT_TRUE(Start(std::move(checks)));
  EXPECT_NE(startup_log_.find("INFO  an update is available, but something is in the "
                              "foreground; deferring the prompt"),
            std::string::npos);
  EXPECT_TRUE(boxes_.texts.empty());

  // Wine reports no foreground changes: the drawer is told as the system's event would. The
  // player's own check, queued first, is under way and is not doubled.
  boxes_.answer = IDNO;
  Post(WM_COMMAND, kCmdCheckForUpdates);
  ASSERT_TRUE(PumpUntil([&] { return app_->Updates().Busy(); }));
  app_->Drawer().OnForeground(GetDesktopWindow());
  EXPECT_TRUE(log_.Has("INFO  foreground returned to the shell; asking about the deferred update"));
  EXPECT_TRUE(log_.Has("INFO  an update check or prompt is under way already; not asking again"));
  ASSERT_TRUE(PumpUntil([&] { return !app_->Updates().Busy(); }));
  ASSERT_EQ(boxes_.texts.size(), 1u);
  EXPECT_NE(boxes_.texts[0].find(L"You have 0.1.7, the latest is 0.1.8."), std::wstring::npos);

  boxes_.answer = IDYES;
  Post(WM_COMMAND, kCmdCheckForUpdates);
  wchar_t shown[128] = {};
  ASSERT_TRUE(PumpUntil([&] {
    const HWND progress = app_->Updates().ProgressWindow();
    return progress && GetWindowTextW(GetWindow(progress, GW_CHILD), shown, 128) &&
           std::wstring(shown) == L"Downloading version 0.1.8: 0.3 MB";
  })) << shown;
  PostMessageW(GetDlgItem(app_->Updates().ProgressWindow(), IDCANCEL), BM_CLICK, 0, 0);
  ASSERT_TRUE(PumpUntil([&] { return !app_->Updates().Busy(); }));
  EXPECT_TRUE(log_.Has("INFO  update download cancelled"));
  EXPECT_EQ(app_->Updates().ProgressWindow(), nullptr);
  EXPECT_EQ(boxes_.texts.size(), 2u) << "a cancel is not reported as a failure";
  EXPECT_EQ(test::ReadFileBytes(exe), "the running build");

  Post(WM_COMMAND, kCmdCheckForUpdates);
  EXPECT_EQ(app_->Run(), 0);
  EXPECT_EQ(app_->HandOverTo(), exe);
  EXPECT_EQ(test::ReadFileBytes(exe), next);
}

// The start balloon says how to open the drawer with the player's own hotkey, or that the tray
// is the way when another program holds it; a second start is answered with a note on the icon.
TEST_F(AppTest, TheBalloonsSayHowToOpenTheDrawer) {
  if (!test::UnderWine()) GTEST_SKIP() << "reads the notification area in Wine's own format";
  const std::string ctrl_alt_f9 = R"(,"hotkey_mods":3,"hotkey_vk":120)";
  for (const bool hotkey_taken : {false, true}) {
    SCOPED_TRACE(hotkey_taken ? "hotkey taken" : "hotkey free");
    test::FakeTray tray;
    ASSERT_TRUE(tray.IsTheOneFound());
    const UniqueHwnd holder(
        test::CreateTestWindow(L"HintwickHotkeyHolder", &DefWindowProcW, 0, HWND_MESSAGE));
    EXPECT_EQ(hotkey_taken && RegisterHotKey(holder.get(), 7, MOD_CONTROL | MOD_ALT, VK_F9),
              hotkey_taken);
    ASSERT_TRUE(Start(WineChecks(), true, ctrl_alt_f9));
    Post(kMsgAlreadyRunning);
    ASSERT_TRUE(PumpUntil([&] { return tray.received.size() >= 3; }));
    const auto& added = tray.received[0];
    EXPECT_EQ(added.message, static_cast<ULONG_PTR>(NIM_ADD));
    EXPECT_EQ(added.owner, app_->MessageWindow());
    EXPECT_EQ(added.callback, kTrayCallbackMessage);
    EXPECT_EQ(tray.received[1].info,
              hotkey_taken ? L"Running, but the Ctrl+Alt+F9 hotkey could not be registered - "
                             L"something else owns it. Use the tray icon to open the drawer."
                           : L"Running. Press Ctrl+Alt+F9 while a game is in focus to open the "
                             L"drawer.");
    EXPECT_EQ(tray.received[2].info,
              L"Already running. Press Ctrl+Alt+F9 while a game is in focus.");
    app_.reset();
    EXPECT_EQ(tray.received.back().message, static_cast<ULONG_PTR>(NIM_DELETE));
    UnregisterHotKey(holder.get(), 7);
    Reset();
  }
}

// The opening names the game from the catalogue at hand, then from the service's answer; an
// answer still streaming when the drawer closes lands, chimes, and only then lets the
// graphics go; a question asked while the last answer's stream closes goes out after it.
TEST_F(AppTest, AStreamedAnswerBehindAClosedDrawerLandsChimesAndCopies) {
  const std::string memory = R"({"type":"memory","stage":"act 2","changes":["found the key"]})";
  test::ScriptedReply answer = Reply(200, "data: " + Token("Go **north**") + "\n\ndata: " + memory +
                                              "\n\ndata: {\"type\":\"done\"}\n\n");
  answer.headers = {{"Content-Type", "text/event-stream"}};
  fake_->Script("POST", "/v1/chat", answer);
  const auto closing = std::make_shared<test::Gate>();
  test::ScriptedReply ends_late = answer;
  ends_late.body.clear();
  const std::string done = "\n\ndata: {\"type\":\"done\"}\n\n";
  ends_late.chunks = {{"data: " + Token("Left at the well") + done, {}, {}},
                      {": closing\n\n", closing, {}}};
  test::ScriptedReply next = answer;
  next.body = "data: " + Token("Then the bridge") + done;
  fake_->Script("POST", "/v1/chat", ends_late);  // for the last two questions
  fake_->Script("POST", "/v1/chat", next);
  fake_->Script("GET", "/v1/games",
                Reply(200, R"([{"slug":"hintwick_test_game","display_name":"G \u00e9"}])"));
  ASSERT_TRUE(Start());
  Conversation& chat = app_->Chat();
  const test::TestGame game(kGameRect);
  app_->Drawer().Open();
  EXPECT_EQ(chat.Model().StatusLine(), L"hintwick_test_game \u2014 checking\u2026");
  ASSERT_TRUE(
      PumpUntil([&] { return chat.Model().StatusLine().rfind(L"G \u00e9 \u2014 ", 0) == 0; }));

  chat.SendPrompt(L"caf\u00e9 \"x\"");
  app_->Drawer().CloseNow();  // mid-answer: its end chimes
  EXPECT_TRUE(
      log_.Has("drawer closed with an answer still streaming; it will finish in the "
               "background"));
  ASSERT_TRUE(PumpUntil([&] { return !chat.Model().Waiting() && g_plays > 0; }));
  EXPECT_EQ(RequestsTo("/v1/chat").at(0).body,
            "{\"game\":\"hintwick_test_game\",\"message\":\"caf\xC3\xA9 \\\"x\\\"\"}");
  EXPECT_EQ(Said(), (Lines{L"1:Go **north**", L"2:Noted \u2014 found the key"}));
  EXPECT_EQ(g_plays, 1);
  EXPECT_EQ(chat.Model().StatusLine(), L"hintwick_test_game \u2014 act 2");
  ASSERT_TRUE(PumpUntil([&] { return log_.Has("idle: released GPU stack and drawer window"); }));

  chat.CopyAnswer();
  EXPECT_EQ(Said().back(), L"2:Answer copied.");
  auto other = std::make_unique<GameLookupResult>();
  other->key = "h";
  chat.OnProgressSnapshot(std::move(other));
  EXPECT_TRUE(Logged(
      "INFO  discarding a progress snapshot for 'h'; current game is 'hintwick_test_game'\r\n"));

  // A question asked the moment an answer shows its end, while that stream is still closing,
  // waits for it and goes out; it used to be dropped, and "no answer came back" stood.
  app_->Drawer().Open();
  ASSERT_TRUE(app_->Drawer().Facts().view_ready);
  chat.SendPrompt(L"and then?");
  ASSERT_TRUE(PumpUntil([&] { return !chat.Model().Waiting(); }));
  chat.SendPrompt(L"and after that?");
  EXPECT_TRUE(log_.Has("question held until the previous answer's stream has ended"));
  closing->Open();
  ASSERT_TRUE(PumpUntil([&] { return !chat.Model().Waiting(); }));
  EXPECT_EQ(RequestsTo("/v1/chat").size(), 3u);
  EXPECT_EQ(Said().back(), L"1:Then the bridge");
}

// What the screen shows in `area`, with the measures the drawer is judged by.
struct Shot {
  RECT area = {};
  std::vector<uint32_t> pixels;

  static Shot Of(const RECT& area) { return {area, test::ReadScreen(area)}; }
  LONG Width() const { return area.right - area.left; }
  LONG Height() const { return area.bottom - area.top; }
  static int Channel(uint32_t pixel, int shift) {
    return static_cast<int>((pixel >> shift) & 0xFF);
  }
  // Mean difference of the green channel between neighbours along a row: the detail a blur
  // takes away.
  double Detail() const {
    double sum = 0;
    for (LONG y = 0; y < Height(); ++y) {
      for (LONG x = 1; x < Width(); ++x) {
        const size_t at = static_cast<size_t>(y * Width() + x);
        sum += std::abs(Channel(pixels[at], 8) - Channel(pixels[at - 1], 8));
      }
    }
    return sum / static_cast<double>(Height() * (Width() - 1));
  }
  double Mean(int shift) const {
    double sum = 0;
    for (const uint32_t p : pixels) sum += Channel(p, shift);
    return sum / static_cast<double>(pixels.size());
  }
  // Light text on the dark tint: brighter than any blurred and tinted game pixel can be.
  size_t TextPixels() const {
    size_t count = 0;
    for (const uint32_t p : pixels) count += Channel(p, 16) > 200 && Channel(p, 0) > 200;
    return count;
  }
  // Pixels that differ from the game's own picture, the game's window at `game`.
  size_t NotTheGame(const RECT& game) const {
    size_t count = 0;
    for (LONG y = 0; y < Height(); ++y) {
      for (LONG x = 0; x < Width(); ++x) {
        const test::Rgb want = test::GamePixel(x + area.left - game.left, y + area.top - game.top);
        const uint32_t got = pixels[static_cast<size_t>(y * Width() + x)];
        count += std::abs(Channel(got, 16) - want.r) > 2 || std::abs(Channel(got, 0) - want.b) > 2;
      }
    }
    return count;
  }
};

// The player's view under Xvfb: the hotkey and the question typed through X into the game,
// which keeps the focus, on a German keyboard; the drawer over the game's bottom edge, the game
// above it untouched, the strip under it blurred and tinted, the answer drawn; then the blur
// setting's range.
TEST_F(AppTest, TheDrawerOverAGameAsThePlayerSeesIt) {
  const ComApartment com(COINIT_APARTMENTTHREADED);
  test::ScriptedReply answer =
      Reply(200, "data: " + Token("Take the lift down") + "\n\ndata: {\"type\":\"done\"}\n\n");
  answer.headers = {{"Content-Type", "text/event-stream"}};
  fake_->Script("POST", "/v1/chat", answer);
  ASSERT_TRUE(Start());
  const test::TestGame game(kGameRect);
  ASSERT_TRUE(game.window());
  const RECT drawer_rect = {100, 440, 1060, 660};
  const RECT above = {100, 200, 1060, 440};  // clear of the start balloon at the top
  std::vector<uint32_t> game_pixels;         // what the strip under the drawer shows unblurred
  for (LONG y = drawer_rect.top; y < drawer_rect.bottom; ++y) {
    for (LONG x = drawer_rect.left; x < drawer_rect.right; ++x) {
      const test::Rgb c = test::GamePixel(x - kGameRect.left, y - kGameRect.top);
      game_pixels.push_back(0xFF000000u | (uint32_t{c.r} << 16) | (uint32_t{c.g} << 8) | c.b);
    }
  }
  const Shot unblurred{drawer_rect, game_pixels};
  // Without a window manager, X gives the keys to the window under the pointer: the player's
  // pointer is over the game, wherever an earlier program left it.
  SetCursorPos(kGameRect.left + 100, kGameRect.top + 100);
  ASSERT_EQ(test::RunOnX({"xdotool", "key", "shift+alt+x"}), 0);
  ASSERT_TRUE(PumpUntil([&] { return Shot::Of(drawer_rect).Detail() < unblurred.Detail() / 4; }))
      << log_.Text();
  const size_t text_before = Shot::Of(drawer_rect).TextPixels();
  // Typed on a German keyboard: the characters are the layout's, not the keys' US ones.
  ASSERT_EQ(test::RunOnX({"setxkbmap", "de"}), 0);
  const struct UsAgain {
    ~UsAgain() { test::RunOnX({"setxkbmap", "us"}); }
  } us_again;
  // The game maps X's keys to virtual keys by the layout it last heard of: typing before it
  // has taken the new one in gives the US keys' codes.
  test::PumpUntil([] { return false; }, 500);
  ASSERT_EQ(test::RunOnX({"xdotool", "type", "--delay", "30",
                          "wo \xC3\xBC"
                          "ber"}),
            0);
  ASSERT_EQ(test::RunOnX({"xdotool", "key", "Return"}), 0);
  ASSERT_TRUE(PumpUntil([&] { return !RequestsTo("/v1/chat").empty(); })) << log_.Text();
  EXPECT_EQ(RequestsTo("/v1/chat")[0].body,
            "{\"game\":\"hintwick_test_game\",\"message\":\"wo \xC3\xBC"
            "ber\"}");
  Shot drawer;
  ASSERT_TRUE(PumpUntil([&] {
    drawer = Shot::Of(drawer_rect);
    return drawer.TextPixels() > text_before + 200;
  })) << "the answer was not drawn";

  RECT placed = {};
  GetWindowRect(app_->Drawer().DrawerWindowHandle(), &placed);
  EXPECT_TRUE(EqualRect(&placed, &drawer_rect));
  EXPECT_EQ(GetForegroundWindow(), game.window());
  EXPECT_EQ(Shot::Of(above).NotTheGame(kGameRect), 0u);
  EXPECT_LT(drawer.Detail(), unblurred.Detail() / 4);
  // Left of the chat, the backdrop alone: the game's mean colour (125, 130, 100) under 55 % of
  // the tint (15, 15, 20).
  const Shot margin =
      Shot::Of({drawer_rect.left + 4, drawer_rect.top, drawer_rect.left + 60, drawer_rect.bottom});
  EXPECT_NEAR(margin.Mean(16), 64.7, 6);
  EXPECT_NEAR(margin.Mean(0), 56.2, 6);
  EXPECT_TRUE(test::WritePng(test::NextToProgram(L"drawer_scene.png"), 960, 220, drawer.pixels));

  // Less blur shows more of the game's detail, down to none at all under the same tint.
  double detail_before = 0;
  for (const int blur : {100, 50, 0}) {
    app_->Drawer().SetLook(0.33, blur / 100.0);
    Shot shot;
    ASSERT_TRUE(PumpUntil([&] {
      shot = Shot::Of(drawer_rect);
      return shot.Detail() > detail_before * 1.2;
    })) << blur
        << " " << shot.Detail() << " " << detail_before;
    detail_before = shot.Detail();
    test::WritePng(test::NextToProgram(L"drawer_blur_" + std::to_wstring(blur) + L".png"), 960, 220,
                   shot.pixels);
  }
  EXPECT_GT(detail_before, unblurred.Detail() / 4) << "blur 0 keeps the game's edges";
}

}  // namespace
}  // namespace qn
