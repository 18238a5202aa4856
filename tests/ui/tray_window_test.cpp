// The account and settings window under Wine, against the fake service, driven as the player
// drives it: keys through the same IsDialogMessageW the program's loop uses.
#include "ui/tray_window_win.h"

#include <gtest/gtest.h>

#include <commctrl.h>

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "chat/chat_view.h"
#include "chat/offscreen_target_win.h"
#include "net/session_fixture.h"
#include "support/box_answerer_win.h"
#include "support/gdi_frames_win.h"
#include "support/test_game_win.h"
#include "ui/tray_window_layout.h"
#include "ui/tray_window_text.h"

namespace qn {
namespace {

using test::Reply;
using Ids = std::vector<int>;

constexpr wchar_t kPassword[] = L"Tr0ub4dor&3-horse";
constexpr char kTokens[] = R"({"access_token":"a1","refresh_token":"r1"})";
const std::string kMemory = MemoryPath("hintwick_test_game");

// Keys reach the window as the program's loop hands them over; modifiers are the thread's
// key state, which posted messages do not change.
void PressKey(HWND window, UINT key, std::initializer_list<int> held = {}) {
  BYTE state[256] = {};
  for (const int modifier : held) state[modifier] = 0x80;
  SetKeyboardState(state);
  const HWND target = GetFocus() ? GetFocus() : window;
  PostMessageW(target, WM_KEYDOWN, key, 0);
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    if (!IsDialogMessageW(window, &message)) DispatchMessageW(&message);
  }
  BYTE released[256] = {};
  SetKeyboardState(released);
}

bool Enabled(HWND window, int id) { return IsWindowEnabled(GetDlgItem(window, id)) != FALSE; }
Ids EnabledOf(HWND window, const Ids& ids) {
  Ids enabled;
  for (const int id : ids) {
    if (Enabled(window, id)) enabled.push_back(id);
  }
  return enabled;
}
void Click(HWND window, int id) { SendDlgItemMessageW(window, id, BM_CLICK, 0, 0); }
// A request's outcome has arrived once Save, which every request holds back, is enabled again.
void Settle(HWND window) {
  EXPECT_TRUE(test::PumpUntil([&] { return Enabled(window, kIdSave); }, 15000));
}
// Whether the window answers another thread's message at once while this one pumps, as the
// program's loop does.
bool AnswersAnotherThread(HWND window) {
  std::future<bool> answered = std::async(std::launch::async, [window] {
    DWORD_PTR result = 0;
    return SendMessageTimeoutW(window, WM_NULL, 0, 0, SMTO_NORMAL, 1000, &result) != 0;
  });
  test::PumpUntil([&] { return answered.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 3000);
  return answered.get();
}
void Slide(HWND window, int id, int position) {
  SendDlgItemMessageW(window, id, TBM_SETPOS, TRUE, position);
  SendMessageW(window, WM_HSCROLL, TB_THUMBPOSITION,
               reinterpret_cast<LPARAM>(GetDlgItem(window, id)));
}

// Where a copy of the password could linger: the heap and stacks, not the program's image
// (the literal above) and not the fake service, which keeps the request's UTF-8 body. Its
// tail is looked for, since a buffer emptied by a terminator at its start keeps the rest.
// Regions are copied out with ReadProcessMemory, which fails where a plain read would fault:
// other threads (WinHTTP's, the session's) free and decommit memory while the scan runs, and
// a page gone between VirtualQuery and the read crashed the test now and then.
bool PasswordInMemory() {
  const auto* needle = reinterpret_cast<const char*>(kPassword + 2);
  const size_t length = wcslen(kPassword + 2) * sizeof(wchar_t);
  std::vector<char> copy;
  MEMORY_BASIC_INFORMATION region = {};
  for (auto* at = static_cast<char*>(nullptr);
       VirtualQuery(at, &region, sizeof(region)) == sizeof(region); at += region.RegionSize) {
    const bool readable = region.State == MEM_COMMIT && region.Type != MEM_IMAGE &&
                          (region.Protect & (PAGE_READWRITE | PAGE_READONLY)) &&
                          !(region.Protect & PAGE_GUARD);
    if (!readable) continue;
    copy.resize(region.RegionSize);
    SIZE_T read = 0;
    if (!ReadProcessMemory(GetCurrentProcess(), at, copy.data(), copy.size(), &read)) continue;
    if (std::search(copy.begin(), copy.begin() + read, needle, needle + length) !=
        copy.begin() + read) {
      return true;
    }
  }
  return false;
}

void SetClipboard(HWND owner, const std::wstring& text) {
  const OpenedClipboard clipboard(owner);
  EmptyClipboard();
  const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t));
  memcpy(GlobalLockScope<wchar_t>(memory).get(), text.c_str(), (text.size() + 1) * sizeof(wchar_t));
  SetClipboardData(CF_UNICODETEXT, memory);
}

