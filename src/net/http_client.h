#pragma once
// The one connection point to the service: blocking JSON exchanges over WinHTTP.
#include <windows.h>
#include <winhttp.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/handles.h"

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

  HttpResponse Get(const std::string& path, const std::string& token, DWORD timeout_ms = 0);
  HttpResponse Post(const std::string& path, const std::string& body, const std::string& token);
  HttpResponse Patch(const std::string& path, const std::string& body, const std::string& token);

  // Shared with the event stream: connects and prepares a request with our headers; a
  // streaming one is opened on the asynchronous session (async_request_win.h).
  bool OpenRequest(const wchar_t* verb, const std::string& path, const std::string& token,
                   bool streaming, DWORD timeout_ms, HttpRequestHandles& handles) const;

 private:
  HttpResponse Exchange(const wchar_t* verb, const std::string& path, const std::string& body,
                        const std::string& token, DWORD timeout_ms) const;

  UniqueHinternet session_;
  UniqueHinternet stream_session_;  // asynchronous, so that a stalled stream can be ended at once
  std::wstring host_;
  INTERNET_PORT port_ = 0;
  bool secure_ = false;
};

// Steps of a blocking exchange, shared with the update's download (the event stream runs its
// own, asynchronous ones). On failure GetLastError tells why.
bool SendRequestBody(HINTERNET request, const std::string& body);
// The status code of a received response; 0 (logged) when it cannot be read.
int32_t QueryStatusCode(HINTERNET request);
// Reads what has arrived, at most `capacity` bytes, blocking only until something has;
// `got` is 0 at the end of the body.
bool ReadAvailable(HINTERNET request, char* buffer, DWORD capacity, DWORD& got);

}  // namespace qn
