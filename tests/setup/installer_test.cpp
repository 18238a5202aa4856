// The installer on the bench's own profile: the known folders point into a scratch folder,
// and the per-user registry values it touches are put back as they were.
#include <windows.h>

#include <gtest/gtest.h>
#include <shlobj.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "app/single_instance.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/utf.h"
#include "net/token_store.h"
#include "setup/installer.h"
#include "setup/installer_rules.h"
#include "support/box_answerer_win.h"
#include "support/fake_service.h"
#include "support/saved_registry_value_win.h"
#include "support/test_files.h"

namespace qn {
namespace {

using Strings = std::vector<std::wstring>;

// Value name -> text, or "#" and the number, or "?" for another type.
std::map<std::wstring, std::wstring> Values(const wchar_t* key) {
  std::map<std::wstring, std::wstring> values;
  UniqueHkey open;
  RegOpenKeyExW(HKEY_CURRENT_USER, key, 0, KEY_READ, open.put());
  wchar_t name[256];
  alignas(DWORD) BYTE data[2048];
  for (DWORD i = 0, type = 0, chars = 256, size = sizeof(data);
       open && !RegEnumValueW(open.get(), i, name, &chars, nullptr, &type, data, &size);
       ++i, chars = 256, size = sizeof(data)) {
    values[name] = type == REG_SZ      ? reinterpret_cast<const wchar_t*>(data)
                   : type == REG_DWORD ? L"#" + std::to_wstring(*reinterpret_cast<DWORD*>(data))
                                       : L"?";
  }
  return values;
}

// "target|description" as the shell reads the shortcut; empty when there is none.
std::wstring ReadShortcut(const std::wstring& path) {
  ComPtr<IShellLinkW> link;
  CoCreateInstance(CLSID_ShellLink, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(link.put()));
  wchar_t target[MAX_PATH * 2] = {}, description[256] = {};
  if (!link || FAILED(link.As<IPersistFile>()->Load(path.c_str(), STGM_READ))) return {};
  link->GetPath(target, MAX_PATH * 2, nullptr, 0);
  link->GetDescription(description, 256);
  return std::wstring(target) + L"|" + description;
}

class InstallerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    // The bench's prefix has none: one found here is somebody's and is left alone.
    if (!Values(kUninstallKey).empty()) GTEST_SKIP() << "an uninstall entry is already there";
    std::filesystem::create_directories(Local());  // the Programs folder is left to be made
    local_.Set(Local());
    programs_.Set(Programs());
    Installer::SetLaunchForTesting([this](const std::wstring& exe) { launched_.push_back(exe); });
    Installer::SetEndRunningCopy([] { return EndRunningCopy(30000); });
    boxes_.keep_captions = true;
  }
  void TearDown() override {
    if (!IsSkipped()) RegDeleteKeyW(HKEY_CURRENT_USER, kUninstallKey);
    Installer::SetLaunchForTesting(nullptr);
    Installer::SetEndRunningCopy(nullptr);
    CloseLog();
  }

  std::wstring Local() const { return scratch_.File(L"Local"); }
  std::wstring Programs() const { return scratch_.File(L"Programs"); }
  std::wstring Data(const wchar_t* name = L"") const { return Local() + L"\\Hintwick\\" + name; }
  std::wstring Exe() const { return Data(L"Hintwick.exe"); }
  std::wstring Link() const { return ReadShortcut(Programs() + L"\\Hintwick.lnk"); }
  bool Logged(const std::string& line) const {
    return test::ReadFileBytes(Data(L"hintwick.log")).value_or("").find(line) != std::string::npos;
  }
  // Boxes beyond the script are cancelled.
  int Run(const Strings& arguments, std::deque<WPARAM> answers = {}) {
    boxes_.script = std::move(answers);
    boxes_.texts.clear();
    int code = -1;
    EXPECT_TRUE(Installer::HandleArguments(arguments, &code));
    return code;
  }
  // With what saves cut short leave, which a purge takes too.
  void WriteData() {
    TokenStore::Save("refresh-1");
    for (auto name : {L"crash-20261123-151500.dmp", L"config.json.tmp", L"token.bin.12.tmp"})
      test::WriteFileBytes(Data(name), "");
  }
  // The program (with the stand-ins Wine needs) running from the install folder, once it has
  // its window.
  UniqueKernelHandle StartCopy() {
    std::filesystem::create_directories(Data());
    test::WriteFileBytes(Exe(), *test::ReadFileBytes(test::SupportProgram(L"hintwick_on_wine.exe")));
    STARTUPINFOW startup{};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION started{};
    std::wstring command = L"\"" + Exe() + L"\"";
    EXPECT_TRUE(CreateProcessW(Exe().c_str(), command.data(), nullptr, nullptr, FALSE, 0, nullptr,
                               nullptr, &startup, &started));
    const UniqueKernelHandle thread(started.hThread);
    for (int i = 0; i < 600 && !FindWindowExW(HWND_MESSAGE, nullptr, kMessageWindowClass, nullptr);
         ++i) {
      Sleep(50);  // another process: nothing of ours to wait on
    }
    return UniqueKernelHandle(started.hProcess);
  }

