// The updater against the fake service and real files in a scratch folder: what a manifest
// offers, what a download must pass before it is written, and what each failing rename
// leaves on disk.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/handles.h"
#include "core/utf.h"
#include "net/http_client.h"
#include "setup/updater.h"
#include "support/fake_service.h"
#include "support/test_files.h"

namespace qn {
namespace {

using test::Reply;

constexpr char kOldBytes[] = "MZ the running build 0.1.7";
constexpr char kNewBytes[] = "MZ stand-in for the new build 0.2.0";
constexpr char kNewSha[] = "dff91217c956a38bcaa3ea563d50d176785d31f143e50a716fa83f6f09c30a0c";
constexpr char kZeroSha[] = "0000000000000000000000000000000000000000000000000000000000000000";
constexpr char kFilePath[] = "/files/Hintwick-0.2.0.exe";
// Made with openssl, as the README's release steps do: key A signs kNewBytes (as DER and
// as raw r || s); key B is anyone else's.
constexpr char kKeyA[] =
    "04a79281bfa5f7b6ff4024340fadf321a2d9cb843386cccb165b40a77d2b9a5a3be7f7381ec975f4655aee761e"
    "8f54b5d7ebf8bf6bc0fce1e2eb51e594d6be2d3c";
constexpr char kSignedByA[] =
    "MEQCIGNyAgr0S25QI2ps/zQkkqPNYil4xuiOduR4zg+v7R1PAiADutCMiuE/tCQ07o2/"
    "dhH05Ve+jjMvvixSZSWpRnDDUA==";
constexpr char kSignedByARaw[] =
    "Y3ICCvRLblAjamz/NCSSo81iKXjG6I525HjOD6/tHU8DutCMiuE/tCQ07o2/dhH05Ve+jjMvvixSZSWpRnDDUA==";
constexpr char kSignedByB[] =
    "MEUCIQD9+oqqdRMr1MeKDGEKeHO8hoQb8evVSlEIHp9vRsYo6gIgHC+"
    "jtRdEw476EMXnYGLTcTcbubQsqPw35MhWd8t51V8=";

class UpdaterTest : public ::testing::Test {
 protected:
  UpdaterTest() { service_.Script("GET", kFilePath, Reply(200, kNewBytes)); }
  ~UpdaterTest() override { LetGo(); }

