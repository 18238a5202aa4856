#pragma once
// The one connection point to the service: JSON exchanges over WinHTTP, each stepped from its
// caller's thread as if it were blocking. Underneath they are asynchronous, so that the exit
// can end every one of them at once rather than wait out its time-outs.
#include <windows.h>
#include <winhttp.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/handles.h"
#include "net/async_request_win.h"

namespace qn {

struct HttpResponse {
  bool ok = false;  // a response header arrived
  int32_t status = 0;
  std::string body;
};

// The service's replies are a few kilobytes; a body beyond this is hostile or broken, and
// keeping it would let one reply exhaust the process's memory.
inline constexpr size_t kMaxResponseBytes = size_t{32} << 20;

// The handles of one exchange. Declared so that the request closes before its connection.
struct HttpRequestHandles {
  UniqueHinternet connection;
  UniqueHinternet request;
};

class HttpClient {
 public:
  bool Init(const std::wstring& base_url);
  // From any thread: every exchange under way fails at its current step, and every later one
  // at once. For the exit, which must not wait on the network.
  void CancelAll() { cancel_.Cancel(); }

  HttpResponse Get(const std::string& path, const std::string& token, DWORD timeout_ms = 0);
  HttpResponse Post(const std::string& path, const std::string& body, const std::string& token);
  HttpResponse Patch(const std::string& path, const std::string& body, const std::string& token);

  // Shared with the event stream: connects and prepares a request with our headers, on the
  // asynchronous session (async_request_win.h).
  bool OpenRequest(const wchar_t* verb, const std::string& path, const std::string& token,
                   bool streaming, DWORD timeout_ms, HttpRequestHandles& handles) const;

 private:
  HttpResponse Exchange(const wchar_t* verb, const std::string& path, const std::string& body,
                        const std::string& token, DWORD timeout_ms) const;

  UniqueHinternet session_;
  RequestCancel cancel_;
  std::wstring host_;
  INTERNET_PORT port_ = 0;
  bool secure_ = false;
};

// The status code of a received response; 0 (logged) when it cannot be read.
int32_t QueryStatusCode(HINTERNET request);

}  // namespace qn