  // Every trace of an install, read back the way the shell and the registry give it.
  void ExpectInstalled(bool autostart, const std::wstring& from) {
    EXPECT_EQ(test::ReadFileBytes(Exe()), test::ReadFileBytes(from));
    EXPECT_EQ(Link(), Exe() + L"|Ask about the game you are playing, without spoilers");
    const std::wstring quoted = L"\"" + Exe() + L"\"";
    const std::map<std::wstring, std::wstring> entry = {
        {L"DisplayName", L"Hintwick"},
        {L"DisplayVersion", L"0.1.0"},
        {L"Publisher", L"Hintwick"},
        {L"DisplayIcon", Exe()},
        {L"InstallLocation", Local() + L"\\Hintwick"},
        {L"UninstallString", quoted + L" --uninstall"},
        {L"NoModify", L"#1"},
        {L"NoRepair", L"#1"},
        {L"EstimatedSize", L"#4096"}};
    EXPECT_EQ(Values(kUninstallKey), entry);
    EXPECT_EQ(Values(kRunKey)[L"Hintwick"], autostart ? quoted : L"");
    EXPECT_EQ(Installer::IsAutostartEnabled(), autostart);
  }

  const ComApartment com_{COINIT_APARTMENTTHREADED};
  test::TempDir scratch_;
  test::SavedRegistryValue run_{kRunKey, L"Hintwick"}, cleanup_{kRunOnceKey, kCleanupValue};
  test::SavedRegistryValue local_{test::kShellFoldersKey, L"Local AppData"};
  test::SavedRegistryValue programs_{test::kShellFoldersKey, L"Programs"};
  Strings launched_;
  test::BoxAnswerer boxes_{IDCANCEL};
};

// The shipped program, run twice from where it was built and then from the install folder
// as the uninstall entry runs it, so that the file it removes is its own running image.
TEST_F(InstallerTest, TheProgramInstallsOverItselfAndRemovesItsOwnRunningFile) {
  const std::wstring program = test::HintwickExePath().value_or(L"");
  if (program.empty()) GTEST_SKIP() << "HINTWICK_EXE is not set; run through ctest";
  EXPECT_EQ(test::RunProcess(program, L"--autostart --install-silent", 60000).exit_code, 0u);
  ExpectInstalled(true, program);
  EXPECT_TRUE(Logged("INFO  silent install succeeded (autostart on)"));
  test::WriteFileBytes(Exe(), "stale");
  RegSetKeyValueW(HKEY_CURRENT_USER, kUninstallKey, L"DisplayVersion", REG_SZ, L"9", 4);
  EXPECT_EQ(test::RunProcess(program, L"--install-silent", 60000).exit_code, 0u);
  ExpectInstalled(false, program);

  EXPECT_EQ(test::RunProcess(Exe(), L"--uninstall-silent", 60000).exit_code, 0u);
  EXPECT_FALSE(test::PathExists(Exe()));
  EXPECT_EQ(Link() + Values(kUninstallKey)[L"DisplayName"], L"");
  EXPECT_TRUE(Logged("INFO  silent uninstall succeeded (data kept)"));
  // What the next sign-in runs to delete the moved-aside file.
  const std::wstring cleanup = Values(kRunOnceKey)[kCleanupValue];
  const std::wstring moved =
      cleanup.substr(cleanup.find(L'"') + 1, cleanup.size() - cleanup.find(L'"') - 2);
  ASSERT_TRUE(test::PathExists(moved)) << testing::PrintToString(cleanup);
  test::RunProcess(L"C:\\windows\\system32\\cmd.exe", cleanup.substr(8), 60000);
  EXPECT_FALSE(test::PathExists(moved));
}

