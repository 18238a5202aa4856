#include <windows.h>

#include <dpapi.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>

#include "core/data_dir.h"
#include "core/handles.h"
#include "core/log.h"
#include "net/token_store.h"
#include "support/test_files.h"

namespace qn {
namespace {

std::string Protect(const std::string& plain, const std::string& entropy) {
  DATA_BLOB in{static_cast<DWORD>(plain.size()),
               reinterpret_cast<BYTE*>(const_cast<char*>(plain.data()))};
  DATA_BLOB salt{static_cast<DWORD>(entropy.size()),
                 reinterpret_cast<BYTE*>(const_cast<char*>(entropy.data()))};
  DATA_BLOB out{};
  EXPECT_TRUE(
      CryptProtectData(&in, L"other", &salt, nullptr, nullptr, CRYPTPROTECT_UI_FORBIDDEN, &out));
  const UniqueLocalMemory owner(out.pbData);
  return std::string(reinterpret_cast<const char*>(out.pbData), out.cbData);
}

class TokenStoreTest : public ::testing::Test {
 protected:
  void SetUp() override {
    DeleteFileW(TokenStore::Path().c_str());
    OpenLogAt(log_path_);
  }
  void TearDown() override {
    CloseLog();
    DeleteFileW(TokenStore::Path().c_str());
  }
  std::string LogText() const { return test::ReadFileBytes(log_path_).value_or(""); }
  std::string Stored() const { return test::ReadFileBytes(TokenStore::Path()).value_or(""); }

  test::TempDir dir_;
  std::wstring log_path_ = dir_.File(L"hintwick.log");
};

TEST_F(TokenStoreTest, SavedTokenIsProtectedForThisUserAndReadsBack) {
  const std::string token = "rt-\xC3\xA9-0123456789abcdef0123456789abcdef";
  TokenStore::Save(token);
  const std::string blob = Stored();
  ASSERT_FALSE(blob.empty());
  EXPECT_EQ(blob.find(token), std::string::npos);
  EXPECT_EQ(blob.find("0123456789abcdef"), std::string::npos);
  EXPECT_EQ(TokenStore::Load(), token);

  // The file is the bare blob: it opens as it is, with our description and no entropy.
  DATA_BLOB in{static_cast<DWORD>(blob.size()),
               reinterpret_cast<BYTE*>(const_cast<char*>(blob.data()))};
  DATA_BLOB out{};
  LPWSTR description = nullptr;
  ASSERT_TRUE(CryptUnprotectData(&in, &description, nullptr, nullptr, nullptr,
                                 CRYPTPROTECT_UI_FORBIDDEN, &out));
  const UniqueLocalMemory plain(out.pbData);
  const UniqueLocalMemory description_owner(description);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(out.pbData), out.cbData), token);
  EXPECT_STREQ(description, L"Hintwick refresh token");
}

TEST_F(TokenStoreTest, ASecondSaveReplacesTheFirstAndLeavesNoTemporaryFile) {
  TokenStore::Save("first-token");
  TokenStore::Save("second");
  EXPECT_EQ(TokenStore::Load(), "second");
  for (const auto& entry : std::filesystem::directory_iterator(DataDir())) {
    const std::wstring name = entry.path().filename().wstring();
    EXPECT_TRUE(name == L"token.bin" || name.find(L"token.bin") != 0) << entry.path();
  }
}

TEST_F(TokenStoreTest, BlobsThatDoNotOpenGiveAnEmptyTokenAndOneWarning) {
  const std::string genuine = [] {
    TokenStore::Save("genuine-token");
    return test::ReadFileBytes(TokenStore::Path()).value_or("");
  }();
  const struct {
    const char* what;
    std::string bytes;
  } cases[] = {
      {"protected with extra entropy", Protect("genuine-token", "salt")},
      {"random bytes",
       std::string("\x01\x00\x00\x00\xd0\x8c\x9d\xdf\x7f\x3a", 10) + std::string(200, '\x5a')},
      {"truncated blob", genuine.substr(0, genuine.size() / 2)},
      {"one flipped byte",
       [&] {
         std::string flipped = genuine;
         flipped[flipped.size() - 5] = static_cast<char>(flipped[flipped.size() - 5] ^ 0x40);
         return flipped;
       }()},
  };
  for (const auto& c : cases) {
    test::WriteFileBytes(TokenStore::Path(), c.bytes);
    CloseLog();
    OpenLogAt(log_path_);
    EXPECT_EQ(TokenStore::Load(), "") << c.what;
    EXPECT_TRUE(std::regex_search(
        LogText(), std::regex(R"(WARN  CryptUnprotectData failed: \d+ \(stale or copied from )"
                              R"(another profile\)\r?\n$)")))
        << c.what << "\n"
        << LogText();
  }
}

TEST_F(TokenStoreTest, MissingOrEmptyFileIsAnEmptyTokenWithoutComplaint) {
  EXPECT_EQ(TokenStore::Load(), "");
  test::WriteFileBytes(TokenStore::Path(), "");
  EXPECT_EQ(TokenStore::Load(), "");
  TokenStore::Remove();
  EXPECT_FALSE(test::PathExists(TokenStore::Path()));
  TokenStore::Remove();
  EXPECT_EQ(LogText().find("WARN"), std::string::npos) << LogText();
}

}  // namespace
}  // namespace qn
