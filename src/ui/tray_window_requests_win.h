#pragma once
// The account and settings window's service requests: run one at a time on a thread of their
// own, so that the window's thread never waits on the network. The result goes to whichever
// settings window is open when it is ready; with none open it is dropped, the session having
// taken what it changes already.
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "core/posted_message.h"
#include "net/catalogue.h"
#include "net/service_failure.h"
#include "ui/tray_window_text.h"

namespace qn {

class Session;

// What the window asks. Sign-in and registration carry the password, which is wiped as soon
// as the request has sent it, and again when the request is freed whatever became of it.
struct TrayRequest {
  TrayRequestKind kind = TrayRequestKind::kReadProgress;
  std::string email;
  std::string password;
  std::string game_key;  // the game whose progress is patched, reset or read afterwards
  MemoryPatch style;     // for Save

  TrayRequest() = default;
  TrayRequest(const TrayRequest&) = delete;
  TrayRequest& operator=(const TrayRequest&) = delete;
  ~TrayRequest();
};

struct TrayRequestResult {
  TrayRequestKind kind = TrayRequestKind::kReadProgress;
  std::string email;
  ServiceFailure failure = ServiceFailure::kNone;  // of a sign-in or a registration
  bool confirmed = false;                          // the service took the patch or the reset
  bool progress_read = false;  // signed in with a game: the record was asked for
  MemoryRecord progress;
};

// What the window is told when the request could not be made, or ended in an exception: the
// service's silence.
TrayRequestResult FailedResult(const TrayRequest& request);

// To the settings window; WPARAM owns the result.
inline constexpr PostedMessage<TrayRequestResult> kMsgTrayRequestDone{WM_APP + 13};

class TrayRequests {
 public:
  // `receiver` names the open window (null when none); read when a result is ready.
  explicit TrayRequests(const std::atomic<HWND>& receiver) : receiver_(receiver) {}
  ~TrayRequests() { Finish(); }
  TrayRequests(const TrayRequests&) = delete;
  TrayRequests& operator=(const TrayRequests&) = delete;

  bool Busy() const { return running_.load(); }
  // What the running request is and its number, for a window opened while it runs.
  TrayRequestKind RunningKind() const { return running_kind_; }
  uint64_t RunningSerial() const { return serial_; }
  // The request's number, which its result carries in LPARAM; 0, with nothing started, while
  // a request runs or when no thread can be had.
  uint64_t Start(Session& session, std::unique_ptr<TrayRequest> request);
  // Waits for the running request's thread, which has only its result to post once Busy is
  // false.
  void Wait();
  // For the program's end: the running request skips the progress read it would do next, and
  // is waited for. Its exchange under way ends at once when the client has been cancelled, as
  // the application's end does first; otherwise its time-outs bound the wait.
  void Finish();

 private:
  void Run(Session& session, std::unique_ptr<TrayRequest> request, uint64_t serial) noexcept;
  void Perform(Session& session, TrayRequest& request, TrayRequestResult& result) const;

  const std::atomic<HWND>& receiver_;
  std::atomic<bool> running_{false};
  std::atomic<bool> finishing_{false};
  // Both the window's thread's only.
  TrayRequestKind running_kind_ = TrayRequestKind::kReadProgress;
  uint64_t serial_ = 0;
  std::thread thread_;
};

}  // namespace qn
