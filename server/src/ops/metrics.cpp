#include "ops/metrics.h"

#include <cstdio>

namespace hintwick {
namespace {

// The method is the client's word; any label made of it must come from a bounded set.
std::string_view KnownMethod(std::string_view method) {
  for (std::string_view known : {"GET", "POST", "PATCH", "PUT", "DELETE", "HEAD", "OPTIONS", "-"})
    if (method == known) return known;
  return "other";
}

}  // namespace

void Metrics::Observe(std::string_view route, std::string_view method, int status,
                      double seconds) {
  std::lock_guard lock(mutex_);
  ++requests_[{std::string(route), std::string(KnownMethod(method)), status}];
  Latency& latency = latency_[std::string(route)];
  for (std::size_t i = 0; i < kBuckets.size(); ++i)
    if (seconds <= kBuckets[i]) ++latency.at_most[i];
  ++latency.count;
  latency.sum += seconds;
}

std::string Metrics::Render() const {
  std::string out;
  char line[256];
  auto add = [&](const char* format, auto... values) {
    std::snprintf(line, sizeof line, format, values...);
    out += line;
  };
  std::lock_guard lock(mutex_);
  out += "# TYPE hintwick_requests_total counter\n";
  for (const auto& [key, count] : requests_) {
    const auto& [route, method, status] = key;
    add("hintwick_requests_total{route=\"%s\",method=\"%s\",status=\"%d\"} %lld\n",
        route.c_str(), method.c_str(), status, count);
  }
  out += "# TYPE hintwick_request_seconds histogram\n";
  for (const auto& [route, latency] : latency_) {
    for (std::size_t i = 0; i < kBuckets.size(); ++i)
      add("hintwick_request_seconds_bucket{route=\"%s\",le=\"%g\"} %lld\n", route.c_str(),
          kBuckets[i], latency.at_most[i]);
    add("hintwick_request_seconds_bucket{route=\"%s\",le=\"+Inf\"} %lld\n", route.c_str(),
        latency.count);
    add("hintwick_request_seconds_sum{route=\"%s\"} %.6f\n", route.c_str(), latency.sum);
    add("hintwick_request_seconds_count{route=\"%s\"} %lld\n", route.c_str(), latency.count);
  }
  add("# TYPE hintwick_open_connections gauge\nhintwick_open_connections %ld\n",
      connections_.load());
  add("# TYPE hintwick_open_streams gauge\nhintwick_open_streams %ld\n", streams_.load());
  return out;
}

}  // namespace hintwick
