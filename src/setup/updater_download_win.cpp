#include <windows.h>

#include <cstdint>
#include <string>
#include <utility>

#include "core/failure_log.h"
#include "core/handles.h"
#include "core/log.h"
#include "core/utf.h"
#include "net/async_request_win.h"
#include "net/http_client.h"
#include "setup/updater.h"

namespace qn {
namespace {

constexpr wchar_t kUserAgent[] = L"Hintwick-updater/0.1";
constexpr int kResolveTimeoutMs = 15000;
constexpr int kConnectTimeoutMs = 15000;
constexpr int kSendTimeoutMs = 30000;
constexpr int kReceiveTimeoutMs = 120000;
constexpr DWORD kReadChunkBytes = 16384;

struct UrlParts {
  std::wstring host;
  std::wstring object;  // path and query
  INTERNET_PORT port = 0;
  bool secure = false;
};

bool CrackUrl(const std::wstring& url, UrlParts& parts) {
  URL_COMPONENTS components{};
  components.dwStructSize = sizeof(components);
  // Lengths of -1 ask for pointers into `url` rather than copies.
  components.dwHostNameLength = static_cast<DWORD>(-1);
  components.dwUrlPathLength = static_cast<DWORD>(-1);
  components.dwExtraInfoLength = static_cast<DWORD>(-1);
  // The first call of a download, so the one that checks that winhttp.dll loaded.
  if (!WinHttp()) return LogLastError(L"winhttp.dll", kLogWarn);
  if (!WinHttp().CrackUrl(url.c_str(), 0, 0, &components) || components.dwHostNameLength == 0) {
    return false;
  }
  parts.host.assign(components.lpszHostName, components.dwHostNameLength);
  parts.object.assign(components.lpszUrlPath, components.dwUrlPathLength);
  parts.object.append(components.lpszExtraInfo, components.dwExtraInfoLength);
  if (parts.object.empty()) parts.object = L"/";
  parts.port = components.nPort;
  parts.secure = components.nScheme == INTERNET_SCHEME_HTTPS;
  return true;
}

// Declared so that they close in reverse order of opening; the request itself is the
// stepping request's, which closes first.
struct DownloadHandles {
  UniqueHinternet session;
  UniqueHinternet connection;
  UniqueHinternet request;
};

// Asynchronous, so that Cancel ends the download at once rather than at a time-out.
bool OpenDownload(const UrlParts& url, DownloadHandles& handles) {
  handles.session.reset(WinHttp().Open(kUserAgent, WINHTTP_ACCESS_TYPE_AUTOMATIC_PROXY,
                                       WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS,
                                       WINHTTP_FLAG_ASYNC));
  if (!handles.session) return LogLastError(L"WinHttpOpen", kLogWarn);
  if (!WinHttp().SetTimeouts(handles.session.get(), kResolveTimeoutMs, kConnectTimeoutMs,
                             kSendTimeoutMs, kReceiveTimeoutMs)) {
    LogLastError(L"WinHttpSetTimeouts", kLogWarn);
  }
  handles.connection.reset(WinHttp().Connect(handles.session.get(), url.host.c_str(), url.port, 0));
  if (!handles.connection) return LogLastError(L"WinHttpConnect", kLogWarn);
  handles.request.reset(WinHttp().OpenRequest(
      handles.connection.get(), L"GET", url.object.c_str(), nullptr, WINHTTP_NO_REFERER,
      WINHTTP_DEFAULT_ACCEPT_TYPES, url.secure ? WINHTTP_FLAG_SECURE : 0));
  if (!handles.request) return LogLastError(L"WinHttpOpenRequest", kLogWarn);
  // Wine bounds the wait for the response head by an option of its own, not the receive
  // time-out; set alike, a silent server is given up on after the same time everywhere.
  DWORD receive = kReceiveTimeoutMs;
  if (!WinHttp().SetOption(handles.request.get(), WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT, &receive,
                           sizeof(receive))) {
    LogLastError(L"WinHttpSetOption", kLogWarn);
  }
  return true;
}

// 0 when the reply does not say (a chunked one).
uint64_t ContentLength(HINTERNET request) {
  wchar_t digits[32] = {};
  DWORD size = sizeof(digits);
  if (!WinHttp().QueryHeaders(request, WINHTTP_QUERY_CONTENT_LENGTH, WINHTTP_HEADER_NAME_BY_INDEX,
                              digits, &size, WINHTTP_NO_HEADER_INDEX)) {
    return 0;
  }
  uint64_t length = 0;
  for (const wchar_t* digit = digits; *digit >= L'0' && *digit <= L'9'; ++digit) {
    if (length > (UINT64_MAX - 9) / 10) return UINT64_MAX;  // over any cap
    length = length * 10 + static_cast<uint64_t>(*digit - L'0');
  }
  return length;
}

enum class BodyRead { kWhole, kTooBig, kFailed };

BodyRead ReadWholeBody(AsyncRequest& request, size_t cap, const DownloadWatch& watch,
                       std::string& body) {
  const uint64_t total = ContentLength(request.get());
  const auto too_big = [&] {
    Log(kLogWarn, L"update download over %llu bytes; dropped", static_cast<unsigned long long>(cap));
    body = std::string();
    return BodyRead::kTooBig;
  };
  if (total > cap) return too_big();
  std::string chunk(kReadChunkBytes, '\0');
  for (DWORD got = 0;;) {
    if (!request.Read(chunk.data(), kReadChunkBytes, got)) return BodyRead::kFailed;
    if (got == 0) return BodyRead::kWhole;
    if (body.size() + got > cap) return too_big();
    body.append(chunk.data(), got);
    if (watch.progress) watch.progress(body.size(), total);
  }
}

}  // namespace

std::optional<std::string> Updater::Download(const std::string& url,
                                            const DownloadWatch& watch) const {
  UrlParts parts;
  if (!CrackUrl(Utf8ToWide(url), parts)) {
    Log(kLogWarn, L"update url could not be parsed");
    return std::nullopt;
  }
  DownloadHandles handles;
  if (!OpenDownload(parts, handles)) return std::nullopt;
  const RequestCancel never;
  const RequestCancel& cancel = watch.cancel ? *watch.cancel : never;
  const std::string no_body;  // read by WinHTTP until the request closes
  AsyncRequest request(std::move(handles.request), cancel);
  const auto failed = [&](const wchar_t* call) {
    if (cancel.cancelled()) {
      Log(kLogInfo, L"update download cancelled");
    } else {
      LogLastError(call, kLogWarn);
    }
    return std::nullopt;
  };
  if (!request.Send(no_body)) return failed(L"WinHttpSendRequest");
  if (!request.ReceiveHead()) return failed(L"WinHttpReceiveResponse");
  const int32_t status = QueryStatusCode(request.get());
  if (status != 200) {
    Log(kLogWarn, L"update download returned %lu", static_cast<unsigned long>(status));
    return std::nullopt;
  }
  std::string body;
  switch (ReadWholeBody(request, options_.max_download_bytes, watch, body)) {
    case BodyRead::kWhole:
      return body;
    case BodyRead::kTooBig:
      return std::nullopt;
    case BodyRead::kFailed:
      break;
  }
  return failed(L"WinHttpReadData");
}

}  // namespace qn
