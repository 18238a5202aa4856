#pragma once
// Common ground of the tests that run the real WinHTTP client against the fake service:
// a fresh log file per test, a fake service and a client bound to it.
#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "core/log.h"
#include "net/http_client.h"
#include "support/fake_service.h"
#include "support/test_files.h"

namespace qn {

class NetTest : public ::testing::Test {
 protected:
  void SetUp() override {
    OpenLogAt(log_path_);
    ASSERT_TRUE(client_.Init(service_.BaseUrl()));
  }
  void TearDown() override { CloseLog(); }

  // Starts the log afresh, for tests that count lines case by case.
  void RestartLog() {
    CloseLog();
    OpenLogAt(log_path_);
  }

  // The messages of the log lines at one level ("INFO ", "WARN ", ...), in order.
  std::vector<std::string> LogMessages(std::string_view level) const {
    const std::string text = test::ReadFileBytes(log_path_).value_or("");
    const std::string marker = " " + std::string(level) + " ";
    std::vector<std::string> messages;
    for (size_t start = 0, end = 0; start < text.size(); start = end + 2) {
      end = text.find("\r\n", start);
      if (end == std::string::npos) end = text.size();
      const size_t at = text.find(marker, start);
      if (at < end) messages.push_back(text.substr(at + marker.size(), end - at - marker.size()));
    }
    return messages;
  }

  std::string Port() const { return std::to_string(service_.port()); }

  test::TempDir dir_;
  std::wstring log_path_ = dir_.File(L"hintwick.log");
  test::FakeService service_;
  HttpClient client_;
};

inline bool UnderWine() {
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

using test::Reply;

}  // namespace qn
