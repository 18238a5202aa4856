// The program against the real service on loopback, as a player meets it on a first day: an
// account made in the settings window, the catalogue's name and the recorded progress, a reset,
// a restart that signs in from token.bin, and an access token that has expired by the next
// request. The ctest fixture starts the service with two-second access tokens and the stand-in
// game's pack.
#include "ui/tray_window_win.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <tuple>

#include "net/session_fixture.h"
#include "support/box_answerer_win.h"
#include "ui/tray_window_layout.h"

namespace qn {
namespace {

constexpr char kGame[] = "hintwick_test_game";

// The window's requests run on a worker; Save is held back until the outcome is shown.
void Settle(HWND window) {
  EXPECT_TRUE(test::PumpUntil([&] { return IsWindowEnabled(GetDlgItem(window, kIdSave)); }));
}

GameLookupResult LookUp(Session& session) {
  ReceiverWindow receiver;
  session.LookupGameAsync(kGame, receiver.get(), kMsgProgressSnapshot);
  EXPECT_TRUE(receiver.PumpUntil([&] { return !receiver.results.empty(); }));
  return receiver.results.empty() ? GameLookupResult{} : *receiver.results.back();
}

TEST(ServiceTest, AFirstDayAgainstTheRealService) {
  const char* url = std::getenv("HINTWICK_SERVICE_URL");
  ASSERT_NE(url, nullptr) << "run through ctest, whose fixture starts the service";
  RemoveStateFiles();
  WriteConfigFor(url);
  test::CapturedLog log;
  // Each run makes an account of its own: the fixture's service outlives one run of this test.
  const std::wstring email = L"player" + std::to_wstring(GetTickCount64()) + L"@example.org";
  {
    Session session;
    EXPECT_FALSE(session.Start());
    test::BoxAnswerer boxes(IDYES);
    TrayWindow window(GetModuleHandleW(nullptr), {[] {}, [] {}});
    ASSERT_TRUE(window.Open(session, kGame));
    SetDlgItemTextW(window.get(), kIdEmail, email.c_str());
    SetDlgItemTextW(window.get(), kIdPassword, L"correct-horse-battery");
    SendDlgItemMessageW(window.get(), kIdCreateAccount, BM_CLICK, 0, 0);
    Settle(window.get());
    EXPECT_EQ(ShownText(window.get(), kIdAccountStatus),
              L"Signed in as " + email + L". Press the hotkey over a game to start.");

    MemoryPatch reached;
    reached.stage = "The Lighthouse";
    reached.stage_ordinal = 5;
    ASSERT_TRUE(session.PatchMemory(kGame, reached));
    const GameLookupResult seen = LookUp(session);
    EXPECT_EQ(std::tuple(seen.known, seen.display_name, seen.stage, seen.stage_ordinal),
              std::tuple(true, std::string("The Lantern of Greyhollow"), std::string("The Lighthouse"), 5));

    SendDlgItemMessageW(window.get(), kIdResetProgress, BM_CLICK, 0, 0);
    Settle(window.get());
    EXPECT_EQ(ShownText(window.get(), kIdActionStatus), L"Progress reset.");
    EXPECT_EQ(ShownText(window.get(), kIdProgress)
                  .rfind(L"hintwick_test_game: nothing recorded yet", 0),
              0u)
        << "the stage went back to the start";
    window.Close();
  }
  // A restart finds the session in token.bin; once the access token it got has expired, the
  // next request is refused, refreshed once and sent again. (Tokens may also have expired
  // above, where the session refreshed them the same way.)
  log.Clear();
  Session restarted;
  ASSERT_TRUE(restarted.Start());
  EXPECT_EQ(log.Count("access token refreshed"), 1u) << log.Text();
  Sleep(2500);
  const MemoryRecord record = restarted.GetMemory(kGame, 5000);
  EXPECT_TRUE(record.loaded);
  EXPECT_EQ(std::tuple(record.stage, record.directness), std::tuple(std::string(), std::string("hints")));
  EXPECT_EQ(log.Count("access token refreshed"), 2u) << log.Text();
}

}  // namespace
}  // namespace qn
