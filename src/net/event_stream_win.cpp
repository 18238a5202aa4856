#include <windows.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "core/log.h"
#include "net/event_stream.h"
#include "net/sse_lines.h"

namespace qn {
namespace {

// Small reads keep each event's latency down to the arrival of its own line.
constexpr DWORD kReadBytes = 2048;
constexpr size_t kLoggedBodyBytes = 200;

// An error reply is read to its end (up to the cap) so the connection closes cleanly; only
// its start is kept, for the log.
std::string DrainErrorBody(HINTERNET request) {
  std::string start;
  char buffer[kReadBytes];
  DWORD got = 0;
  size_t total = 0;
  while (total < kMaxResponseBytes && ReadAvailable(request, buffer, kReadBytes, got) && got != 0) {
    if (start.size() < kLoggedBodyBytes) {
      start.append(buffer, std::min<size_t>(got, kLoggedBodyBytes - start.size()));
    }
    total += got;
  }
  // Control bytes would let a reply forge or break lines in the log.
  std::replace_if(
      start.begin(), start.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  return start;
}

void ReadEvents(HINTERNET request, const EventStream::EventCallback& on_event,
                const EventStream::CancelCheck& cancelled) {
  SseLineReader reader(on_event);
  char buffer[kReadBytes];
  for (;;) {
    if (cancelled && cancelled()) {
      Log(kLogInfo, L"SSE cancelled by caller");
      return;
    }
    DWORD got = 0;
    if (!ReadAvailable(request, buffer, kReadBytes, got)) {
      Log(kLogWarn, L"SSE read failed: %lu", GetLastError());
      return;
    }
    if (got == 0) return;
    reader.Feed(std::string_view(buffer, got));
  }
}

}  // namespace

HttpResponse EventStream::Post(const std::string& path, const std::string& body,
                               const std::string& token, const EventCallback& on_event,
                               const CancelCheck& cancelled) {
  HttpRequestHandles handles;
  if (!client_.OpenRequest(L"POST", path, token, true, 0, handles)) return {};
  if (!SendRequestBody(handles.request.get(), body)) {
    Log(kLogWarn, L"SSE send failed: %lu", GetLastError());
    return {};
  }
  if (!WinHttp().ReceiveResponse(handles.request.get(), nullptr)) {
    Log(kLogWarn, L"SSE receive failed: %lu", GetLastError());
    return {};
  }
  const int32_t status = QueryStatusCode(handles.request.get());
  if (status == 200) {
    // However the stream ends, it was answered: the request is not sent again.
    ReadEvents(handles.request.get(), on_event, cancelled);
    return {true, status, {}};
  }
  const std::string start = DrainErrorBody(handles.request.get());
  Log(kLogWarn, L"SSE returned %d: %hs", static_cast<int>(status), start.c_str());
  return {true, status, {}};
}

}  // namespace qn
