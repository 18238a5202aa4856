#include "ui/tray_window_requests_win.h"

#include <exception>
#include <system_error>
#include <utility>

#include "core/log.h"
#include "core/secret.h"
#include "net/session.h"

namespace qn {
namespace {

// A progress read only fills in a text; a service that is slow to answer it should not hold
// the window's buttons for the default time-outs.
constexpr DWORD kProgressReadTimeoutMs = 5000;

// After a sign-in, a registration or a reset, the window shows the record as it is now.
bool ReadsProgressAfter(TrayRequestKind kind, const TrayRequestResult& result) {
  switch (kind) {
    case TrayRequestKind::kSignIn:
    case TrayRequestKind::kRegister:
      return result.failure == ServiceFailure::kNone;
    case TrayRequestKind::kReset:
    case TrayRequestKind::kReadProgress:
      return true;
    case TrayRequestKind::kSignOut:
    case TrayRequestKind::kSave:
      return false;
  }
  return false;
}

}  // namespace

TrayRequestResult FailedResult(const TrayRequest& request) {
  TrayRequestResult result;
  result.kind = request.kind;
  result.email = request.email;
  const bool signs_in =
      request.kind == TrayRequestKind::kSignIn || request.kind == TrayRequestKind::kRegister;
  if (signs_in) result.failure = ServiceFailure::kUnreachable;
  return result;
}

TrayRequest::~TrayRequest() { Wipe(password); }

uint64_t TrayRequests::Start(Session& session, std::unique_ptr<TrayRequest> request) {
  if (Busy()) return 0;
  Wait();  // the last one has only its result left to post
  running_kind_ = request->kind;
  running_ = true;
  try {
    thread_ =
        std::thread(&TrayRequests::Run, this, std::ref(session), std::move(request), serial_ + 1);
  } catch (const std::system_error& e) {
    running_ = false;
    Log(kLogWarn, L"tray window request thread failed: %hs", e.what());
    return 0;
  }
  return ++serial_;
}

void TrayRequests::Wait() {
  if (thread_.joinable()) thread_.join();
}

void TrayRequests::Finish() {
  finishing_ = true;
  Wait();
  finishing_ = false;
}

// The password goes as soon as the service has it, not when the progress read after it ends.
void TrayRequests::Perform(Session& session, TrayRequest& request,
                           TrayRequestResult& result) const {
  switch (request.kind) {
    case TrayRequestKind::kSignIn:
      result.failure = session.SignIn(request.email, request.password);
      break;
    case TrayRequestKind::kRegister:
      result.failure = session.Register(request.email, request.password);
      break;
    case TrayRequestKind::kSignOut:
      session.SignOut();
      break;
    case TrayRequestKind::kSave:
      result.confirmed = session.PatchMemory(request.game_key, request.style);
      break;
    case TrayRequestKind::kReset:
      result.confirmed = session.NewPlaythrough(request.game_key);
      break;
    case TrayRequestKind::kReadProgress:
      break;
  }
  Wipe(request.password);
  if (finishing_ || !ReadsProgressAfter(request.kind, result)) return;
  if (!request.game_key.empty() && session.IsSignedIn()) {
    result.progress_read = true;
    result.progress = session.GetMemory(request.game_key, kProgressReadTimeoutMs);
  }
}

// Busy ends before the result is posted, so that the window it reaches can start the next.
void TrayRequests::Run(Session& session, std::unique_ptr<TrayRequest> request,
                       uint64_t serial) noexcept {
  std::unique_ptr<TrayRequestResult> result;
  try {
    result = std::make_unique<TrayRequestResult>(FailedResult(*request));
    Perform(session, *request, *result);
  } catch (const std::exception& e) {
    Log(kLogWarn, L"tray window request failed: %hs", e.what());
  } catch (...) {
    Log(kLogWarn, L"tray window request failed: %hs", "unknown exception");
  }
  request.reset();
  running_ = false;
  if (result) {
    PostOwned(receiver_.load(), kMsgTrayRequestDone, std::move(result),
              static_cast<LPARAM>(serial));
  }
}

}  // namespace qn
