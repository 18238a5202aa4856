#include "net/async_request_win.h"

#include <algorithm>

#include "core/failure_log.h"
#include "core/system_dlls.h"
#include "core/log.h"

namespace qn {
namespace {

// WinHTTP tells when it has let go of a closed request; past this the step is left behind
// rather than freed under a late callback.
constexpr DWORD kClosingWaitMs = 5000;

}  // namespace

struct AsyncRequest::Step {
  UniqueKernelHandle done{CreateEventW(nullptr, FALSE, FALSE, nullptr)};
  UniqueKernelHandle closed{CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  DWORD bytes = 0;
  DWORD error = 0;  // the failed step's, or 0

  void Finish(DWORD step_bytes, DWORD step_error) {
    bytes = step_bytes;
    error = step_error;
    SetEvent(done.get());
  }
};

RequestCancel::RequestCancel() : event_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

// On WinHTTP's threads: records the outcome and wakes the stepping thread, nothing more.
void CALLBACK AsyncRequest::OnStatus(HINTERNET, DWORD_PTR context, DWORD status, LPVOID info,
                                     DWORD length) {
  auto* step = reinterpret_cast<Step*>(context);
  if (!step) return;
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      return step->Finish(0, 0);
    case WINHTTP_CALLBACK_STATUS_DATA_AVAILABLE:
      return step->Finish(*static_cast<const DWORD*>(info), 0);
    case WINHTTP_CALLBACK_STATUS_READ_COMPLETE:
      return step->Finish(length, 0);
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      return step->Finish(0, static_cast<const WINHTTP_ASYNC_RESULT*>(info)->dwError);
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
      SetEvent(step->closed.get());
      return;
    default:
      return;
  }
}

AsyncRequest::AsyncRequest(UniqueHinternet request, const RequestCancel& cancel)
    : request_(std::move(request)), cancel_(cancel), step_(std::make_unique<Step>()) {
  if (!request_ || !step_->done || !step_->closed) return;
  constexpr DWORD kReported = WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES;
  if (WinHttp().SetStatusCallback(request_.get(), &OnStatus, kReported, 0) ==
      WINHTTP_INVALID_STATUS_CALLBACK) {
    LogLastError(L"WinHttpSetStatusCallback", kLogWarn);
    return;
  }
  // Set before any step, so that even a request closed unsent says when it is gone.
  DWORD_PTR context = reinterpret_cast<DWORD_PTR>(step_.get());
  if (!WinHttp().SetOption(request_.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof(context))) {
    LogLastError(L"WinHttpSetOption", kLogWarn);
    WinHttp().SetStatusCallback(request_.get(), nullptr, 0, 0);
    return;
  }
  ready_ = true;
}

AsyncRequest::~AsyncRequest() {
  request_.reset();
  if (ready_ && WaitForSingleObject(step_->closed.get(), kClosingWaitMs) != WAIT_OBJECT_0) {
    Log(kLogWarn, L"a cancelled request was not released in time; its state is left behind");
    static_cast<void>(step_.release());
  }
}

bool AsyncRequest::Await(BOOL started) {
  if (!ready_) {
    SetLastError(ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
    return false;
  }
  if (!started) return false;
  const HANDLE wakers[] = {step_->done.get(), cancel_.event()};
  if (WaitForMultipleObjects(2, wakers, FALSE, INFINITE) != WAIT_OBJECT_0) {
    SetLastError(ERROR_WINHTTP_OPERATION_CANCELLED);
    return false;
  }
  if (step_->error != 0) {
    SetLastError(step_->error);
    return false;
  }
  return true;
}

bool AsyncRequest::Send(const std::string& body) {
  const auto length = static_cast<DWORD>(body.size());
  // WinHTTP only reads the optional data; the parameter is not const for historical reasons.
  void* data = body.empty() ? WINHTTP_NO_REQUEST_DATA : const_cast<char*>(body.data());
  return Await(ready_ &&
               WinHttp().SendRequest(request_.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, data, length,
                                  length, reinterpret_cast<DWORD_PTR>(step_.get())));
}

bool AsyncRequest::ReceiveHead() {
  return Await(ready_ && WinHttp().ReceiveResponse(request_.get(), nullptr));
}

// The counts come with the completions: in this mode WinHTTP asks for null out-parameters.
bool AsyncRequest::Read(char* buffer, DWORD capacity, DWORD& got) {
  got = 0;
  if (!Await(ready_ && WinHttp().QueryDataAvailable(request_.get(), nullptr))) return false;
  const DWORD available = step_->bytes;
  if (available == 0) return true;
  if (!Await(WinHttp().ReadData(request_.get(), buffer, std::min(available, capacity), nullptr))) {
    return false;
  }
  got = step_->bytes;
  return true;
}

}  // namespace qn
