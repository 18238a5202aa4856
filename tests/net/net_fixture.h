#pragma once
// Common ground of the tests that run the real WinHTTP client against the fake service.
#include <windows.h>

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "net/http_client.h"
#include "support/fake_service.h"
#include "support/test_files.h"

namespace qn {

class NetTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(client_.Init(service_.BaseUrl())); }

  // The log holds exactly one warning, and it matches `pattern`.
  void ExpectOneWarning(const std::string& pattern) const {
    EXPECT_EQ(log_.Count(" WARN  "), 1u) << log_.Text();
    EXPECT_TRUE(std::regex_search(log_.Text(), std::regex(" WARN  " + pattern + "\r\n")))
        << log_.Text();
  }
  // A client bound to a port where nothing listens.
  void Unreachable() {
    ASSERT_TRUE(client_.Init(L"http://127.0.0.1:" + std::to_wstring(test::UnusedLoopbackPort())));
    log_.Clear();
  }

  test::CapturedLog log_;
  test::FakeService service_;
  HttpClient client_;
};

using test::Reply;

}  // namespace qn
