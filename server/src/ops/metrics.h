#pragma once
// Counters for /metrics, in Prometheus' text format: requests by route, method and status,
// their latency as a histogram per route, and the connections and event streams open now.
#include <array>
#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <tuple>

namespace hintwick {

class Metrics {
 public:
  void Observe(std::string_view route, std::string_view method, int status, double seconds);
  void ConnectionOpened() { ++connections_; }
  void ConnectionClosed() { --connections_; }
  void StreamOpened() { ++streams_; }
  void StreamClosed() { --streams_; }
  std::string Render() const;

 private:
  static constexpr std::array<double, 11> kBuckets = {0.001, 0.005, 0.01, 0.025, 0.05, 0.1,
                                                      0.25,  0.5,   1,    2.5,   10};
  struct Latency {
    std::array<long long, kBuckets.size()> at_most{};  // cumulative, as Prometheus wants
    long long count = 0;
    double sum = 0;
  };
  mutable std::mutex mutex_;
  std::map<std::tuple<std::string, std::string, int>, long long> requests_;
  std::map<std::string, Latency> latency_;
  std::atomic<long> connections_{0};
  std::atomic<long> streams_{0};
};

}  // namespace hintwick
