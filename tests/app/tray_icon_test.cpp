#include "app/tray_icon_win.h"

#include <gtest/gtest.h>
#include <shellapi.h>

#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "app/tray_menu.h"
#include "chat/offscreen_target_win.h"
#include "core/handles.h"
#include "core/settings.h"
#include "support/fake_tray_win.h"

namespace qn {

void PrintTo(const TrayMenuEntry& entry, std::ostream* out) {
  *out << entry.command << " \"" << std::string(entry.text.begin(), entry.text.end()) << '"';
}

namespace {

using test::CreateTestWindow;
using test::FakeTray;
using test::Notification;
using test::UnderWine;

constexpr UINT_PTR kFindMenuTimer = 1, kCloseMenuTimer = 2;

// Reads the open menu from inside TrackPopupMenu's modal loop, leaves a picture of it, and
// closes it: by choosing its last entry from the keyboard, or by cancelling.
struct MenuProbe {
  ULONGLONG deadline = GetTickCount64() + 10000;
  bool choose_last = false;
  std::wstring picture;
  std::vector<TrayMenuEntry> entries;
  bool all_enabled = true;
  HWND menu_owner = nullptr, foreground = nullptr;
  RECT rect = {};
  size_t picture_colours = 0;
  bool picture_written = false;
};

struct Owner {
  MenuProbe* probe = nullptr;
  std::vector<WPARAM> commands;
} g_owner;

HWND OpenMenuWindow() {
  for (HWND window = FindWindowExW(nullptr, nullptr, L"#32768", nullptr); window;
       window = FindWindowExW(nullptr, window, L"#32768", nullptr)) {
    if (GetWindowThreadProcessId(window, nullptr) == GetCurrentThreadId() &&
        IsWindowVisible(window)) {
      return window;
    }
  }
  return nullptr;
}

void ReadEntries(HMENU menu, MenuProbe& probe) {
  for (int i = 0; i < GetMenuItemCount(menu); ++i) {
    wchar_t text[128] = {};
    MENUITEMINFOW info = {};
    info.cbSize = sizeof(info);
    info.fMask = MIIM_FTYPE | MIIM_ID | MIIM_STATE | MIIM_STRING;
    info.dwTypeData = text;
    info.cch = static_cast<UINT>(std::size(text));
    GetMenuItemInfoW(menu, static_cast<UINT>(i), TRUE, &info);
    const bool separator = (info.fType & MFT_SEPARATOR) != 0;
    probe.entries.push_back({separator ? 0u : info.wID, text});
    // Separators read as disabled.
    if (!separator && (info.fState & MFS_DISABLED)) probe.all_enabled = false;
  }
}

// The screen as the user sees it around the menu. False while the menu is not on the screen
// yet (all one colour): Wine hands a window's drawing to X a moment after it is made.
bool TakePicture(MenuProbe& probe) {
  RECT area = probe.rect;
  const RECT screen_rect = {0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
  InflateRect(&area, 16, 16);
  if (!IntersectRect(&area, &area, &screen_rect)) return false;
  const LONG width = area.right - area.left, height = area.bottom - area.top;
  UniqueHdc screen(CreateDCW(L"DISPLAY", nullptr, nullptr, nullptr));
  UniqueHdc memory(CreateCompatibleDC(screen.get()));
  BITMAPINFO format = {};
  format.bmiHeader.biSize = sizeof(format.bmiHeader);
  format.bmiHeader.biWidth = width;
  format.bmiHeader.biHeight = -height;  // top row first
  format.bmiHeader.biPlanes = 1;
  format.bmiHeader.biBitCount = 32;
  void* bits = nullptr;
  UniqueHbitmap bitmap(CreateDIBSection(screen.get(), &format, DIB_RGB_COLORS, &bits, nullptr, 0));
  if (!screen || !memory || !bitmap) return false;
  const HGDIOBJ previous = SelectObject(memory.get(), bitmap.get());
  BitBlt(memory.get(), 0, 0, width, height, screen.get(), area.left, area.top, SRCCOPY);
  SelectObject(memory.get(), previous);
  GdiFlush();
  std::vector<uint32_t> pixels(static_cast<const uint32_t*>(bits),
                               static_cast<const uint32_t*>(bits) + width * height);
  for (uint32_t& pixel : pixels) pixel |= 0xFF000000u;  // BitBlt leaves alpha at zero
  probe.picture_colours = std::set<uint32_t>(pixels.begin(), pixels.end()).size();
  if (probe.picture_colours < 3) return false;
  probe.picture_written = test::WritePng(test::NextToProgram(probe.picture), width, height, pixels);
  return true;
}

void FindMenu(HWND owner, MenuProbe& probe) {
  const HWND menu_window = OpenMenuWindow();
  if (menu_window && probe.entries.empty()) {
    ReadEntries(reinterpret_cast<HMENU>(SendMessageW(menu_window, MN_GETHMENU, 0, 0)), probe);
    GetWindowRect(menu_window, &probe.rect);
    probe.menu_owner = GetWindow(menu_window, GW_OWNER);
    probe.foreground = GetForegroundWindow();
  }
  const bool done = menu_window && TakePicture(probe);
  if (!done && GetTickCount64() < probe.deadline) return;
  KillTimer(owner, kFindMenuTimer);
  if (!done || !probe.choose_last) {
    EndMenu();
    return;
  }
  // The menu loop takes the thread's keyboard messages whichever window they name.
  PostMessageW(owner, WM_KEYDOWN, VK_UP, 0);
  PostMessageW(owner, WM_KEYDOWN, VK_RETURN, 0);
  SetTimer(owner, kCloseMenuTimer, 20, nullptr);
}

LRESULT CALLBACK OwnerProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_COMMAND) g_owner.commands.push_back(LOWORD(wparam));
  if (message == WM_TIMER && wparam == kFindMenuTimer && g_owner.probe) {
    FindMenu(window, *g_owner.probe);
  }
  if (message == WM_TIMER && wparam == kCloseMenuTimer && g_owner.probe &&
      GetTickCount64() > g_owner.probe->deadline) {
    EndMenu();  // the keyboard did not reach the menu
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

class TrayIconTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!UnderWine()) GTEST_SKIP() << "reads the notification area in Wine's own format";
    ASSERT_TRUE(owner_);
    ASSERT_TRUE(shell_.IsTheOneFound()) << "another Shell_TrayWnd is found first";
  }
  void TearDown() override { g_owner = {}; }

