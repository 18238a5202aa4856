#pragma once
// The service's log: one line each, to stdout, with a UTC time stamp. Nothing that reaches it
// carries a password or a token: requests are logged by method, path, status and time only.
#include <string_view>

namespace hintwick {

void LogLine(std::string_view text);

struct RequestLogEntry {
  std::string_view peer;
  std::string_view method;
  std::string_view path;
  int status = 0;
  double seconds = 0;
  std::size_t bytes_out = 0;
};

void LogRequest(const RequestLogEntry& entry);

}  // namespace hintwick