int Scaled(int length, UINT dpi) { return MulDiv(length, static_cast<int>(dpi), 96); }

RECT RectIn(HWND parent, HWND control) {
  RECT rect = {};
  GetWindowRect(control, &rect);
  MapWindowPoints(nullptr, parent, reinterpret_cast<POINT*>(&rect), 2);
  return rect;
}

// Whether the control's text fits inside it, in its own font: on one line where it has one,
// within its rows where it has more. Buttons keep a margin, check boxes their box.
void ExpectTextFits(HWND control, const ControlPlan& plan, UINT dpi) {
  wchar_t text[512] = {};
  if (!GetWindowTextW(control, text, 512)) return;
  RECT client = {};
  GetClientRect(control, &client);
  LONG inset = 0;
  if (plan.kind == ControlKind::kButton) inset = Scaled(12, dpi);
  if (plan.kind == ControlKind::kCheckBox) {
    inset = GetSystemMetricsForDpi(SM_CXMENUCHECK, dpi) + Scaled(6, dpi);
  }
  const HDC dc = GetDC(control);
  SelectObject(dc, reinterpret_cast<HFONT>(SendMessageW(control, WM_GETFONT, 0, 0)));
  RECT needed = {0, 0, client.right - inset, 0};
  // An access key's '&' is not drawn; any other is.
  const UINT prefix = AccessKeyOf(plan.text) ? 0 : DT_NOPREFIX;
  DrawTextW(dc, text, -1, &needed,
            DT_CALCRECT | prefix | (plan.rows > 1 ? DT_WORDBREAK : DT_SINGLELINE));
  ReleaseDC(control, dc);
  EXPECT_LE(needed.right, client.right - inset) << testing::PrintToString(std::wstring(text));
  EXPECT_LE(needed.bottom, client.bottom) << testing::PrintToString(std::wstring(text));
}

// The window's content as the screen shows it, top to bottom: read a page at a time where
// the window scrolls. Wine hands drawing to X a moment after it is done, so each page is read
// until two reads agree.
std::vector<uint32_t> PictureOfContent(HWND window, LONG content_height) {
  RECT view = {};
  GetClientRect(window, &view);
  MapWindowPoints(window, nullptr, reinterpret_cast<POINT*>(&view), 2);
  const LONG width = view.right - view.left, height = view.bottom - view.top;
  std::vector<uint32_t> picture(static_cast<size_t>(width * content_height));
  for (LONG done = 0; done < content_height;) {
    SendMessageW(window, WM_VSCROLL, SB_TOP, 0);
    for (int page = 0; page * height < done; ++page) SendMessageW(window, WM_VSCROLL, SB_PAGEDOWN, 0);
    const LONG scroll = GetScrollPos(window, SB_VERT);
    RedrawWindow(window, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN | RDW_UPDATENOW);
    std::vector<uint32_t> seen, again = test::ReadScreen(view);
    for (int tries = 0; tries < 50 && seen != again; ++tries) {
      test::PumpUntil([] { return false; }, 100);
      seen = std::exchange(again, test::ReadScreen(view));
    }
    const LONG rows = std::min(height, content_height - scroll);
    if (again.size() != static_cast<size_t>(width * height)) return {};
    std::copy_n(again.begin(), rows * width, picture.begin() + scroll * width);
    done = scroll + rows;
  }
  return picture;
}

class TrayWindowTest : public SessionFixture {
 protected:
  void TearDown() override {
    window_.Close();
    SessionFixture::TearDown();
  }
  HWND Open(Session& session, const std::string& game = "hintwick_test_game") {
    EXPECT_TRUE(window_.Open(session, game));
    return window_.get();
  }
  int DefaultId() const {
    return LOWORD(SendMessageW(window_.get(), DM_GETDEFID, 0, 0));
  }

