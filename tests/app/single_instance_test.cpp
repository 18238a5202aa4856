#include <windows.h>

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "app/messages.h"
#include "app/single_instance.h"
#include "core/data_dir.h"
#include "core/handles.h"
#include "support/test_files.h"

namespace qn {
namespace {

constexpr DWORD kStartTimeoutMs = 60000;

// Plays the running instance: holds the mutex and, once asked, owns the message window.
class RunningInstance {
 public:
  RunningInstance() : mutex_(CreateMutexW(nullptr, TRUE, kSingleInstanceMutexName)) {}

  void CreateMessageWindow() {
    WNDCLASSW window_class{};
    window_class.lpfnWndProc = DefWindowProcW;
    window_class.hInstance = GetModuleHandleW(nullptr);
    window_class.lpszClassName = kMessageWindowClass;
    RegisterClassW(&window_class);
    window_.reset(CreateWindowExW(0, kMessageWindowClass, L"Hintwick", 0, 0, 0, 0, 0,
                                  HWND_MESSAGE, nullptr, window_class.hInstance, nullptr));
  }

  // Every message of ours that reached the window.
  int CountAlreadyRunningNotes() {
    int count = 0;
    MSG message;
    while (PeekMessageW(&message, window_.get(), WM_APP, WM_APP + 0xFF, PM_REMOVE)) {
      EXPECT_EQ(message.message, kMsgAlreadyRunning);
      EXPECT_EQ(message.wParam, 0u);
      EXPECT_EQ(message.lParam, 0);
      ++count;
    }
    return count;
  }

  bool ok() const { return static_cast<bool>(mutex_); }
  bool has_window() const { return static_cast<bool>(window_); }

 private:
  UniqueKernelHandle mutex_;
  UniqueHwnd window_;
};

class SingleInstanceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    exe_ = test::HintwickExePath();
    if (!exe_) GTEST_SKIP() << "HINTWICK_EXE is not set; run through ctest";
  }
  test::ProcessResult StartHintwick() { return test::RunProcess(*exe_, L"", kStartTimeoutMs); }

  std::optional<std::wstring> exe_;
  std::wstring log_ = DataDir() + L"\\hintwick.log";
};

TEST_F(SingleInstanceTest, ASecondStartNotifiesTheRunningInstanceAndExits) {
  RunningInstance first;
  ASSERT_TRUE(first.ok());
  first.CreateMessageWindow();
  ASSERT_TRUE(first.has_window());

  const test::ProcessResult second = StartHintwick();
  ASSERT_TRUE(second.finished);
  EXPECT_EQ(second.exit_code, 0u);
  EXPECT_EQ(first.CountAlreadyRunningNotes(), 1);
}

TEST_F(SingleInstanceTest, ASecondStartWhileTheFirstHasNoWindowYetPostsNothing) {
  RunningInstance first;
  ASSERT_TRUE(first.ok());
  test::WriteFileBytes(log_, "the running instance's log");

  const test::ProcessResult second = StartHintwick();
  ASSERT_TRUE(second.finished);
  EXPECT_EQ(second.exit_code, 0u);
  first.CreateMessageWindow();
  EXPECT_EQ(first.CountAlreadyRunningNotes(), 0);
  EXPECT_EQ(test::ReadFileBytes(log_), "the running instance's log");  // left alone
}

TEST_F(SingleInstanceTest, AFirstStartWritesAFreshLogAndEndsCleanly) {
  test::WriteFileBytes(log_, "an earlier run");
  for (int run = 0; run < 2; ++run) {
    const test::ProcessResult result = StartHintwick();
    ASSERT_TRUE(result.finished);
    EXPECT_EQ(result.exit_code, 0u);
  }
  const std::string text = test::ReadFileBytes(log_).value_or("");
  EXPECT_EQ(text.rfind("\xEF\xBB\xBF=== Hintwick start (Windows 10.0 build ", 0), 0u) << text;
  EXPECT_EQ(text.find("earlier run"), std::string::npos);
  EXPECT_EQ(text.find("=== Hintwick start", 10), std::string::npos);  // one run's worth
}

}  // namespace
}  // namespace qn