  MenuProbe OpenMenu(TrayIcon& tray, std::wstring_view hotkey, bool signed_in, std::wstring picture,
                     bool choose_last) {
    MenuProbe probe;
    probe.picture = std::move(picture);
    probe.choose_last = choose_last;
    g_owner.probe = &probe;
    SetTimer(owner_.get(), kFindMenuTimer, 10, nullptr);
    tray.ShowTrayMenu(hotkey, signed_in);
    KillTimer(owner_.get(), kFindMenuTimer);
    KillTimer(owner_.get(), kCloseMenuTimer);
    g_owner.probe = nullptr;
    return probe;
  }

  // Posted commands arrive once the loop runs again.
  void Pump() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
  }

  FakeTray shell_;
  // Message-only, as the application's own window is.
  UniqueHwnd owner_{CreateTestWindow(L"HintwickTrayTestOwner", &OwnerProc, 0, HWND_MESSAGE)};
  ComApartment com_{COINIT_APARTMENTTHREADED};
};

TEST_F(TrayIconTest, AddsOnceRemovesOnceAndComesBackWithTheShell) {
  TrayIcon tray(owner_.get(), GetModuleHandleW(nullptr));
  ASSERT_TRUE(tray.AddTrayIcon());
  tray.ShowTrayBalloon(kBalloonRunning);
  tray.ShowTrayBalloon(std::wstring(300, L'x'));
  // As the shell announces itself: the message-only owner cannot hear it, the listener must.
  PostMessageW(HWND_BROADCAST, RegisterWindowMessageW(L"TaskbarCreated"), 0, 0);
  Pump();
  EXPECT_FALSE(tray.OnShellMessage(WM_APP + 7));
  tray.RemoveTrayIcon();
  tray.RemoveTrayIcon();
  EXPECT_FALSE(tray.added());

  const auto& got = shell_.received;
  ASSERT_EQ(got.size(), 5u);
  const UINT add_flags = NIF_MESSAGE | NIF_ICON | NIF_TIP;
  for (const size_t i : {0u, 3u}) {  // first add, and again for the restarted shell
    EXPECT_EQ(got[i].message, static_cast<ULONG_PTR>(NIM_ADD)) << i;
    EXPECT_EQ(got[i].flags, add_flags) << i;
    EXPECT_EQ(got[i].callback, 0x8001u) << i;
    EXPECT_EQ(got[i].tip, L"Hintwick - Shift+Alt+X") << i;
    EXPECT_EQ(got[i].icon_width, static_cast<UINT>(GetSystemMetrics(SM_CXSMICON))) << i;
  }
  for (const size_t i : {1u, 2u}) {
    EXPECT_EQ(got[i].message, static_cast<ULONG_PTR>(NIM_MODIFY)) << i;
    EXPECT_EQ(got[i].flags, static_cast<UINT>(NIF_INFO)) << i;
    EXPECT_EQ(got[i].info_flags, static_cast<DWORD>(NIIF_INFO)) << i;
    EXPECT_EQ(got[i].info_title, L"Hintwick") << i;
  }
  EXPECT_EQ(got[1].info, kBalloonRunning);
  EXPECT_EQ(got[2].info, std::wstring(255, L'x'));
  EXPECT_EQ(got[4].message, static_cast<ULONG_PTR>(NIM_DELETE));
  for (const Notification& each : got) {
    EXPECT_EQ(each.owner, owner_.get());
    EXPECT_EQ(each.id, 1u);
  }
}

