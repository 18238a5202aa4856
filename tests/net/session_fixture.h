#pragma once
// Common ground of the tests that run a real Session against the fake service: the state
// files in the data directory, a fresh log, and a session started against the fake.
#include <windows.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "core/data_dir.h"
#include "core/log.h"
#include "core/utf.h"
#include "net/session.h"
#include "net/token_store.h"
#include "support/fake_service.h"
#include "support/test_files.h"

namespace qn {

inline std::wstring StatePath(const wchar_t* name) { return DataDir() + L"\\" + name; }

class SessionFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    RemoveStateFiles();
    OpenLogAt(log_path_);
  }
  void TearDown() override {
    session_.reset();
    CloseLog();
    RemoveStateFiles();
  }
  static void RemoveStateFiles() {
    for (const wchar_t* name : {L"config.json", L"token.bin", L"games.json"}) {
      DeleteFileW(StatePath(name).c_str());
    }
  }
  // A fresh service, data directory and log for one row of a table.
  void Reset() {
    session_.reset();
    fake_ = std::make_unique<test::FakeService>();
    RemoveStateFiles();
    CloseLog();
    OpenLogAt(log_path_);
  }
  void WriteConfig(const std::string& members = "") {
    test::WriteFileBytes(StatePath(L"config.json"),
                         "{\"base_url\":\"" + WideToUtf8(fake_->BaseUrl()) + "\"" + members + "}");
  }
  // Started against the fake; signed in as access token "a1" when `signed_in` is true.
  Session& Start(bool signed_in = true) {
    if (signed_in) {
      TokenStore::Save("r0");
      fake_->Script("POST", "/v1/auth/refresh", test::Reply(200, R"({"access_token":"a1"})"));
    }
    WriteConfig();
    session_ = std::make_unique<Session>();
    EXPECT_EQ(session_->Start(), signed_in);
    return *session_;
  }
  std::string LogText() const { return test::ReadFileBytes(log_path_).value_or(""); }
  bool Logged(const std::string& text) const { return LogText().find(text) != std::string::npos; }

  test::TempDir dir_;
  std::wstring log_path_ = dir_.File(L"hintwick.log");
  std::unique_ptr<test::FakeService> fake_ = std::make_unique<test::FakeService>();
  std::unique_ptr<Session> session_;
};

}  // namespace qn
