// The shipped Hintwick.exe as Windows starts and sees it: mistakes here build cleanly and only
// show on a player's machine (two instances, a missing DLL, a refusal to start, a blurry icon).
#include <windows.h>
#include <winver.h>  // WIN32_LEAN_AND_MEAN leaves it out of windows.h

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "app/messages.h"
#include "app/single_instance.h"
#include "app/tray_menu.h"
#include "core/data_dir.h"
#include "core/handles.h"
#include "core/utf.h"
#include "setup/updater.h"
#include "support/fake_service.h"
#include "support/fake_tray_win.h"
#include "support/test_files.h"

namespace qn {
namespace {

using test::ReadAt;

class HintwickExeTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (path_.empty()) GTEST_SKIP() << "HINTWICK_EXE is not set; run through ctest";
    module_.reset(LoadLibraryExW(path_.c_str(), nullptr,
                                 LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE));
    ASSERT_TRUE(module_) << "LoadLibraryExW failed: " << GetLastError();
  }
  std::string_view Resource(LPCWSTR type, WORD id) const {
    HRSRC info = FindResourceW(module_.get(), MAKEINTRESOURCEW(id), type);
    const void* data = info ? LockResource(LoadResource(module_.get(), info)) : nullptr;
    if (!data) return {};
    return {static_cast<const char*>(data), SizeofResource(module_.get(), info)};
  }
  void StartAndExpectItToEnd() const {
    const test::ProcessResult result = test::RunProcess(path_, L"", 60000);
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u);
  }

  std::wstring path_ = test::HintwickExePath().value_or(L"");
  UniqueHmodule module_;
};

// This process plays the running instance, first without its message window: a second start
// leaves that log alone, posts one note when it can and ends; without the mutex it is first.
TEST_F(HintwickExeTest, ASecondStartHandsOverAndEnds) {
  const std::wstring log = DataDir() + L"\\hintwick.log";
  test::WriteFileBytes(log, "the running instance's log");
  UniqueKernelHandle mutex(CreateMutexW(nullptr, TRUE, kSingleInstanceMutexName));
  StartAndExpectItToEnd();
  const UniqueHwnd window(
      test::CreateTestWindow(kMessageWindowClass, &DefWindowProcW, 0, HWND_MESSAGE));
  StartAndExpectItToEnd();
  MSG note{};
  EXPECT_TRUE(PeekMessageW(&note, window.get(), kMsgAlreadyRunning, kMsgAlreadyRunning, PM_REMOVE));
  EXPECT_EQ(test::ReadFileBytes(log), "the running instance's log");
  mutex.reset();
  // First now, it refuses to run, as on any system without window capture (Wine is one).
  std::vector<std::wstring> boxes;
  const test::ProcessResult refused = test::RunProcess(path_, L"", 60000, &boxes);
  EXPECT_TRUE(refused.finished);
  EXPECT_EQ(refused.exit_code, 1u);
  EXPECT_EQ(boxes, std::vector<std::wstring>{
                       L"Screen capture is unavailable on this system, so the drawer cannot be drawn."});
  const std::string started = test::ReadFileBytes(log).value_or("");
  EXPECT_EQ(started.rfind("\xEF\xBB\xBF=== Hintwick start (", 0), 0u);
  EXPECT_NE(started.find("ERROR Windows.Graphics.Capture reports unsupported"), std::string::npos);
  EXPECT_NE(started.find("INFO  shutdown"), std::string::npos) << started;
}

