#pragma once
// Common ground of the tests that run a real Session against the fake service: the state
// files in the data directory, the log, a session started against the fake, and a window
// that receives what the session's workers post.
#include <windows.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "app/messages.h"
#include "core/data_dir.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/utf.h"
#include "net/session.h"
#include "net/token_store.h"
#include "support/fake_service.h"
#include "support/fake_tray_win.h"
#include "support/test_files.h"
#include "support/test_game_win.h"

namespace qn {

inline void PrintTo(ServiceFailure failure, std::ostream* out) {
  *out << (failure == ServiceFailure::kNone ? "none" : ServiceFailureText(failure));
}

inline std::wstring StatePath(const wchar_t* name) { return DataDir() + L"\\" + name; }

// The state files a start reads, gone: the data directory as a first start finds it.
inline void RemoveStateFiles() {
  for (const wchar_t* name : {L"config.json", L"token.bin", L"games.json"}) {
    DeleteFileW(StatePath(name).c_str());
  }
}

inline void WriteConfigFor(const std::string& base_url, const std::string& members = "") {
  test::WriteFileBytes(StatePath(L"config.json"),
                       "{\"base_url\":\"" + base_url + "\"" + members + "}");
}

// The text of a dialog's control, as the player reads it.
inline std::wstring ShownText(HWND window, int id) {
  wchar_t text[512] = {};
  GetDlgItemTextW(window, id, text, 512);
  return text;
}

class SessionFixture : public ::testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }
  // A fresh service, data directory and log for one row of a table.
  void Reset() {
    session_.reset();
    fake_ = std::make_unique<test::FakeService>();
    RemoveStateFiles();
    log_.Clear();
  }
  void WriteConfig(const std::string& members = "") {
    WriteConfigFor(WideToUtf8(fake_->BaseUrl()), members);
  }
  // Started against the fake; signed in as access token "a1" when `signed_in` is true. A later
  // refresh is refused, or rotates to "a2" and "r2".
  Session& Start(bool signed_in = true, bool later_refresh_refused = false) {
    if (signed_in) {
      TokenStore::Save("r0");
      fake_->Script("POST", "/v1/auth/refresh", test::Reply(200, R"({"access_token":"a1"})"));
      const char* later = R"({"access_token":"a2","refresh_token":"r2"})";
      fake_->Script("POST", "/v1/auth/refresh",
                    test::Reply(later_refresh_refused ? 401 : 200, later));
    }
    WriteConfig();
    session_ = std::make_unique<Session>();
    EXPECT_EQ(session_->Start(), signed_in);
    return *session_;
  }
  // An empty text asks for nothing, so that table rows without a log line can pass "".
  bool Logged(const std::string& text) const { return text.empty() || log_.Has(text); }
  std::vector<test::RecordedRequest> RequestsTo(const std::string& path) const {
    std::vector<test::RecordedRequest> found;
    for (auto& request : fake_->Requests()) {
      if (request.path == path) found.push_back(request);
    }
    return found;
  }

  test::CapturedLog log_;
  std::unique_ptr<test::FakeService> fake_;
  std::unique_ptr<Session> session_;
};

// The receiving end of the workers: a message-only window that takes ownership of each chat
// event ("<end>" for the end mark) and each lookup result, in arrival order.
class ReceiverWindow {
 public:
  ReceiverWindow() {
    SetWindowLongPtrW(window_.get(), GWLP_USERDATA, reinterpret_cast<LONG_PTR>(this));
  }
  HWND get() const { return window_.get(); }
  bool PumpUntil(const std::function<bool()>& done, DWORD timeout_ms = 15000) {
    return test::PumpUntil(done, timeout_ms);
  }

  std::vector<std::string> events;
  std::vector<ChatTurnId> event_turns;  // the turn each of `events` was tagged with
  std::vector<std::unique_ptr<GameLookupResult>> results;
  std::function<void()> on_end;  // called at each end mark, after it is recorded

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
    auto* self = reinterpret_cast<ReceiverWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    if (message == kMsgProgressSnapshot.id) {
      self->results.push_back(AdoptPosted(kMsgProgressSnapshot, wparam));
    } else if (message == kMsgChatEvent.id) {
      const std::unique_ptr<std::string> event = AdoptPosted(kMsgChatEvent, wparam);
      self->events.push_back(event ? *event : "<end>");
      self->event_turns.push_back(static_cast<ChatTurnId>(lparam));
      if (!event && self->on_end) self->on_end();
    } else {
      return DefWindowProcW(window, message, wparam, lparam);
    }
    return 0;
  }

  UniqueHwnd window_{test::CreateTestWindow(L"HintwickNetTestReceiver", &ReceiverWindow::Procedure,
                                            0, HWND_MESSAGE)};
};

}  // namespace qn