// In order, on one profile: Cancel leaves nothing at all, and a purge leaves no folder. (No,
// which installs without autostart and removes without the data, is the silent runs' case.)
// A copy running from the install folder is asked to end once the player has said yes, and
// is then replaced or deleted, never moved aside to go on running; a purge signs out.
TEST_F(InstallerTest, InteractiveRunsAskFirstAndCancelChangesNothing) {
  test::FakeService service;
  const std::wstring install = std::wstring(L"Install Hintwick: ") + kInstallQuestion;
  const std::wstring done = std::wstring(L"Hintwick: ") + kInstalledText;
  const std::wstring uninstall = std::wstring(L"Uninstall Hintwick: ") + kUninstallQuestion;
  const std::wstring removed = L"Hintwick: Hintwick has been removed.";
  const struct {
    const wchar_t* mode;
    std::deque<WPARAM> answers;
    Strings boxes;
    bool installed, autostart, data, copy_before, copy_after;
  } steps[] = {
      {L"--install", {IDCANCEL}, {install}, false, false, false, false, false},
      {L"--install", {IDYES, IDOK}, {install, done}, true, true, true, true, false},
      {L"--uninstall", {IDCANCEL}, {uninstall}, true, true, true, true, true},
      {L"--uninstall", {IDYES, IDOK}, {uninstall, removed}, false, false, false, true, false},
  };
  UniqueKernelHandle copy;
  for (const auto& step : steps) {
    SCOPED_TRACE(testing::Message() << "answered " << step.answers.front() << " to " << step.mode);
    launched_.clear();
    if (step.copy_before && !copy) {
      test::WriteFileBytes(Data(L"config.json"),
                           "{\"base_url\":\"" + WideToUtf8(service.BaseUrl()) + "\"}");
      copy = StartCopy();
    }
    EXPECT_EQ(Run({step.mode}, step.answers), 0);
    EXPECT_EQ(boxes_.texts, step.boxes);
    EXPECT_EQ(copy && WaitForSingleObject(copy.get(), 0) == WAIT_TIMEOUT, step.copy_after);
    if (!step.copy_after) copy.reset();
    const bool started = step.mode == std::wstring(L"--install") && step.installed;
    if (started) WriteData();
    EXPECT_EQ(launched_, started ? Strings{Exe()} : Strings{});
    EXPECT_EQ(Values(kUninstallKey).size(), step.installed ? 9u : 0u);
    EXPECT_EQ(Installer::IsAutostartEnabled(), step.autostart);
    EXPECT_EQ(test::PathExists(Data(L"token.bin")), step.data);
    EXPECT_EQ(test::PathExists(Data()), step.installed || step.data);
  }
  if (copy) TerminateProcess(copy.get(), 1);  // left running by a failure above
  EXPECT_EQ(Values(kRunOnceKey)[kCleanupValue], L"");
  const auto requests = service.Requests();
  EXPECT_TRUE(std::any_of(requests.begin(), requests.end(), [](const test::RecordedRequest& r) {
    return r.path == "/v1/auth/logout" && r.body.find("refresh-1") != std::string::npos;
  }));
}

// Faults a player's machine can plausibly have, made for real: what the call returns, what
// the log says, and what is left on disk and in the registry. A program file that cannot be
// removed leaves everything else in place, so that the uninstall can be tried again.
TEST_F(InstallerTest, FaultsStopTheInstallOrAreWorkedAround) {
  UniqueFileHandle held;
  auto hold = [&] {
    held.reset(CreateFileW(Exe().c_str(), GENERIC_READ, 0, nullptr, OPEN_ALWAYS, 0, nullptr));
  };
  const struct {
    const char* fault;
    std::function<void()> make;
    bool uninstall;
    const wchar_t* error;
    const char* log;
    bool exe, entry, link;
  } faults[] = {
      {"the installed program held open",
       [&] {
         std::filesystem::create_directories(Data());
         hold();
       },
       false, kErrorCopy, "ERROR CopyFileW failed: 32", true, false, false},
      {"the program held open at uninstall",
       [&] {
         std::wstring e;
         Installer::Install(true, e);
         hold();
       },
       true, kErrorRemoveProgram, "WARN  DeleteFileW failed: 32", true, true, true},
  };
  for (const auto& f : faults) {
    SCOPED_TRACE(f.fault);
    const test::CapturedLog log;
    f.make();
    std::wstring error;
    EXPECT_EQ(f.uninstall ? Installer::Uninstall(false, error) : Installer::Install(false, error),
              !*f.error);
    EXPECT_EQ(error, f.error);
    EXPECT_TRUE(log.Has(f.log)) << log.Text();
    held.reset();
    EXPECT_EQ(test::PathExists(Exe()), f.exe);
    EXPECT_EQ(Values(kUninstallKey).size(), f.entry ? 9u : 0u);
    EXPECT_EQ(Link() != L"", f.link);
    EXPECT_EQ(Installer::IsAutostartEnabled(), f.entry);  // stays or goes with the entry
    std::filesystem::remove_all(Local() + L"\\Hintwick");
    std::filesystem::remove_all(Programs());
    RegDeleteKeyW(HKEY_CURRENT_USER, kUninstallKey);
  }
}

}  // namespace
}  // namespace qn