// A console program would flash a terminal at every logon, players have none of the
// compiler's runtime DLLs, and Windows refuses to start an exe whose manifest it cannot
// resolve (an activation context built from the resource takes the same path).
TEST_F(HintwickExeTest, IsAGuiProgramThatWindowsCanStartAndNamesItsRelease) {
  // Mapped with the image layout: a relative address is an offset from the base.
  const auto* base = reinterpret_cast<const char*>(reinterpret_cast<uintptr_t>(module_.get()) & ~3);
  const auto* nt = reinterpret_cast<const IMAGE_NT_HEADERS64*>(
      base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
  EXPECT_EQ(nt->OptionalHeader.Subsystem, IMAGE_SUBSYSTEM_WINDOWS_GUI);
  const auto& imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
  ASSERT_NE(import->Name, 0u);
  for (; import->Name != 0; ++import) {
    EXPECT_FALSE(std::string_view(base + import->Name).starts_with("lib")) << base + import->Name;
  }
  EXPECT_NE(Resource(RT_MANIFEST, 1).find("PerMonitorV2"), std::string_view::npos);
  ACTCTXW request{};
  request.cbSize = sizeof(request);
  request.dwFlags = ACTCTX_FLAG_RESOURCE_NAME_VALID;
  request.lpSource = path_.c_str();
  request.lpResourceName = MAKEINTRESOURCEW(1);
  const UniqueHandle<HANDLE, &ReleaseActCtx, MinusOneIsInvalid> context(CreateActCtxW(&request));
  EXPECT_TRUE(context) << "CreateActCtxW failed: " << GetLastError();
  // Explorer shows the version through the translation the block lists: US English, UTF-16.
  std::vector<BYTE> block(GetFileVersionInfoSizeW(path_.c_str(), nullptr));
  GetFileVersionInfoW(path_.c_str(), 0, static_cast<DWORD>(block.size()), block.data());
  wchar_t* text = nullptr;
  UINT length = 0;
  ASSERT_TRUE(VerQueryValueW(block.data(), L"\\StringFileInfo\\040904b0\\ProductVersion",
                             reinterpret_cast<void**>(&text), &length));
  EXPECT_STREQ(text, L"0.1.7");
}

// The shell asks for exact sizes; a near miss is a rescaled, blurry icon.
TEST_F(HintwickExeTest, IconGroupOffersEveryShellSizeAt32Bits) {
  const std::string_view group = Resource(RT_GROUP_ICON, 1);
  std::vector<int> widths;
  for (WORD i = 0; i < ReadAt<WORD>(group, 4); ++i) {
    const std::string_view entry = group.substr(6 + i * 14, 14);  // GRPICONDIRENTRY
    widths.push_back(ReadAt<BYTE>(entry, 0) == 0 ? 256 : ReadAt<BYTE>(entry, 0));
    EXPECT_EQ(ReadAt<WORD>(entry, 6), 32) << widths.back();
    // A DIB's height counts its mask too: Windows (not Wine) shows half an icon otherwise.
    const std::string_view image = Resource(RT_ICON, ReadAt<WORD>(entry, 12));
    if (!image.starts_with("\x89PNG")) {
      EXPECT_EQ(ReadAt<BITMAPINFOHEADER>(image, 0).biHeight, 2 * widths.back());
    }
  }
  std::sort(widths.begin(), widths.end());
  EXPECT_EQ(widths, (std::vector<int>{16, 20, 24, 32, 48, 256}));
}

// Waits for the running instance's message window, and its process.
UniqueKernelHandle RunningInstance(HWND& window) {
  const ULONGLONG deadline = GetTickCount64() + 30000;
  while (!(window = FindWindowExW(HWND_MESSAGE, nullptr, kMessageWindowClass, nullptr)) &&
         GetTickCount64() < deadline) {
    Sleep(50);  // another process: nothing of ours to wait on
  }
  DWORD id = 0;
  if (window) GetWindowThreadProcessId(window, &id);
  return UniqueKernelHandle(OpenProcess(PROCESS_QUERY_LIMITED_INFORMATION | SYNCHRONIZE, FALSE, id));
}

// The update as the player meets it: started over the desktop, the program asks, is answered
// yes, puts the next build (its own bytes with a mark after them) in its place and hands over;
// the next build runs from the same path, tells the old one it has started, removes the old
// file beside its own once that one has ended, and finds itself up to date.
TEST(HintwickUpdate, TheNextBuildRunsFromTheSamePath) {
  const std::optional<std::string> bytes = test::ReadFileBytes(test::SupportProgram(L"hintwick_on_wine.exe"));
  ASSERT_TRUE(bytes);
  const test::TempDir dir;
  const std::wstring exe = dir.File(L"Hintwick.exe");
  test::WriteFileBytes(exe, *bytes);
  const std::string next = *bytes + "the next build";
  test::FakeService fake;
  fake.Script("GET", "/v1/version",
              test::Reply(200, R"({"version":"0.1.8","url":")" + WideToUtf8(fake.BaseUrl()) +
                                   R"(/next.exe","sha256":")" + Updater::Sha256Hex(next) + R"("})"));
  fake.Script("GET", "/v1/version", test::Reply(200, R"({"version":"0.1.7"})"));
  fake.Script("GET", "/next.exe", test::Reply(200, next));
  DeleteFileW((DataDir() + L"\\token.bin").c_str());
  test::WriteFileBytes(DataDir() + L"\\config.json",
                       "{\"base_url\":\"" + WideToUtf8(fake.BaseUrl()) + "\"}");

  std::vector<std::wstring> boxes;
  const test::ProcessResult first = test::RunProcess(exe, L"", 60000, &boxes, IDYES);
  ASSERT_TRUE(first.finished);
  EXPECT_EQ(first.exit_code, 0u);
  ASSERT_EQ(boxes.size(), 1u);
  EXPECT_EQ(boxes[0].rfind(L"A new version of Hintwick is available.", 0), 0u) << boxes[0];
  EXPECT_EQ(test::ReadFileBytes(exe), next);

  HWND window = nullptr;
  const UniqueKernelHandle successor = RunningInstance(window);
  ASSERT_TRUE(successor);
  // The old file goes once the next build has started and the one it replaced has ended.
  for (int i = 0; i < 600 && test::PathExists(exe + L".old"); ++i) Sleep(50);
  PostMessageW(window, WM_COMMAND, kCmdExit, 0);
  EXPECT_EQ(WaitForSingleObject(successor.get(), 30000), WAIT_OBJECT_0);
  const std::string log = test::ReadFileBytes(DataDir() + L"\\hintwick.log").value_or("");
  EXPECT_NE(log.find("INFO  removed the previous version left by an update"), std::string::npos)
      << log;
  EXPECT_FALSE(test::PathExists(exe + L".old"));
  EXPECT_EQ(fake.Requests().size(), 3u) << "asked, downloaded, asked again by the next build";
  DeleteFileW((DataDir() + L"\\config.json").c_str());
}

}  // namespace
}  // namespace qn