  test::BoxAnswerer boxes_{IDNO};
  int applied_ = 0;
  int update_checks_ = 0;
  TrayWindow window_{GetModuleHandleW(nullptr),
                     {[this] { ++applied_; }, [this] { ++update_checks_; }}};
};

// Signed out, Enter signs in: a refusal and then a success that the service holds back, while
// the window says what it waits for, takes no second request and keeps answering; the password
// is gone from the box and from memory both times, and the focus goes where the next step is.
// Signed in, Enter saves; Tab visits every enabled control in the order they are seen;
// sign-out and Escape end it.
TEST_F(TrayWindowTest, SignInWithEnterThenSaveTabAroundAndSignOut) {
  const auto held = std::make_shared<test::Gate>();
  test::ScriptedReply held_tokens = Reply(200);
  held_tokens.chunks = {{kTokens, held, nullptr}};
  fake_->Script("POST", "/v1/auth/login", Reply(401));
  fake_->Script("POST", "/v1/auth/login", held_tokens);
  fake_->Script("GET", kMemory, Reply(200, R"({"stage":"Act 2","stage_ordinal":3})"));
  fake_->Script("PATCH", kMemory, Reply(200, "{}"));
  const HWND window = Open(Start(false));
  const Ids account = {kIdEmail, kIdPassword, kIdSignIn, kIdCreateAccount, kIdSignOut};
  EXPECT_EQ(ShownText(window, kIdAccountStatus), L"Not signed in.");
  EXPECT_EQ(ShownText(window, kIdProgress), L"Sign in to see your recorded progress.");
  EXPECT_EQ(EnabledOf(window, account), (Ids{kIdEmail, kIdPassword, kIdSignIn, kIdCreateAccount}));
  EXPECT_EQ(DefaultId(), kIdSignIn);

  const Ids tab_order = {kIdEmail,        kIdPassword,    kIdSignIn,        kIdCreateAccount,
                         kIdHotkey,       kIdDrawerSlider, kIdBlurSlider,   kIdSound,
                         kIdVolumeSlider, kIdDirectness,   kIdSpoilers,     kIdCheckUpdates,
                         kIdSave,         kIdClose};
  Ids visited, back;
  SetFocus(GetDlgItem(window, kIdClose));
  for (size_t i = 0; i < tab_order.size(); ++i) {
    PressKey(window, VK_TAB);
    visited.push_back(GetDlgCtrlID(GetFocus()));
  }
  EXPECT_EQ(visited, tab_order);
  for (size_t i = 0; i < 3; ++i) {
    PressKey(window, VK_TAB, {VK_SHIFT});
    back.push_back(GetDlgCtrlID(GetFocus()));
  }
  EXPECT_EQ(back, (Ids{kIdSave, kIdCheckUpdates, kIdSpoilers}));

  // The password box lets nothing be copied out, and a paste brings no line break in.
  const HWND password = GetDlgItem(window, kIdPassword);
  SetClipboard(window, L"pass\tword\r\n");
  SendMessageW(password, WM_PASTE, 0, 0);
  EXPECT_EQ(ShownText(window, kIdPassword), L"password");
  SendMessageW(password, EM_SETSEL, 0, -1);
  SendMessageW(password, WM_COPY, 0, 0);
  SendMessageW(password, WM_CUT, 0, 0);
  EXPECT_EQ(ReadClipboardText(), L"pass\tword\r\n");
  EXPECT_EQ(ShownText(window, kIdPassword), L"password");

  const struct {
    const wchar_t* status;
    int focus;
  } sign_ins[] = {{L"Not signed in - wrong email or password", kIdPassword},
                  {L"Signed in as p@x.org. Press the hotkey over a game to start.", kIdSignOut}};
  for (const auto& sign_in : sign_ins) {
    SetDlgItemTextW(window, kIdEmail, L"p@x.org");
    SetDlgItemTextW(window, kIdPassword, kPassword);
    EXPECT_TRUE(PasswordInMemory()) << "the box holds it until Enter";
    SetFocus(GetDlgItem(window, kIdPassword));
    PressKey(window, VK_RETURN);
    EXPECT_EQ(ShownText(window, kIdPassword), L"");
    if (sign_in.focus == kIdSignOut) {
      EXPECT_EQ(ShownText(window, kIdAccountStatus), L"Signing in...");
      EXPECT_EQ(EnabledOf(window, {kIdEmail, kIdPassword, kIdSignIn, kIdCreateAccount, kIdSignOut,
                                   kIdSave, kIdResetProgress}),
                Ids{});
      EXPECT_TRUE(AnswersAnotherThread(window));
      PressKey(window, VK_RETURN);
      held->Open();
    }
    Settle(window);
    EXPECT_EQ(ShownText(window, kIdAccountStatus), sign_in.status);
    EXPECT_EQ(GetDlgCtrlID(GetFocus()), sign_in.focus);
    EXPECT_FALSE(PasswordInMemory());
  }
  EXPECT_EQ(RequestsTo("/v1/auth/login").size(), 2u) << "one request at a time";
  EXPECT_EQ(EnabledOf(window, account), Ids{kIdSignOut});
  EXPECT_EQ(ShownText(window, kIdProgress), L"hintwick_test_game: Act 2  (gate level 3)");
  EXPECT_TRUE(Enabled(window, kIdResetProgress));
  EXPECT_EQ(DefaultId(), kIdSave);

  PressKey(window, VK_RETURN);
  Settle(window);
  EXPECT_EQ(ShownText(window, kIdActionStatus), L"Saved.");
  EXPECT_EQ(applied_, 1);
  Click(window, kIdCheckUpdates);
  EXPECT_EQ(update_checks_, 1);

  Click(window, kIdSignOut);
  Settle(window);
  EXPECT_EQ(ShownText(window, kIdAccountStatus), L"Not signed in.");
  EXPECT_EQ(ShownText(window, kIdProgress), L"Sign in to see your recorded progress.");
  EXPECT_FALSE(Enabled(window, kIdResetProgress));
  PressKey(window, VK_ESCAPE);
  EXPECT_FALSE(IsWindow(window));
}

