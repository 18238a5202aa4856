#pragma once
// One streamed POST whose server-sent-event "data:" payloads reach the caller line by line.
#include <functional>
#include <string>

#include "net/http_client.h"

namespace qn {

class EventStream {
 public:
  using EventCallback = std::function<void(const std::string& payload)>;
  using CancelCheck = std::function<bool()>;

  explicit EventStream(const HttpClient& client) : client_(client) {}

  // False only when no response arrived; a non-200 reply becomes one error payload.
  bool Post(const std::string& path, const std::string& body, const std::string& token,
            const EventCallback& on_event, const CancelCheck& cancelled);

 private:
  const HttpClient& client_;
};

}  // namespace qn
