// The whole program against the real service and the stand-in game's knowledge pack: what the
// player may not read yet is held back, a stage said in passing moves the record and shows in
// the drawer, the same question is then answered from the notes, and a reset starts over.
// The picture of the drawer and the words of the conversation are left beside the test
// program; scripts/demo.sh shows them to a newcomer.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

#include "app/app.h"
#include "app/tray_menu.h"
#include "chat/offscreen_target_win.h"
#include "core/utf.h"
#include "net/session_fixture.h"
#include "support/box_answerer_win.h"
#include "support/gdi_frames_win.h"
#include "support/hwnd_surface_win.h"
#include "support/test_files.h"
#include "support/test_game_win.h"
#include "ui/tray_window_layout.h"
#include "ui/tray_window_win.h"

namespace qn {
namespace {

constexpr RECT kGameRect = {100, 60, 1060, 660};
constexpr RECT kDrawerRect = {100, 440, 1060, 660};
constexpr wchar_t kRiver[] = L"How do I cross the black river?";
constexpr wchar_t kHeldBack[] = L"I have no note that answers this at your point in the game.";
constexpr wchar_t kGatedToTheStart[] =
    L"The Lantern of Greyhollow \u2014 progress not set, gated to the start";

uint32_t Windows10() { return 19045; }
bool Supported() { return true; }

StartChecks WineChecks() {
  StartChecks checks{&Windows10, &Supported, {}, {}};
  checks.drawer.surface = [] { return test::MakeHwndSurface(); };
  checks.drawer.frames = [] { return test::MakeGdiFrameSource(); };
  return checks;
}

bool StartsWith(const std::wstring& text, std::wstring_view start) {
  return text.rfind(start, 0) == 0;
}

class ServiceChatTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* url = std::getenv("HINTWICK_SERVICE_URL");
    ASSERT_NE(url, nullptr) << "run through ctest, whose fixture starts the service";
    RemoveStateFiles();
    WriteConfigFor(url);
  }
  void TearDown() override {
    app_.reset();
    RemoveStateFiles();
  }

  // Each run makes an account of its own: the fixture's service outlives one run of the test.
  void Register() {
    Session session;
    session.Start();
    const std::string email = "player" + std::to_string(GetTickCount64()) + "@example.org";
    ASSERT_EQ(session.Register(email, "correct-horse-battery"), ServiceFailure::kNone);
  }

  Conversation& Chat() { return app_->Chat(); }
  const std::wstring& Status() { return Chat().Model().StatusLine(); }
  std::wstring LastNotice() {
    for (auto m = Chat().Model().Messages().rbegin(); m != Chat().Model().Messages().rend(); ++m) {
      if (m->role == kRoleNotice) return m->raw;
    }
    return L"";
  }

  bool OpenDrawerUntilStatus(std::wstring_view wanted) {
    app_->Drawer().Open();
    return test::PumpUntil([&] { return Status() == wanted; });
  }
  // Returns the answer's words, or what the conversation ended with instead.
  std::wstring Ask(const std::wstring& question) {
    const std::vector<ChatMessage>& messages = Chat().Model().Messages();
    const size_t before = messages.size();
    Chat().SendPrompt(question);
    EXPECT_TRUE(test::PumpUntil([&] { return !Chat().Model().Waiting(); })) << question;
    transcript_ += "Player: " + WideToUtf8(question) + "\n\n";
    std::wstring answer;
    for (size_t i = before; i < messages.size(); ++i) {
      const bool answered = messages[i].role == kRoleAnswer;
      transcript_ += (answered ? "Hintwick: " : "") + WideToUtf8(messages[i].raw) + "\n\n";
      if (answered || answer.empty()) answer = messages[i].raw;
    }
    return answer;
  }

  void ResetProgressInTheSettingsWindow() {
    test::BoxAnswerer boxes(IDYES);
    PostMessageW(app_->MessageWindow(), WM_COMMAND, kCmdAccount, 0);
    HWND settings = nullptr;
    ASSERT_TRUE(test::PumpUntil([&] {
      settings = FindWindowW(kTrayWindowClass, nullptr);
      return settings != nullptr;
    }));
    // The record is read, and the reset made, by the window's worker.
    ASSERT_TRUE(test::PumpUntil([&] { return IsWindowEnabled(GetDlgItem(settings, kIdResetProgress)); }));
    SendDlgItemMessageW(settings, kIdResetProgress, BM_CLICK, 0, 0);
    EXPECT_TRUE(test::PumpUntil([&] { return ShownText(settings, kIdActionStatus) == L"Progress reset."; }));
    SendMessageW(settings, WM_CLOSE, 0, 0);
  }

  // For the newcomer's demo, once the drawer has drawn the last answer: its frames come from
  // a timer, so the picture is taken after a few of them.
  void LeaveSceneAndTranscript() {
    test::PumpUntil([] { return false; }, 1000);
    const std::vector<uint32_t> drawer = test::ReadScreen(kDrawerRect);
    EXPECT_TRUE(test::WritePng(test::NextToProgram(L"demo_drawer.png"),
                               kDrawerRect.right - kDrawerRect.left,
                               kDrawerRect.bottom - kDrawerRect.top, drawer));
    test::WriteFileBytes(test::NextToProgram(L"demo_transcript.txt"), transcript_);
  }

  std::string transcript_;
  std::unique_ptr<App> app_;
};

TEST_F(ServiceChatTest, HeldBackUntilThePlayerIsThereThenAnsweredAndResetToTheStart) {
  const ComApartment com(COINIT_APARTMENTTHREADED);  // the picture is written with WIC
  Register();
  app_ = std::make_unique<App>(GetModuleHandleW(nullptr), WineChecks());
  ASSERT_TRUE(app_->Init());
  const test::TestGame game(kGameRect);
  ASSERT_TRUE(game.window());
  ASSERT_TRUE(OpenDrawerUntilStatus(kGatedToTheStart)) << Status();

  Ask(L"I'm in the village");
  EXPECT_EQ(LastNotice(), L"Noted \u2014 now at The Drowned Village");
  EXPECT_TRUE(StartsWith(Ask(kRiver), kHeldBack)) << "the river lies in the next stage";

  Ask(L"I just beat the village");
  EXPECT_EQ(LastNotice(), L"Noted \u2014 past The Drowned Village; now at Whisperwood");
  EXPECT_EQ(Status(), L"hintwick_test_game \u2014 Whisperwood");
  const std::wstring answer = Ask(kRiver);
  EXPECT_NE(answer.find(L"From the notes: Crossing the black river"), std::wstring::npos) << answer;
  LeaveSceneAndTranscript();

  ResetProgressInTheSettingsWindow();
  ASSERT_TRUE(game.BringToFront());
  ASSERT_TRUE(OpenDrawerUntilStatus(kGatedToTheStart)) << Status();
  EXPECT_TRUE(StartsWith(Ask(kRiver), kHeldBack)) << "the reset took the player back";
}

}  // namespace
}  // namespace qn
