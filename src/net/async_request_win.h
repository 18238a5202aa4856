#pragma once
// A streamed request in WinHTTP's asynchronous mode, stepped from one thread as if it were
// blocking. Each step waits for its completion or for the cancel event; a cancelled step
// closes the request, which is how WinHTTP ends an asynchronous request at once. A blocking
// request can only be ended by its time-outs: ten minutes for a stalled answer.
#include <windows.h>
#include <winhttp.h>

#include <memory>
#include <string>

#include "core/handles.h"

namespace qn {

// Set from any thread; the request it is given to ends at its next or current step.
class RequestCancel {
 public:
  RequestCancel();
  void Cancel() { SetEvent(event_.get()); }
  void Reset() { ResetEvent(event_.get()); }
  bool cancelled() const { return WaitForSingleObject(event_.get(), 0) == WAIT_OBJECT_0; }
  HANDLE event() const { return event_.get(); }

 private:
  UniqueKernelHandle event_;
};

class AsyncRequest {
 public:
  // Takes the request, opened on an asynchronous session.
  AsyncRequest(UniqueHinternet request, const RequestCancel& cancel);
  ~AsyncRequest();
  AsyncRequest(const AsyncRequest&) = delete;
  AsyncRequest& operator=(const AsyncRequest&) = delete;

  // Each false when the step failed or was cancelled; GetLastError tells which. `body` must
  // outlive the request.
  bool Send(const std::string& body);
  bool ReceiveHead();
  // What has arrived, at most `capacity` bytes; `got` is 0 at the end of the body.
  bool Read(char* buffer, DWORD capacity, DWORD& got);
  HINTERNET get() const { return request_.get(); }

 private:
  struct Step;
  static void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status, LPVOID info,
                                DWORD length);
  bool Await(BOOL started);

  UniqueHinternet request_;
  const RequestCancel& cancel_;
  std::unique_ptr<Step> step_;  // shared with WinHTTP's threads until the handle has closed
  bool ready_ = false;          // WinHTTP reports to us; without it no step could end
};

}  // namespace qn