// The controls edit the working copy at once; Save keeps it in config.json and tells the
// service the answer style, and says which of its three outcomes it met.
TEST_F(TrayWindowTest, ControlsEditTheSettingsAndSaveSaysHowFarItGot) {
  fake_->Script("GET", kMemory, Reply(200, "{}"));
  fake_->Script("PATCH", kMemory, Reply(200, "{}"));
  fake_->Script("PATCH", kMemory, Reply(500));
  const HWND window = Open(Start());
  Settle(window);
  EXPECT_EQ(ShownText(window, kIdHotkey), L"Hotkey: Shift+Alt+X  (click to change)");
  Click(window, kIdHotkey);
  EXPECT_EQ(ShownText(window, kIdHotkey), L"Press the new key combination...");
  PressKey(window, 'A');
  EXPECT_EQ(ShownText(window, kIdActionStatus), kHotkeyNeedsModifierText);
  PressKey(window, VK_ESCAPE);
  EXPECT_EQ(ShownText(window, kIdHotkey), L"Hotkey: Shift+Alt+X  (click to change)");
  EXPECT_TRUE(window_.IsOpen()) << "Escape while capturing ends the capture, not the window";
  Click(window, kIdHotkey);
  PressKey(window, VK_F1, {VK_CONTROL, VK_MENU});
  EXPECT_EQ(ShownText(window, kIdHotkey), L"Hotkey: Ctrl+Alt+F1  (click to change)");
  EXPECT_EQ(ShownText(window, kIdActionStatus), kHotkeySetText);

  Slide(window, kIdBlurSlider, 0);
  Slide(window, kIdDrawerSlider, 45);
  EXPECT_EQ(ShownText(window, kIdBlurLabel), L"Background blur: off (dimmed only)");
  EXPECT_EQ(ShownText(window, kIdDrawerLabel), L"Drawer height: 45% of the screen");
  Click(window, kIdSound);
  EXPECT_FALSE(Enabled(window, kIdVolumeSlider));
  Click(window, kIdSpoilers);
  SendDlgItemMessageW(window, kIdDirectness, CB_SETCURSEL, 2, 0);
  SendMessageW(window, WM_COMMAND, MAKEWPARAM(kIdDirectness, CBN_SELCHANGE),
               reinterpret_cast<LPARAM>(GetDlgItem(window, kIdDirectness)));

  const std::wstring blocker = StatePath(L"config.json.tmp");  // the file cannot be written
  const struct {
    bool disk_fails;
    const wchar_t* status;
    int applied;
  } saves[] = {{false, kSavedText, 1}, {false, kStyleUnconfirmedText, 2}, {true, kSaveFailedText, 2}};
  for (const auto& save : saves) {
    if (save.disk_fails) CreateDirectoryW(blocker.c_str(), nullptr);
    Click(window, kIdSave);
    Settle(window);
    EXPECT_EQ(ShownText(window, kIdActionStatus), save.status);
    EXPECT_EQ(applied_, save.applied);
  }
  RemoveDirectoryW(blocker.c_str());
  const Settings saved =
      ParseSettingsText(test::ReadFileBytes(StatePath(L"config.json")).value_or(""));
  EXPECT_EQ(std::tuple(saved.hotkey_mods, saved.hotkey_vk, saved.blur_pct, saved.drawer_pct,
                       saved.sound_enabled, saved.directness, saved.spoilers_ok),
            std::tuple(kModCtrl | kModAlt, uint32_t{VK_F1}, 0, 45, false, 2, true));
  const auto patches = RequestsTo(kMemory);
  ASSERT_EQ(patches.size(), 3u);  // the progress read, then one patch per save that reached the disk
  EXPECT_EQ(patches[1].body, R"({"directness":"answer","spoilers_ok":true})");
}

