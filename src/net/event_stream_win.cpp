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
std::string DrainErrorBody(AsyncRequest& request) {
  std::string start;
  char buffer[kReadBytes];
  DWORD got = 0;
  size_t total = 0;
  while (total < kMaxResponseBytes && request.Read(buffer, kReadBytes, got) && got != 0) {
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

void ReadEvents(AsyncRequest& request, const EventStream::EventCallback& on_event,
                const RequestCancel& cancel) {
  SseLineReader reader(on_event);
  char buffer[kReadBytes];
  for (;;) {
    DWORD got = 0;
    if (!request.Read(buffer, kReadBytes, got)) {
      if (cancel.cancelled()) {
        Log(kLogInfo, L"SSE cancelled by caller");
      } else {
        Log(kLogWarn, L"SSE read failed: %lu", GetLastError());
      }
      return;
    }
    if (got == 0) return;
    reader.Feed(std::string_view(buffer, got));
  }
}

}  // namespace

HttpResponse EventStream::Post(const std::string& path, const std::string& body,
                               const std::string& token, const EventCallback& on_event,
                               const RequestCancel& cancel) {
  HttpRequestHandles handles;
  if (cancel.cancelled() || !client_.OpenRequest(L"POST", path, token, true, 0, handles)) return {};
  // Declared after the handles: the request closes before its connection.
  AsyncRequest request(std::move(handles.request), cancel);
  if (!request.Send(body)) {
    if (!cancel.cancelled()) Log(kLogWarn, L"SSE send failed: %lu", GetLastError());
    return {};
  }
  if (!request.ReceiveHead()) {
    if (!cancel.cancelled()) Log(kLogWarn, L"SSE receive failed: %lu", GetLastError());
    return {};
  }
  const int32_t status = QueryStatusCode(request.get());
  if (status == 200) {
    // However the stream ends, it was answered: the request is not sent again.
    ReadEvents(request, on_event, cancel);
    return {true, status, {}};
  }
  const std::string start = DrainErrorBody(request);
  Log(kLogWarn, L"SSE returned %d: %hs", static_cast<int>(status), start.c_str());
  return {true, status, {}};
}

}  // namespace qn
