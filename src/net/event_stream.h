#pragma once
// One streamed POST whose server-sent-event "data:" payloads reach the caller line by line.
#include <functional>
#include <string>

#include "net/async_request_win.h"
#include "net/http_client.h"

namespace qn {

class EventStream {
 public:
  using EventCallback = std::function<void(const std::string& payload)>;

  explicit EventStream(const HttpClient& client) : client_(client) {}

  // Not ok when no response arrived. A status other than 200 delivers no payload: what it
  // means is the caller's to decide, which may send the request again. `cancel` ends the
  // request from another thread.
  HttpResponse Post(const std::string& path, const std::string& body, const std::string& token,
                    const EventCallback& on_event, const RequestCancel& cancel);

 private:
  const HttpClient& client_;
};

}  // namespace qn