// Reset asks first; only a yes sends the request, and both of its outcomes are said. Without a
// game there is nothing to reset; opening again brings the same window forward.
TEST_F(TrayWindowTest, ResetAsksFirstAndSaysWhatHappened) {
  fake_->Script("GET", kMemory, Reply(200, R"({"stage":"Act 1","stage_ordinal":1})"));
  const std::string reset = NewPlaythroughPath("hintwick_test_game");
  fake_->Script("POST", reset, Reply(200, "{}"));
  fake_->Script("POST", reset, Reply(500));
  Session& session = Start();
  SetCursorPos(1000, 700);
  const HWND window = Open(session);
  Settle(window);
  RECT area = {}, placed = {};
  SystemParametersInfoW(SPI_GETWORKAREA, 0, &area, 0);
  GetWindowRect(window, &placed);
  EXPECT_NEAR(placed.left + placed.right, area.left + area.right, 1) << "centred on the monitor";
  const struct {
    int answer;
    size_t requests;
    const wchar_t* status;
  } answers[] = {{IDNO, 0, L""},
                 {IDYES, 1, L"Progress reset."},
                 {IDYES, 2, L"Could not reach the service to reset progress."}};
  SetDlgItemTextW(window, kIdActionStatus, L"");
  // Each outcome is announced to a screen reader, as a live region's change.
  static HWND status = GetDlgItem(window, kIdActionStatus);
  static int announced = 0;
  const auto count = [](HWINEVENTHOOK, DWORD, HWND hwnd, LONG, LONG, DWORD, DWORD) {
    announced += hwnd == status;
  };
  const UniqueWinEventHook hook(SetWinEventHook(EVENT_OBJECT_LIVEREGIONCHANGED,
                                                EVENT_OBJECT_LIVEREGIONCHANGED, nullptr, count,
                                                GetCurrentProcessId(), 0, WINEVENT_OUTOFCONTEXT));
  for (const auto& a : answers) {
    boxes_.answer = a.answer;
    Click(window, kIdResetProgress);
    Settle(window);
    EXPECT_EQ(RequestsTo(reset).size(), a.requests);
    EXPECT_EQ(ShownText(window, kIdActionStatus), a.status);
  }
  EXPECT_TRUE(test::PumpUntil([] { return announced >= 2; })) << announced;
  ASSERT_EQ(boxes_.texts.size(), 3u);
  EXPECT_EQ(boxes_.texts[0].rfind(L"Reset recorded progress for this game?\n\nYour preferences", 0), 0u);
  EXPECT_EQ(RequestsTo(kMemory).size(), 3u) << "read at opening and after each reset";

  EXPECT_TRUE(window_.Open(session, ""));
  EXPECT_EQ(window_.get(), window);
  window_.Close();
  const HWND without_game = Open(session, "");
  EXPECT_EQ(ShownText(without_game, kIdProgress).rfind(L"No game seen yet.", 0), 0u);
  EXPECT_FALSE(Enabled(without_game, kIdResetProgress));
}

