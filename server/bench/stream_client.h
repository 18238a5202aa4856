#pragma once
// The players' side of the stream bench: chat streams opened at a set pace against the
// service, each timed from the request's first byte to its first `data:` event and read to
// its end.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio.hpp>

namespace hintwick::bench {

using Clock = std::chrono::steady_clock;

enum class Outcome { kAnswered, kRefused, kErrorEvent, kNoConnection, kTimedOut, kCutShort };
constexpr int kOutcomes = 6;
const char* OutcomeName(Outcome outcome);

struct StreamSample {
  Outcome outcome = Outcome::kTimedOut;
  double first_event_ms = -1;  // request sent to first event; negative: none came
};

struct Target {
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;
  std::vector<std::string> tokens;  // spread over the streams in turn
  std::string game;
};

// One batch of streams. The counters may be read from any thread while it runs; the samples
// only once `finished` has reached the batch's size.
struct Batch {
  explicit Batch(int count) : samples(static_cast<std::size_t>(count)) {}
  std::vector<StreamSample> samples;
  std::atomic<int> first_events{0};
  std::atomic<int> finished{0};
};

class StreamClient {
 public:
  StreamClient(boost::asio::io_context& io, Target target);
  // Opens `count` streams, `per_second` of them a second (0: all at once); every stream ends by
  // `deadline`, cut off there if need be.
  std::shared_ptr<Batch> Launch(int count, double per_second, Clock::time_point deadline);

 private:
  boost::asio::awaitable<void> Pace(std::shared_ptr<Batch> batch, double per_second,
                                    Clock::time_point deadline);
  boost::asio::awaitable<void> Stream(std::shared_ptr<Batch> batch, std::size_t index,
                                      Clock::time_point deadline);
  std::string RequestFor(std::size_t index) const;

  boost::asio::io_context& io_;
  Target target_;
};

}  // namespace hintwick::bench