TEST_F(TrayIconTest, RefusedAddLeavesNothingToRemove) {
  shell_.refuse = true;
  {
    TrayIcon tray(owner_.get(), GetModuleHandleW(nullptr));
    EXPECT_FALSE(tray.AddTrayIcon());
    EXPECT_FALSE(tray.added());
    // The listener is never seen, not even in Alt+Tab, and goes with the icon.
    const HWND listener = FindWindowW(kTrayListenerClass, nullptr);
    EXPECT_TRUE(listener && !IsWindowVisible(listener) &&
                (GetWindowLongPtrW(listener, GWL_EXSTYLE) & WS_EX_TOOLWINDOW));
  }
  EXPECT_FALSE(FindWindowW(kTrayListenerClass, nullptr));
  ASSERT_EQ(shell_.received.size(), 1u);  // the add; neither a removal nor the destructor's
  EXPECT_EQ(shell_.received[0].message, static_cast<ULONG_PTR>(NIM_ADD));
}

TEST_F(TrayIconTest, MenuNamesTheCurrentHotkeyAndTheSessionWhileTheTooltipStays) {
  TrayIcon tray(owner_.get(), GetModuleHandleW(nullptr));
  ASSERT_TRUE(tray.AddTrayIcon());
  SetCursorPos(400, 500);
  const MenuProbe out = OpenMenu(tray, HotkeyText(kModCtrl | kModAlt, VK_F1), false,
                                 L"tray_menu_signed_out.png", false);
  const MenuProbe in = OpenMenu(tray, L"Shift+Alt+X", true, L"tray_menu_signed_in.png", true);
  Pump();

  const std::vector<TrayMenuEntry> expected_out = {
      {101, L"Hintwick (Ctrl+Alt+F1)"}, {0, L""}, {102, L"Sign in..."},
      {103, L"Check for updates..."},   {0, L""}, {100, L"Exit"}};
  std::vector<TrayMenuEntry> expected_in = expected_out;
  expected_in[0].text = L"Hintwick (Shift+Alt+X)";
  expected_in[2].text = L"Account and settings...";
  EXPECT_EQ(out.entries, expected_out);
  EXPECT_EQ(in.entries, expected_in);
  for (const MenuProbe* probe : {&out, &in}) {
    EXPECT_TRUE(probe->all_enabled);
    // Owned by a window that can take the foreground, so a click elsewhere closes it.
    EXPECT_EQ(probe->menu_owner, FindWindowW(kTrayListenerClass, nullptr));
    EXPECT_EQ(probe->foreground, probe->menu_owner);
    EXPECT_TRUE(probe->picture_written) << "colours seen: " << probe->picture_colours;
    // Opened at the cursor, above it.
    EXPECT_EQ(probe->rect.left, 400);
    EXPECT_EQ(probe->rect.bottom, 500);
  }
  // Cancelling sends nothing; choosing the last entry sends Exit.
  EXPECT_EQ(g_owner.commands, std::vector<WPARAM>{kCmdExit});
  ASSERT_EQ(shell_.received.size(), 1u);  // the tooltip was never touched again
  EXPECT_EQ(shell_.received[0].tip, L"Hintwick - Shift+Alt+X");
}

}  // namespace
}  // namespace qn
