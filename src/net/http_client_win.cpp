#include <windows.h>

#include <algorithm>
#include <iterator>

#include "core/failure_log.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/utf.h"
#include "net/async_request_win.h"
#include "net/http_client.h"

namespace qn {
namespace {

constexpr wchar_t kUserAgent[] = L"Hintwick/0.1";
constexpr int kResolveTimeoutMs = 10000;
constexpr int kConnectTimeoutMs = 10000;
constexpr int kSendTimeoutMs = 20000;
constexpr int kReceiveTimeoutMs = 30000;
// A chat answer may pause for a long time between sentences without being broken.
constexpr DWORD kStreamReceiveTimeoutMs = 600000;
constexpr DWORD kBodyChunkBytes = 4096;

// A token comes from the service; one holding a line break would smuggle its own headers
// into every request, so it is not sent at all.
bool IsSendableToken(const std::string& token) {
  if (token.empty()) return false;
  if (token.find_first_of("\r\n") == std::string::npos) return true;
  Log(kLogWarn, L"bearer token holds a line break; not sent");
  return false;
}

std::wstring HeaderBlock(const std::string& token, bool streaming) {
  // Deliberately on every request, bodiless GETs included: one header block for all.
  std::wstring block = L"Content-Type: application/json\r\n";
  if (IsSendableToken(token)) block += L"Authorization: Bearer " + Utf8ToWide(token) + L"\r\n";
  if (streaming) block += L"Accept: text/event-stream\r\n";
  return block;
}

void SetTimeoutOption(HINTERNET request, DWORD option, DWORD timeout_ms) {
  if (!WinHttp().SetOption(request, option, &timeout_ms, sizeof(timeout_ms))) {
    LogLastError(L"WinHttpSetOption", kLogWarn);
  }
}

void SetRequestTimeouts(HINTERNET request, DWORD timeout_ms, bool streaming) {
  const int all = static_cast<int>(timeout_ms);
  if (timeout_ms != 0 && !WinHttp().SetTimeouts(request, all, all, all, all)) {
    LogLastError(L"WinHttpSetTimeouts", kLogWarn);
  }
  if (streaming) SetTimeoutOption(request, WINHTTP_OPTION_RECEIVE_TIMEOUT, kStreamReceiveTimeoutMs);
  // The wait for the response head has a time-out of its own, which Wine neither derives
  // from the receive time-out nor bounds; tied to it, a silent server is left alike everywhere.
  const DWORD receive = timeout_ms != 0 ? timeout_ms
                        : streaming     ? kStreamReceiveTimeoutMs
                                        : static_cast<DWORD>(kReceiveTimeoutMs);
  SetTimeoutOption(request, WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, receive);
}

// The body is read to its end, or to the cap, in which case nothing of it is kept.
bool ReadBody(AsyncRequest& request, std::string& body) {
  char buffer[kBodyChunkBytes];
  DWORD got = 0;
  while (request.Read(buffer, kBodyChunkBytes, got) && got != 0) {
    if (body.size() + got > kMaxResponseBytes) {
      body.clear();
      body.shrink_to_fit();
      return false;
    }
    body.append(buffer, got);
  }
  return true;
}

void LogExchangeFailure(const wchar_t* verb, const std::string& path, const wchar_t* step,
                        DWORD error) {
  if (std::wstring_view(verb) == L"GET") {
    Log(kLogWarn, L"GET %hs failed: %lu", path.c_str(), error);
  } else {
    Log(kLogWarn, L"%ls %hs %ls failed: %lu", verb, path.c_str(), step, error);
  }
}

UniqueHinternet OpenSession(DWORD flags) {
  UniqueHinternet session(WinHttp().Open(kUserAgent, WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY,
                                        WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, flags));
  if (!session) {
    LogLastError(L"WinHttpOpen", kLogError);
    return session;
  }
  if (!WinHttp().SetTimeouts(session.get(), kResolveTimeoutMs, kConnectTimeoutMs, kSendTimeoutMs,
                             kReceiveTimeoutMs)) {
    LogLastError(L"WinHttpSetTimeouts", kLogWarn);
  }
  return session;
}

}  // namespace

int32_t QueryStatusCode(HINTERNET request) {
  DWORD status = 0;
  DWORD size = sizeof(status);
  if (!WinHttp().QueryHeaders(request, WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                              WINHTTP_HEADER_NAME_BY_INDEX, &status, &size,
                              WINHTTP_NO_HEADER_INDEX)) {
    LogLastError(L"WinHttpQueryHeaders", kLogWarn);
    return 0;
  }
  return static_cast<int32_t>(status);
}

bool HttpClient::Init(const std::wstring& base_url) {
  session_.reset();
  // Every request goes through the session made here, so only here is the DLL checked.
  if (!WinHttp()) return LogLastError(L"winhttp.dll", kLogError);
  wchar_t host[256] = {};
  URL_COMPONENTS parts{};
  parts.dwStructSize = sizeof(parts);
  parts.lpszHostName = host;
  parts.dwHostNameLength = static_cast<DWORD>(std::size(host));
  if (!WinHttp().CrackUrl(base_url.c_str(), 0, 0, &parts)) {
    Log(kLogError, L"could not parse base URL '%ls' (%lu)", base_url.c_str(), GetLastError());
    return false;
  }
  host_.assign(host, parts.dwHostNameLength);
  port_ = parts.nPort;
  secure_ = parts.nScheme == INTERNET_SCHEME_HTTPS;
  session_ = OpenSession(WINHTTP_FLAG_ASYNC);
  if (!session_) return false;
  Log(kLogInfo, L"net client ready: %ls://%ls:%u", secure_ ? L"https" : L"http", host_.c_str(),
      unsigned{port_});
  return true;
}

bool HttpClient::OpenRequest(const wchar_t* verb, const std::string& path, const std::string& token,
                             bool streaming, DWORD timeout_ms, HttpRequestHandles& handles) const {
  if (!session_) return false;
  handles.connection.reset(WinHttp().Connect(session_.get(), host_.c_str(), port_, 0));
  if (!handles.connection) {
    LogLastError(L"WinHttpConnect", kLogWarn);
    return false;
  }
  const std::wstring object = Utf8ToWide(path);
  handles.request.reset(WinHttp().OpenRequest(
      handles.connection.get(), verb, object.c_str(), nullptr, WINHTTP_NO_REFERER,
      WINHTTP_DEFAULT_ACCEPT_TYPES, secure_ ? WINHTTP_FLAG_SECURE : 0));
  if (!handles.request) {
    LogLastError(L"WinHttpOpenRequest", kLogWarn);
    return false;
  }
  SetRequestTimeouts(handles.request.get(), timeout_ms, streaming);
  const std::wstring headers = HeaderBlock(token, streaming);
  if (!WinHttp().AddRequestHeaders(handles.request.get(), headers.c_str(), static_cast<DWORD>(-1),
                                   WINHTTP_ADDREQ_FLAG_ADD | WINHTTP_ADDREQ_FLAG_REPLACE)) {
    LogLastError(L"WinHttpAddRequestHeaders", kLogWarn);
    return false;
  }
  return true;
}

HttpResponse HttpClient::Get(const std::string& path, const std::string& token, DWORD timeout_ms) {
  return Exchange(L"GET", path, std::string(), token, timeout_ms);
}

HttpResponse HttpClient::Post(const std::string& path, const std::string& body,
                              const std::string& token) {
  return Exchange(L"POST", path, body, token, 0);
}

HttpResponse HttpClient::Patch(const std::string& path, const std::string& body,
                               const std::string& token) {
  return Exchange(L"PATCH", path, body, token, 0);
}

HttpResponse HttpClient::Exchange(const wchar_t* verb, const std::string& path,
                                  const std::string& body, const std::string& token,
                                  DWORD timeout_ms) const {
  HttpResponse response;
  HttpRequestHandles handles;
  if (cancel_.cancelled() || !OpenRequest(verb, path, token, false, timeout_ms, handles)) {
    return response;
  }
  // Declared after the handles: the request closes before its connection.
  AsyncRequest request(std::move(handles.request), cancel_);
  // At the exit, an exchange cut short is expected, and not worth a line.
  if (!request.Send(body)) {
    if (!cancel_.cancelled()) LogExchangeFailure(verb, path, L"send", GetLastError());
    return response;
  }
  if (!request.ReceiveHead()) {
    if (!cancel_.cancelled()) LogExchangeFailure(verb, path, L"receive", GetLastError());
    return response;
  }
  response.ok = true;
  response.status = QueryStatusCode(request.get());
  const bool whole = ReadBody(request, response.body);
  if (cancel_.cancelled()) return HttpResponse{};
  if (!whole) {
    Log(kLogWarn, L"%ls %hs reply over %lu MiB; dropped", verb, path.c_str(),
        static_cast<unsigned long>(kMaxResponseBytes >> 20));
    return HttpResponse{};
  }
  return response;
}

}  // namespace qn
