// The updater against the fake service and real files in a scratch folder: what a manifest
// offers, what a download must pass before it is written, and what each failing rename
// leaves on disk.
#include <windows.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "core/handles.h"
#include "core/utf.h"
#include "net/http_client.h"
#include "setup/updater.h"
#include "support/fake_service.h"
#include "support/program_image.h"
#include "support/test_files.h"

namespace qn {
namespace {

using test::Reply;

constexpr char kOldBytes[] = "MZ the running build 0.1.7";
const std::string kNewBytes = test::ProgramImage("stand-in for the new build 0.2.0");
constexpr char kNewSha[] = "6ae3a6e219a544a1de8420a69b1bc2a05f9e71e0d134428f5fd084ad763f7306";
constexpr char kZeroSha[] = "0000000000000000000000000000000000000000000000000000000000000000";
constexpr char kFilePath[] = "/files/Hintwick-0.2.0.exe";
// Made with openssl, as the README's release steps do: key A signs kNewBytes; key B is
// anyone else's.
constexpr char kKeyA[] =
    "04d6a909ce84b7ef277b0058e27c395adb2a9fa721cdbe0c93c5a319687a8e286f7b155bf6e1194c04b1826ff2cd"
    "09271309eae8233a7718900d639d9d299f8ee9";
constexpr char kSignedByA[] =
    "MEQCIBdTjCFEb+fT30RWHkY32h9jy4SivFER9KXHwQx7OxLDAiAy3LeVqNTnxF9PRJuAV/GIVpShupLWlVmOIjQGeF2UUA==";
constexpr char kSignedByB[] =
    "MEUCIHxu6c0pOzit6PVoO8mfCUFEdyYcsLJQMmt0N92LtzDVAiEA9yBrK0568nz+g4fo2sqm2nFreVov6vKPZJUX742dH8k=";

class UpdaterTest : public ::testing::Test {
 protected:
  UpdaterTest() { service_.Script("GET", kFilePath, Reply(200, kNewBytes)); }