  // A fresh scratch folder holding the running build, and a fresh log, for one table row.
  void Reset() {
    LetGo();
    dir_ = std::make_unique<test::TempDir>();
    exe_ = dir_->File(L"Hintwick.exe");
    test::WriteFileBytes(exe_, kOldBytes);
    log_.Clear();
  }
  // Releases what the faults held, so that the scratch folder can go.
  void LetGo() {
    held_.clear();
    for (const wchar_t* suffix : {L"", L".new", L".old"}) {
      SetFileAttributesW((exe_ + suffix).c_str(), FILE_ATTRIBUTE_NORMAL);
      RemoveDirectoryW((exe_ + suffix).c_str());
    }
  }
  void Hold(const std::wstring& path) {
    if (!test::PathExists(path)) test::WriteFileBytes(path, "held");
    held_.emplace_back(
        CreateFileW(path.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    EXPECT_TRUE(held_.back()) << GetLastError();
  }
  UpdateInfo Offer() const {
    UpdateInfo info;
    info.available = true;
    info.version = "0.2.0";
    info.url = WideToUtf8(service_.BaseUrl()) + kFilePath;
    info.sha256 = kNewSha;
    return info;
  }
  // What is at `path`: its bytes, "<dir>" for a folder, nothing when there is nothing.
  std::optional<std::string> At(const std::wstring& path) const {
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES) return std::nullopt;
    if (attributes & FILE_ATTRIBUTE_DIRECTORY) return "<dir>";
    return test::ReadFileBytes(path);
  }
  void ExpectOnDisk(const char* exe, const char* old, const char* fresh) const {
    const auto expected = [](const char* bytes) {
      return bytes ? std::optional<std::string>(bytes) : std::nullopt;
    };
    EXPECT_EQ(At(exe_), expected(exe));
    EXPECT_EQ(At(exe_ + L".old"), expected(old));
    EXPECT_EQ(At(exe_ + L".new"), expected(fresh));
  }
  bool Logged(const std::string& text) const { return text.empty() || log_.Has(text); }

  test::CapturedLog log_;
  test::FakeService service_;
  std::unique_ptr<test::TempDir> dir_;
  std::wstring exe_;
  std::vector<UniqueFileHandle> held_;
};

TEST_F(UpdaterTest, TheManifestDecidesWhatIsOffered) {
  const std::string manifest =
      R"("url":"https://u.example/H.exe","sha256":"AB12","notes":"Faster.","signature":"c2ln"})";
  const struct {
    const char* what;
    std::optional<test::ScriptedReply> reply;  // none: nothing listens
    const char* version;                       // offered; nullptr: nothing is
    bool rollback;
    const char* log;
  } cases[] = {
      {"same version", Reply(200, R"({"version":"0.1.7",)" + manifest), nullptr, false, ""},
      {"newer", Reply(200, R"({"version":"0.2.0",)" + manifest), "0.2.0", false,
       "INFO  published version differs: 0.1.7 -> 0.2.0\r\n"},
      {"older", Reply(200, R"({"version":"0.1.5",)" + manifest), "0.1.5", true,
       "INFO  published version differs: 0.1.7 -> 0.1.5 (rollback)\r\n"},
      {"same number, other text", Reply(200, R"({"version":"0.1.07",)" + manifest), "0.1.07", false,
       "INFO  published version differs: 0.1.7 -> 0.1.07\r\n"},
      {"no url", Reply(200, R"({"version":"0.2.0","sha256":"AB12"})"), nullptr, false,
       "WARN  update manifest lacks a url or sha256; ignoring it\r\n"},
      {"empty sha256", Reply(200, R"({"version":"0.2.0","url":"https://u","sha256":""})"), nullptr,
       false, "WARN  update manifest lacks a url or sha256; ignoring it\r\n"},
      {"version not a string", Reply(200, R"({"version":2,)" + manifest), nullptr, false, ""},
      {"not JSON", Reply(200, "<html>Bad Gateway</html>"), nullptr, false, ""},
      {"404", Reply(404, R"({"version":"0.2.0",)" + manifest), nullptr, false, ""},
      {"500", Reply(500, R"({"version":"0.2.0",)" + manifest), nullptr, false, ""},
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

    UpdateInfo expected;
    if (c.version) {
      expected = {true,       c.version, "https://u.example/H.exe", "AB12", "Faster.",
                  c.rollback, "c2ln"};
    }
    EXPECT_EQ(info, expected);
    EXPECT_TRUE(Logged(c.log)) << log_.Text();
    EXPECT_EQ(log_.Count("published version differs"), c.version ? 1u : 0u);
    if (c.reply) {
      ASSERT_EQ(service.Requests().size(), 1u);
      EXPECT_EQ(service.Requests()[0].path, "/v1/version");
      EXPECT_EQ(service.Requests()[0].Header("Authorization"), std::nullopt);
    }
  }
}

TEST_F(UpdaterTest, Sha256MatchesThePublishedVectors) {
  EXPECT_EQ(Updater::Sha256Hex(""),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Updater::Sha256Hex("abc"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Updater::Sha256Hex("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
  EXPECT_EQ(Updater::Sha256Hex(std::string(1000000, 'a')),
            "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

// Everything a download must pass before a byte is written, the signature with and without
// a release key included. Applied: the new build at the executable's path, the old one at
// ".old". Refused: the scratch folder exactly as it was.
TEST_F(UpdaterTest, ADownloadIsWrittenOnlyWhenItPassesEveryCheck) {
  constexpr char kUpperSha[] = "DFF91217C956A38BCAA3EA563D50D176785D31F143E50A716FA83F6F09C30A0C";
  constexpr char kUnsigned[] = "INFO  update 0.2.0 is unsigned; this build has no release key";
  constexpr char kVerified[] = "INFO  update 0.2.0 signature verified\r\n";
  constexpr char kRefused[] = "ERROR update 0.2.0 signature does not verify; refusing it\r\n";
  const size_t size = sizeof(kNewBytes) - 1;
  const struct {
    const char* what;
    const char* key;
    const char* signature;
    const char* path;
    const char* sha256;
    size_t cap;
    const wchar_t* error;  // nullptr: applied
    const char* log;
  } cases[] = {
      {"unsigned, no key", "", "", kFilePath, kNewSha, size, nullptr, kUnsigned},
      {"checksum in upper case", "", "", kFilePath, kUpperSha, size, nullptr,
       "INFO  update 0.2.0 staged; restarting\r\n"},
      {"checksum of another file", "", "", kFilePath, kZeroSha, size, kChecksumError,
       "ERROR update hash mismatch: expected 0000"},
      {"one byte over the cap", "", "", kFilePath, kNewSha, size - 1, kDownloadError,
       "WARN  update download over 34 bytes; dropped\r\n"},
      {"no such file", "", "", "/files/missing.exe", kNewSha, size, kDownloadError,
       "WARN  update download returned 404\r\n"},
      {"no key, any signature", "", kSignedByB, kFilePath, kNewSha, size, nullptr, kUnsigned},
      {"key, signed (DER)", kKeyA, kSignedByA, kFilePath, kNewSha, size, nullptr, kVerified},
      {"key, signed (raw)", kKeyA, kSignedByARaw, kFilePath, kNewSha, size, nullptr, kVerified},
      {"key, unsigned", kKeyA, "", kFilePath, kNewSha, size, kSignatureError,
       "ERROR update 0.2.0 is unsigned; refusing it\r\n"},
      {"key, other signer", kKeyA, kSignedByB, kFilePath, kNewSha, size, kSignatureError, kRefused},
      {"key, not base64", kKeyA, "MEQC!", kFilePath, kNewSha, size, kSignatureError, kRefused},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    UpdateInfo info = Offer();
    info.url = WideToUtf8(service_.BaseUrl()) + c.path;
    info.sha256 = c.sha256;
    info.signature = c.signature;
    const Updater updater({.exe_path = exe_, .max_download_bytes = c.cap, .public_key_hex = c.key});
    std::wstring error;
    EXPECT_EQ(updater.Apply(info, error), c.error == nullptr);
    EXPECT_EQ(error, c.error ? c.error : L"");
    EXPECT_TRUE(Logged(c.log)) << log_.Text();
    ExpectOnDisk(c.error ? kOldBytes : kNewBytes, c.error ? nullptr : kOldBytes, nullptr);
  }
  const auto downloads = service_.Requests();
  ASSERT_FALSE(downloads.empty());
  EXPECT_EQ(downloads[0].Header("User-Agent"), "Hintwick-updater/0.1");
}

// A body of many reads comes back whole whether it arrives with a length or in chunks; the cap
// counts across reads.
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
}

enum class Fault { kHeldOpen, kReadOnly, kFolder, kNoFolder };

// Each rename of the swap meets a file it cannot touch. Whatever happens, a runnable build
// stays under the executable's name, unless that name itself is taken by a folder.
TEST_F(UpdaterTest, AFailedRenameLeavesARunnableBuildInPlace) {
  const struct {
    const char* what;
    SwapStep step;
    Fault fault;
    const wchar_t* on;     // suffix of the file the fault is on
    const wchar_t* error;  // nullptr: applied
    const char* exe;       // what is left at each name afterwards
    const char* old;
    const char* fresh;
  } cases[] = {
      {".new held open", SwapStep::kWriteNew, Fault::kHeldOpen, L".new", kWriteError, kOldBytes,
       nullptr, "held"},
      {"a folder takes the .new name", SwapStep::kWriteNew, Fault::kFolder, L".new", kWriteError,
       kOldBytes, nullptr, "<dir>"},
      {"folder gone", SwapStep::kWriteNew, Fault::kNoFolder, L"", kWriteError, nullptr, nullptr,
       nullptr},
      {"leftover .old held open", SwapStep::kClearOld, Fault::kHeldOpen, L".old", kMoveAsideError,
       kOldBytes, "held", nullptr},
      {"leftover .old read-only", SwapStep::kClearOld, Fault::kReadOnly, L".old", nullptr,
       kNewBytes, kOldBytes, nullptr},
      {"exe held open", SwapStep::kMoveAside, Fault::kHeldOpen, L"", kMoveAsideError, kOldBytes,
       nullptr, nullptr},
      {"exe read-only", SwapStep::kMoveAside, Fault::kReadOnly, L"", nullptr, kNewBytes, kOldBytes,
       nullptr},
      {".new held open before the last rename", SwapStep::kPutInPlace, Fault::kHeldOpen, L".new",
       kPutInPlaceError, kOldBytes, nullptr, kNewBytes},
      {"a folder takes the exe's name", SwapStep::kPutInPlace, Fault::kFolder, L"",
       kNotRestoredError, "<dir>", kOldBytes, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Reset();
    if (c.fault == Fault::kNoFolder) {
      DeleteFileW(exe_.c_str());
      exe_ = dir_->File(L"gone\\Hintwick.exe");
    }
    const auto inject = [&](SwapStep step) {
      if (step != c.step) return;
      const std::wstring path = exe_ + c.on;
      if (c.fault == Fault::kHeldOpen) Hold(path);
      if (c.fault == Fault::kFolder) {
        EXPECT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
      }
      if (c.fault == Fault::kReadOnly) {
        if (!test::PathExists(path)) test::WriteFileBytes(path, "read-only");
        EXPECT_TRUE(SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_READONLY));
      }
    };
    const Updater updater({.exe_path = exe_, .before_step = inject});
    std::wstring error;
    EXPECT_EQ(updater.Apply(Offer(), error), c.error == nullptr);
    EXPECT_EQ(error, c.error ? c.error : L"");
    held_.clear();
    ExpectOnDisk(c.exe, c.old, c.fresh);
  }
}

// A leftover is removed when it is free, read-only or not; one still held is left for a
// later start, without waiting.
TEST_F(UpdaterTest, RemoveLeftoverDeletesOnlyAFreeOldFile) {
  Reset();
  const Updater updater({.exe_path = exe_});
  const std::wstring old = exe_ + L".old";
  updater.RemoveLeftover();
  EXPECT_EQ(log_.Count("previous version"), 0u);

  test::WriteFileBytes(old, kOldBytes);
  SetFileAttributesW(old.c_str(), FILE_ATTRIBUTE_READONLY);
  updater.RemoveLeftover();
  EXPECT_FALSE(test::PathExists(old));
  EXPECT_TRUE(log_.Has("INFO  removed the previous version left by an update\r\n"));

  Hold(old);
  updater.RemoveLeftover();
  EXPECT_TRUE(test::PathExists(old));
  EXPECT_TRUE(log_.Has("INFO  previous version still locked; will remove on a later launch\r\n"));
  held_.clear();
  updater.RemoveLeftover();
  EXPECT_FALSE(test::PathExists(old));
  EXPECT_TRUE(test::PathExists(exe_));

  EXPECT_TRUE(Updater().ExePath().ends_with(L"\\updater_tests.exe"));
}

}  // namespace
}  // namespace qn