// At 100 %, 150 % and 200 %, as when the window is moved to a monitor of that scale: every
// control where the layout puts it, scaled, with its longest text inside it and the font
// grown with it; the pictures are left beside the test for a look by eye.
TEST_F(TrayWindowTest, LaidOutAndReadableAtEachScale) {
  fake_->Script("GET", kMemory, Reply(200, "{}"));
  const HWND window = Open(Start());
  Settle(window);
  LONG font_height_at_96 = 0;
  for (const UINT dpi : {96u, 144u, 192u}) {
    SCOPED_TRACE(dpi);
    RECT place = {};
    GetWindowRect(window, &place);
    SendMessageW(window, WM_DPICHANGED, MAKEWPARAM(dpi, dpi), reinterpret_cast<LPARAM>(&place));
    RECT client = {};
    GetClientRect(window, &client);
    const LONG content_height = Scaled(TrayWindowClient().height, dpi);
    EXPECT_EQ(client.right, Scaled(TrayWindowClient().width, dpi));
    // The bench's display is 800 high: from 150 % on, the window is cut short and scrolls.
    const bool scrolls = client.bottom < content_height;
    EXPECT_EQ(scrolls, dpi > 96);
    SetDlgItemTextW(window, kIdAccountStatus, kStyleUnconfirmedText);
    SetDlgItemTextW(window, kIdActionStatus, kHotkeyBreaksTypingText);
    SetDlgItemTextW(window, kIdHotkey, L"Hotkey: Ctrl+Shift+Alt+F12  (click to change)");
    HWND control = GetWindow(window, GW_CHILD);
    for (const ControlPlan& plan : TrayWindowControls()) {
      ASSERT_TRUE(control);
      EXPECT_EQ(GetDlgCtrlID(control), plan.id);
      const RECT at = RectIn(window, control);
      EXPECT_EQ(at.left, Scaled(plan.rect.x, dpi)) << plan.id;
      EXPECT_EQ(at.top, Scaled(plan.rect.y, dpi)) << plan.id;
      EXPECT_EQ(at.right - at.left, Scaled(plan.rect.width, dpi)) << plan.id;
      if (plan.kind != ControlKind::kComboBox) {
        EXPECT_EQ(at.bottom - at.top, Scaled(plan.rect.height, dpi)) << plan.id;
      }
      ExpectTextFits(control, plan, dpi);
      control = GetWindow(control, GW_HWNDNEXT);
    }
    LOGFONTW font = {};
    GetObjectW(reinterpret_cast<HFONT>(SendDlgItemMessageW(window, kIdSave, WM_GETFONT, 0, 0)),
               sizeof(font), &font);
    if (dpi == 96) font_height_at_96 = font.lfHeight;
    EXPECT_NEAR(font.lfHeight, font_height_at_96 * static_cast<LONG>(dpi) / 96, 1);

    if (scrolls) {  // the focus taken far down brings its control into view
      SetFocus(GetDlgItem(window, kIdHotkey));
      SetFocus(GetDlgItem(window, kIdClose));
      test::PumpUntil([&] { return GetScrollPos(window, SB_VERT) > 0; }, 2000);
      const RECT close = RectIn(window, GetDlgItem(window, kIdClose));
      EXPECT_GE(close.top, 0);
      EXPECT_LE(close.bottom, client.bottom);
    }
    const std::vector<uint32_t> picture = PictureOfContent(window, content_height);
    EXPECT_GT(std::set<uint32_t>(picture.begin(), picture.end()).size(), 8u);
    EXPECT_TRUE(test::WritePng(test::NextToProgram(L"tray_window_" + std::to_wstring(dpi) + L".png"),
                               static_cast<uint32_t>(client.right),
                               static_cast<uint32_t>(content_height), picture));
    SendMessageW(window, WM_VSCROLL, SB_TOP, 0);
  }
  // Labels are written in the theme's text colour, as a dark high-contrast theme needs.
  const HDC dc = GetDC(window);
  SetTextColor(dc, RGB(1, 2, 3));
  SendMessageW(window, WM_CTLCOLORSTATIC, reinterpret_cast<WPARAM>(dc),
               reinterpret_cast<LPARAM>(GetDlgItem(window, kIdAccountStatus)));
  EXPECT_EQ(GetTextColor(dc), GetSysColor(COLOR_WINDOWTEXT));
  ReleaseDC(window, dc);
}

}  // namespace
}  // namespace qn
