#include "app/tray_icon_win.h"

#include <gtest/gtest.h>
#include <shellapi.h>

#include <set>
#include <string>
#include <vector>

#include "app/tray_menu.h"
#include "chat/offscreen_target_win.h"
#include "core/handles.h"
#include "support/fake_tray_win.h"
#include "support/gdi_frames_win.h"

namespace qn {
namespace {

// What the open menu showed, read from inside TrackPopupMenu's modal loop.
struct MenuSeen {
  ULONGLONG deadline = GetTickCount64() + 10000;
  std::vector<TrayMenuEntry> entries;
  RECT rect = {};
  HWND foreground = nullptr;
  bool chosen = false;
};
MenuSeen* g_seen = nullptr;
std::vector<WPARAM> g_commands;

HWND OpenMenuWindow() {
  HWND window = nullptr;
  while ((window = FindWindowExW(nullptr, window, L"#32768", nullptr)) &&
         !(IsWindowVisible(window) &&
           GetWindowThreadProcessId(window, nullptr) == GetCurrentThreadId())) {
  }
  return window;
}

std::vector<TrayMenuEntry> ReadEntries(HMENU menu) {
  std::vector<TrayMenuEntry> entries;
  for (int i = 0; i < GetMenuItemCount(menu); ++i) {
    wchar_t text[128] = {};
    GetMenuStringW(menu, static_cast<UINT>(i), text, 128, MF_BYPOSITION);
    entries.push_back({GetMenuItemID(menu, i), text});
  }
  return entries;
}

// The menu left beside the test for a look by eye. False while it is all one colour: Wine
// hands a window's drawing to X a moment after the window is made.
bool TakePicture(const RECT& rect) {
  const std::vector<uint32_t> pixels = test::ReadScreen(rect);
  return std::set<uint32_t>(pixels.begin(), pixels.end()).size() > 2 &&
         test::WritePng(test::NextToProgram(L"tray_menu.png"),
                        static_cast<uint32_t>(rect.right - rect.left),
                        static_cast<uint32_t>(rect.bottom - rect.top), pixels);
}

// On a timer within the menu's loop: reads the menu, leaves its picture (the last menu's
// stays) and chooses its last entry from the keyboard.
void ProbeMenu(HWND owner, MenuSeen& seen) {
  if (GetTickCount64() > seen.deadline) EndMenu();
  const HWND menu = OpenMenuWindow();
  if (!menu || seen.chosen) return;
  seen.entries = ReadEntries(reinterpret_cast<HMENU>(SendMessageW(menu, MN_GETHMENU, 0, 0)));
  GetWindowRect(menu, &seen.rect);
  seen.foreground = GetForegroundWindow();
  if (!TakePicture(seen.rect)) return;
  // The menu loop takes the thread's keyboard messages whichever window they name.
  PostMessageW(owner, WM_KEYDOWN, VK_UP, 0);
  PostMessageW(owner, WM_KEYDOWN, VK_RETURN, 0);
  seen.chosen = true;
}

LRESULT CALLBACK OwnerProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_COMMAND) g_commands.push_back(LOWORD(wparam));
  if (message == WM_TIMER && g_seen) ProbeMenu(window, *g_seen);
  return DefWindowProcW(window, message, wparam, lparam);
}

MenuSeen OpenMenu(HWND owner, TrayIcon& tray, std::wstring_view hotkey, bool signed_in) {
  MenuSeen seen;
  g_seen = &seen;
  SetTimer(owner, 1, 10, nullptr);
  tray.ShowTrayMenu(hotkey, signed_in);
  KillTimer(owner, 1);
  g_seen = nullptr;
  return seen;
}

// One icon's life: a balloon, both menus, a restarted shell and a removal asked for twice.
TEST(TrayIcon, FollowsTheShellAndDeliversTheChosenCommand) {
  if (!test::UnderWine()) GTEST_SKIP() << "reads the notification area in Wine's own format";
  test::FakeTray shell;
  ASSERT_TRUE(shell.IsTheOneFound()) << "another Shell_TrayWnd is found first";
  // Message-only, as the application's own window is.
  const UniqueHwnd owner(
      test::CreateTestWindow(L"HintwickTrayTestOwner", &OwnerProc, 0, HWND_MESSAGE));
  const ComApartment com(COINIT_APARTMENTTHREADED);
  TrayIcon tray(owner.get(), GetModuleHandleW(nullptr));
  ASSERT_TRUE(tray.AddTrayIcon());
  tray.ShowTrayBalloon(std::wstring(300, L'x'));
  SetCursorPos(400, 500);
  const MenuSeen out = OpenMenu(owner.get(), tray, L"Ctrl+Alt+F1", false);
  const MenuSeen in = OpenMenu(owner.get(), tray, L"Shift+Alt+X", true);
  // As the shell announces itself: the message-only owner cannot hear it, the listener must.
  PostMessageW(HWND_BROADCAST, RegisterWindowMessageW(L"TaskbarCreated"), 0, 0);
  for (MSG message; PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE);) DispatchMessageW(&message);
  tray.RemoveTrayIcon();
  tray.RemoveTrayIcon();

  EXPECT_EQ(out.entries, TrayMenuEntries(L"Ctrl+Alt+F1", false));
  EXPECT_EQ(in.entries, TrayMenuEntries(L"Shift+Alt+X", true));
  EXPECT_EQ(g_commands, (std::vector<WPARAM>{kCmdExit, kCmdExit}));
  // Never seen, not even in Alt+Tab, yet in the foreground while the menu is open, so that a
  // click elsewhere closes it.
  const HWND listener = FindWindowW(kTrayListenerClass, nullptr);
  EXPECT_TRUE(listener && !IsWindowVisible(listener) &&
              (GetWindowLongPtrW(listener, GWL_EXSTYLE) & WS_EX_TOOLWINDOW));
  for (const MenuSeen* seen : {&out, &in}) {
    EXPECT_EQ(seen->foreground, listener);
    EXPECT_TRUE(seen->rect.left == 400 && seen->rect.bottom == 500) << "opens above the cursor";
  }
  // Added, the balloon, added again for the new shell, removed once; the menus leave the
  // tooltip alone. Wine passes on only the fields whose NIF_ flag is set.
  const auto& got = shell.received;
  ASSERT_EQ(got.size(), 4u);
  for (const size_t i : {0u, 2u}) {
    EXPECT_EQ(got[i].message, static_cast<ULONG_PTR>(NIM_ADD)) << i;
    EXPECT_EQ(got[i].tip, L"Hintwick - Shift+Alt+X") << i;
    EXPECT_EQ(got[i].icon_width, static_cast<UINT>(GetSystemMetrics(SM_CXSMICON))) << i;
  }
  EXPECT_EQ(got[1].info_title, L"Hintwick");
  EXPECT_EQ(got[1].info, std::wstring(255, L'x'));
  EXPECT_EQ(got[3].message, static_cast<ULONG_PTR>(NIM_DELETE));
  for (const test::Notification& each : got) EXPECT_EQ(each.id, 1u);
}

}  // namespace
}  // namespace qn