  // A fresh scratch folder holding the running build, and a fresh log, for one table row.
  void Reset() {
    held_.clear();  // so that the previous folder can go
    dir_ = std::make_unique<test::TempDir>();
    exe_ = dir_->File(L"Hintwick.exe");
    test::WriteFileBytes(exe_, kOldBytes);
    log_.Clear();
  }
  void Hold(const std::wstring& path) {
    if (!test::PathExists(path)) test::WriteFileBytes(path, "held");
    held_.emplace_back(
        CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(held_.back()) << GetLastError();
  }
  UpdateInfo Offer(const char* sha = kNewSha, const char* signature = "") const {
    return {true, "0.2.0", WideToUtf8(service_.BaseUrl()) + kFilePath, sha, "", false, signature};
  }
  // What is at the executable's name, at ".old" and at ".new": the bytes, "<dir>" for a
  // folder, "-" for nothing.
  std::vector<std::string> OnDisk() const {
    std::vector<std::string> found;
    for (const wchar_t* suffix : {L"", L".old", L".new"}) {
      const DWORD attributes = GetFileAttributesW((exe_ + suffix).c_str());
      if (attributes == INVALID_FILE_ATTRIBUTES) found.push_back("-");
      else if (attributes & FILE_ATTRIBUTE_DIRECTORY) found.push_back("<dir>");
      else found.push_back(test::ReadFileBytes(exe_ + suffix).value_or("?"));
    }
    return found;
  }

  test::CapturedLog log_;
  test::FakeService service_;
  std::unique_ptr<test::TempDir> dir_;
  std::wstring exe_;
  std::vector<UniqueFileHandle> held_;  // closed before the folder goes
};

TEST_F(UpdaterTest, TheManifestDecidesWhatIsOffered) {
  const auto manifest = [](const char* version) {
    return std::string(R"({"version":")") + version + R"(","url":"https://u.example/H.exe",)" +
           R"("sha256":"AB12","notes":"Faster.","signature":"c2ln"})";
  };
  constexpr char kIncomplete[] = "WARN  update manifest lacks a url or sha256; ignoring it\r\n";
  const struct {
    const char* what;
    std::optional<test::ScriptedReply> reply;  // none: nothing listens
    const char* version;                       // offered; nullptr: nothing is
    bool rollback;
    const char* log;
  } cases[] = {
      {"same version", Reply(200, manifest("0.1.7")), nullptr, false, ""},
      {"newer", Reply(200, manifest("0.2.0")), "0.2.0", false, "differs: 0.1.7 -> 0.2.0\r\n"},
      {"older", Reply(200, manifest("0.1.5")), "0.1.5", true, "0.1.7 -> 0.1.5 (rollback)\r\n"},
      {"same number, other text", Reply(200, manifest("0.1.07")), "0.1.07", false, "-> 0.1.07\r\n"},
      {"no url", Reply(200, R"({"version":"0.2.0","sha256":"AB12"})"), nullptr, false, kIncomplete},
      {"empty sha256", Reply(200, R"({"version":"0.2.0","url":"u","sha256":""})"), nullptr, false,
       kIncomplete},
      {"not JSON", Reply(200, "<html>Bad Gateway</html>"), nullptr, false, ""},
      {"404", Reply(404, manifest("0.2.0")), nullptr, false, ""},
      {"500", Reply(500, manifest("0.2.0")), nullptr, false, ""},
      {"unreachable", std::nullopt, nullptr, false, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    test::FakeService service;
    if (c.reply) service.Script("GET", "/v1/version", *c.reply);
    HttpClient client;
    const uint16_t port = c.reply ? service.port() : test::UnusedLoopbackPort();
    ASSERT_TRUE(client.Init(L"http://127.0.0.1:" + std::to_wstring(port)));
    log_.Clear();
    const UpdateInfo info = Updater().Check(client);
    UpdateInfo expected = c.version ? UpdateInfo{true, c.version, "https://u.example/H.exe",
                                                       "AB12", "Faster.", c.rollback, "c2ln"}
                                          : UpdateInfo{};
    // Only these leave the player unable to tell: the rest are answers.
    expected.unreachable = c.what == std::string_view("500") || !c.reply;
    EXPECT_EQ(info, expected);
    EXPECT_TRUE(!*c.log || log_.Has(c.log)) << log_.Text();
    EXPECT_EQ(log_.Count("published version differs"), c.version ? 1u : 0u);
  }
}

TEST_F(UpdaterTest, Sha256MatchesThePublishedVectors) {
  const std::pair<std::string, const char*> vectors[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  for (const auto& [bytes, sha] : vectors) EXPECT_EQ(Updater::Sha256Hex(bytes), sha);
}

// Everything a download must pass before a byte is written, the signature with and without
// a release key included. Applied: the new build at the executable's path, the old one at
// ".old". Refused: the scratch folder exactly as it was.
TEST_F(UpdaterTest, ADownloadIsWrittenOnlyWhenItPassesEveryCheck) {
  constexpr char kUpperSha[] = "6AE3A6E219A544A1DE8420A69B1BC2A05F9E71E0D134428F5FD084AD763F7306";
  constexpr char kUnsigned[] = "INFO  update 0.2.0 is unsigned; this build has no release key";
  constexpr char kVerified[] = "INFO  update 0.2.0 signature verified\r\n";
  const size_t fits = kNewBytes.size();
  const struct {
    const char* what;
    const char* key;
    const char* signature;
    const char* sha256;
    size_t cap;
    const wchar_t* error;  // nullptr: applied
    const char* log;
  } cases[] = {
      {"unsigned, no key", "", "", kNewSha, fits, nullptr, kUnsigned},
      {"checksum in upper case", "", "", kUpperSha, fits, nullptr, "0.2.0 staged; restarting\r\n"},
      {"checksum of another file", "", "", kZeroSha, fits, kChecksumError, "expected 0000"},
      {"one byte over the cap", "", "", kNewSha, fits - 1, kDownloadError, "over 191 bytes"},
      {"no key, any signature", "", kSignedByB, kNewSha, fits, nullptr, kUnsigned},
      {"key, signed", kKeyA, kSignedByA, kNewSha, fits, nullptr, kVerified},
      {"key, unsigned", kKeyA, "", kNewSha, fits, kSignatureError, "unsigned; refusing"},
      {"key, other signer", kKeyA, kSignedByB, kNewSha, fits, kSignatureError, "does not verify"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    const Updater updater({.exe_path = exe_, .max_download_bytes = c.cap, .public_key_hex = c.key});
    std::wstring error;
    EXPECT_EQ(updater.Apply(Offer(c.sha256, c.signature), error), c.error == nullptr);
    EXPECT_EQ(error, c.error ? c.error : L"");
    EXPECT_TRUE(log_.Has(c.log)) << log_.Text();
    const std::vector<std::string> applied{kNewBytes, kOldBytes, "-"}, refused{kOldBytes, "-", "-"};
    EXPECT_EQ(OnDisk(), c.error ? refused : applied);
  }
  Reset();  // the right checksum, but an archive published under the program's name
  service_.Script("GET", "/files/H.zip", Reply(200, "PK not a program"));
  UpdateInfo archive = Offer(Updater::Sha256Hex("PK not a program").c_str());
  archive.url = WideToUtf8(service_.BaseUrl()) + "/files/H.zip";
  std::wstring error;
  EXPECT_FALSE(Updater({.exe_path = exe_}).Apply(archive, error));
  EXPECT_EQ(error, kNotAProgramError);
  EXPECT_EQ(OnDisk(), (std::vector<std::string>{kOldBytes, "-", "-"}));
}

// A body of many reads comes back whole whether it arrives with a length or in chunks; the cap
// counts across reads, and a missing file gives nothing.
TEST_F(UpdaterTest, ABodyOfManyReadsComesBackWhole) {
  std::string body;
  for (int i = 0; body.size() < 200000; ++i) body += std::to_string(i) + ",";
  test::ScriptedReply chunked = Reply(200);
  for (size_t at = 0; at < body.size(); at += 7000) {
    chunked.chunks.push_back({body.substr(at, 7000), nullptr, nullptr});
  }
  service_.Script("GET", "/files/sized.exe", Reply(200, body));
  service_.Script("GET", "/files/chunked.exe", chunked);
  for (const char* path : {"/files/sized.exe", "/files/chunked.exe"}) {
    SCOPED_TRACE(path);
    const std::string url = WideToUtf8(service_.BaseUrl()) + path;
    EXPECT_EQ(Updater().Download(url), body);
    EXPECT_EQ(Updater({.max_download_bytes = body.size() - 1}).Download(url), std::nullopt);
  }
  EXPECT_EQ(Updater().Download(WideToUtf8(service_.BaseUrl()) + "/files/none.exe"), std::nullopt);
}

enum class Fault { kHeldOpen, kReadOnly, kFolder };

// Each rename of the swap meets a file it cannot touch. Whatever happens, a runnable build
// stays under the executable's name, unless that name itself is taken by a folder.
TEST_F(UpdaterTest, AFailedRenameLeavesARunnableBuildInPlace) {
  using enum SwapStep;
  using enum Fault;
  const struct {
    const char* what;
    SwapStep step;
    Fault fault;
    const wchar_t* on;                 // suffix of the file the fault is on
    const wchar_t* error;              // nullptr: applied
    std::vector<std::string> on_disk;  // at the exe's name, ".old" and ".new" afterwards
  } cases[] = {
      {".new held open", kWriteNew, kHeldOpen, L".new", kWriteError, {kOldBytes, "-", "held"}},
      {".old held open", kClearOld, kHeldOpen, L".old", kMoveAsideError, {kOldBytes, "held", "-"}},
      {".old read-only", kClearOld, kReadOnly, L".old", nullptr, {kNewBytes, kOldBytes, "-"}},
      {"exe held open", kMoveAside, kHeldOpen, L"", kMoveAsideError, {kOldBytes, "-", "-"}},
      {".new held open at the last rename", kPutInPlace, kHeldOpen, L".new", kPutInPlaceError,
       {kOldBytes, "-", kNewBytes}},
      {"a folder takes the exe's name", kPutInPlace, kFolder, L"", kNotRestoredError,
       {"<dir>", kOldBytes, "-"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    const auto inject = [&](SwapStep step) {
      if (step != c.step) return;
      const std::wstring path = exe_ + c.on;
      if (c.fault == kHeldOpen) Hold(path);
      if (c.fault == kFolder) CreateDirectoryW(path.c_str(), nullptr);  // on_disk shows it
      if (c.fault == kReadOnly) {
        test::WriteFileBytes(path, "read-only");
        EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
      }
    };
    std::wstring error;
    EXPECT_EQ(Updater({.exe_path = exe_, .before_step = inject}).Apply(Offer(), error), !c.error);
    EXPECT_EQ(error, c.error ? c.error : L"");
    held_.clear();
    EXPECT_EQ(OnDisk(), c.on_disk);
  }
}

// What a start finds beside the program: a swap cut short between its renames is undone, and
// a download that never took the program's name goes, but the previous build stays until
// this one has started. Then it goes, read-only or not, once its own process lets go of it,
// or is left for a later start when that takes too long.
TEST_F(UpdaterTest, AStartRepairsACutShortSwapAndThenRemovesTheOldBuild) {
  using Files = std::vector<std::string>;  // at the exe's name, ".old" and ".new"
  const struct {
    const char* what;
    Files before, after;
    const char* log;
  } cases[] = {
      {"cut short after the move aside", {"-", kOldBytes, kNewBytes}, {kOldBytes, "-", "-"},
       "WARN  an update was cut short; the previous version is back\r\n"},
      {"cut short before the move aside", {kOldBytes, "-", kNewBytes}, {kOldBytes, "-", "-"},
       "INFO  removed a download that an interrupted update left\r\n"},
      {"swapped, not started yet", {kNewBytes, kOldBytes, "-"}, {kNewBytes, kOldBytes, "-"}, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    for (size_t i = 0; i < 3; ++i) {
      const std::wstring path = exe_ + std::vector<const wchar_t*>{L"", L".old", L".new"}[i];
      if (c.before[i] == "-") DeleteFileW(path.c_str());
      else test::WriteFileBytes(path, c.before[i]);
    }
    Updater({.exe_path = exe_}).RepairInterruptedSwap();
    EXPECT_EQ(OnDisk(), c.after);
    EXPECT_TRUE(!*c.log || log_.Has(c.log)) << log_.Text();
  }
  const Updater updater({.exe_path = exe_});
  const std::wstring old = exe_ + L".old";
  SetFileAttributesW(old.c_str(), FILE_ATTRIBUTE_READONLY);
  Hold(old);
  std::thread let_go([this] {
    Sleep(300);
    held_.clear();
  });
  updater.RemoveLeftover(std::chrono::seconds(20));
  let_go.join();
  EXPECT_FALSE(test::PathExists(old));
  EXPECT_TRUE(log_.Has("INFO  removed the previous version left by an update\r\n"));

  Hold(old);
  updater.RemoveLeftover(std::chrono::milliseconds(200));
  EXPECT_TRUE(test::PathExists(old));
  EXPECT_TRUE(log_.Has("INFO  previous version still locked; will remove on a later launch\r\n"));
}

// The hand-over after a swap: a new build that cannot be started at all (a stand-in image),
// or that ends without saying it has started (a copy of this test program, told to run no
// test), is swapped back out for the previous build.
TEST_F(UpdaterTest, ANewBuildThatDoesNotStartIsSwappedBackOut) {
  wchar_t self[MAX_PATH * 2] = {};
  GetModuleFileNameW(nullptr, self, MAX_PATH * 2);
  SetEnvironmentVariableW(L"GTEST_FILTER", L"NoSuchTest.*");
  for (const bool loads : {false, true}) {
    SCOPED_TRACE(loads ? "ends at once" : "cannot start");
    Reset();
    MoveFileW(exe_.c_str(), (exe_ + L".old").c_str());
    if (loads) CopyFileW(self, exe_.c_str(), FALSE);
    else test::WriteFileBytes(exe_, kNewBytes);
    EXPECT_FALSE(Updater({.exe_path = exe_}).HandOver(std::chrono::seconds(60)));
    EXPECT_EQ(OnDisk(), (std::vector<std::string>{kOldBytes, "-", "-"}));
    EXPECT_TRUE(log_.Has("ERROR the new build did not start; putting the previous version back"));
  }
  SetEnvironmentVariableW(L"GTEST_FILTER", nullptr);
}

}  // namespace
}  // namespace qn
