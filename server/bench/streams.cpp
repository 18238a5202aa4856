// The service carrying many chat streams at once, each bridged to a scripted model that starts
// every answer after the same fixed delay. For each count of streams: the delay the service
// adds before a stream's first event (p50, p99), the streams that failed and how, the
// server's resident memory idle and with every stream of the round open, and its CPU time.
// Then its memory after 100,000 short answers against after 1,000, which a leak would grow.
// A fresh server for each figure, so one round's memory is not the next one's baseline.
// Usage: hintwick-stream-bench [--counts 1000,5000,10000] [--per-second 1000]
//          [--delay-ms 200] [--answers 100000] [--batch 500] [--accounts 4] [--logs DIR]
//          -- SERVER_EXE SERVER_FLAGS...   (server/bench/streams.sh passes the flags)
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <numeric>
#include <optional>
#include <sys/resource.h>
#include <thread>

#include "scripted_model.h"
#include "server_process.h"
#include "stream_client.h"

namespace hintwick::bench {
namespace {

namespace asio = boost::asio;
using std::chrono::milliseconds;
using std::chrono::seconds;

// The server's own descriptors (listener, database, log, epoll, timers) with room to spare.
constexpr int kSpareDescriptors = 64;

struct Options {
  std::vector<int> counts{1000, 5000, 10000};
  double per_second = 1000;
  milliseconds delay{200};
  long answers = 100000;
  int batch = 500;
  int accounts = 4;
  std::string logs = ".";
  std::vector<std::string> server;
};

struct RoundFigures {
  int streams = 0;
  double p50_ms = 0, p99_ms = 0;
  long idle_kib = 0, open_kib = 0;
  int open_at_sample = 0;  // streams past their first event when the memory was read
  double cpu_seconds = 0;
  double cpu_wait_percent = 0;  // of the round's time, some task on the machine waited for a CPU
  std::array<int, kOutcomes> outcomes{};
};

struct GrowthFigures {
  long early_kib = 0, late_kib = 0;
  long early_answers = 0, late_answers = 0;
  std::array<int, kOutcomes> outcomes{};
};

int Errors(const std::array<int, kOutcomes>& outcomes) {
  return std::accumulate(outcomes.begin() + 1, outcomes.end(), 0);
}

double Percentile(const std::vector<double>& sorted, double q) {
  if (sorted.empty()) return -1;
  auto rank = static_cast<std::size_t>(std::ceil(q * static_cast<double>(sorted.size())));
  return sorted[std::clamp<std::size_t>(rank, 1, sorted.size()) - 1];
}

// Microseconds any task has waited for a CPU since boot: on a shared machine the figures mean
// little when this grows fast.
double CpuWaitMicroseconds() {
  std::FILE* file = std::fopen("/proc/pressure/cpu", "r");
  if (!file) return 0;
  double avg10 = 0, avg60 = 0, avg300 = 0, total = 0;
  int read = std::fscanf(file, "some avg10=%lf avg60=%lf avg300=%lf total=%lf", &avg10, &avg60,
                         &avg300, &total);
  std::fclose(file);
  return read == 4 ? total : 0;
}

bool WaitFor(const std::atomic<int>& counter, int target, Clock::time_point until) {
  while (counter < target && Clock::now() < until) std::this_thread::sleep_for(milliseconds(10));
  return counter >= target;
}

Clock::time_point After(double seconds_from_now) {
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(
                            std::chrono::duration<double>(seconds_from_now));
}

class Bench {
 public:
  explicit Bench(Options options)
      : options_(std::move(options)), model_(model_io_), model_work_(model_io_.get_executor()),
        client_work_(client_io_.get_executor()) {
    model_.Start();
    model_.SetDelay(options_.delay);
    model_thread_ = std::thread([this] { model_io_.run(); });
    client_thread_ = std::thread([this] { client_io_.run(); });
  }
  ~Bench() {
    model_work_.reset();
    client_work_.reset();
    model_io_.stop();
    client_io_.stop();
    model_thread_.join();
    client_thread_.join();
  }

  std::optional<RoundFigures> Round(int streams);
  std::optional<GrowthFigures> Growth();

 private:
  std::unique_ptr<ServerProcess> StartServer(const std::string& name);
  std::shared_ptr<Batch> RunAll(int count, double per_second, double bound_seconds);
  void Tally(const Batch& batch, std::array<int, kOutcomes>& outcomes) const;

  Options options_;
  asio::io_context model_io_{1}, client_io_{1};
  ScriptedModel model_;
  asio::executor_work_guard<asio::io_context::executor_type> model_work_, client_work_;
  std::thread model_thread_, client_thread_;
  Target target_;
};

std::unique_ptr<ServerProcess> Bench::StartServer(const std::string& name) {
  std::vector<std::string> command = options_.server;
  command.insert(command.end(),
                 {"--model-url", "http://127.0.0.1:" + std::to_string(model_.Port()) + "/v1",
                  "--model-name", "scripted"});
  auto server = std::make_unique<ServerProcess>(command, options_.logs + "/" + name + ".log");
  auto port = server->Start();
  if (!port) return nullptr;
  target_.port = *port;
  target_.game = "hintwick_test_game";
  // The accounts outlive each server in its database; the tokens, for an hour, with them.
  for (int i = static_cast<int>(target_.tokens.size()); i < options_.accounts; ++i) {
    auto token = AccessToken(*port, "stream-bench-" + std::to_string(i) + "@example.org");
    if (!token) return nullptr;
    target_.tokens.push_back(*token);
  }
  return server;
}

// Nothing returns until every stream has ended; each is cut off at the bound by its own deadline.
std::shared_ptr<Batch> Bench::RunAll(int count, double per_second, double bound_seconds) {
  StreamClient client(client_io_, target_);
  auto batch = client.Launch(count, per_second, After(bound_seconds));
  while (batch->finished < count) std::this_thread::sleep_for(milliseconds(5));
  return batch;
}

void Bench::Tally(const Batch& batch, std::array<int, kOutcomes>& outcomes) const {
  for (const StreamSample& sample : batch.samples) ++outcomes[static_cast<int>(sample.outcome)];
}

std::optional<RoundFigures> Bench::Round(int streams) {
  auto server = StartServer("round-" + std::to_string(streams));
  if (!server) return std::nullopt;
  RunAll(20, 0, 10);  // the first answers set up what every later one reuses
  std::this_thread::sleep_for(seconds(1));
  RoundFigures figures;
  figures.streams = streams;
  figures.idle_kib = server->ResidentKiB();
  double cpu_before = server->CpuSeconds();
  double wait_before = CpuWaitMicroseconds();
  Clock::time_point start = Clock::now();
  model_.Hold();
  double ramp = streams / options_.per_second + options_.delay.count() / 1000.0;
  StreamClient client(client_io_, target_);
  auto batch = client.Launch(streams, options_.per_second, After(ramp + 40));
  WaitFor(batch->first_events, streams, After(ramp + 20));
  figures.open_kib = server->ResidentKiB();
  figures.open_at_sample = batch->first_events;
  model_.Release();
  while (batch->finished < streams) std::this_thread::sleep_for(milliseconds(10));
  figures.cpu_seconds = server->CpuSeconds() - cpu_before;
  double round_us = std::chrono::duration<double, std::micro>(Clock::now() - start).count();
  figures.cpu_wait_percent = 100 * (CpuWaitMicroseconds() - wait_before) / round_us;
  std::vector<double> added;
  for (const StreamSample& sample : batch->samples)
    if (sample.first_event_ms >= 0) added.push_back(sample.first_event_ms - options_.delay.count());
  std::sort(added.begin(), added.end());
  figures.p50_ms = Percentile(added, 0.50);
  figures.p99_ms = Percentile(added, 0.99);
  Tally(*batch, figures.outcomes);
  return figures;
}

std::optional<GrowthFigures> Bench::Growth() {
  auto server = StartServer("growth");
  if (!server) return std::nullopt;
  model_.SetDelay(milliseconds(0));
  GrowthFigures figures;
  long early = std::min<long>(1000, options_.answers);
  for (long done = 0; done < options_.answers;) {
    int count = static_cast<int>(std::min<long>(options_.batch, options_.answers - done));
    Tally(*RunAll(count, 0, 60), figures.outcomes);
    done += count;
    if (done != early && done != options_.answers) continue;
    std::this_thread::sleep_for(milliseconds(500));
    (done == early ? figures.early_kib : figures.late_kib) = server->ResidentKiB();
    (done == early ? figures.early_answers : figures.late_answers) = done;
  }
  model_.SetDelay(options_.delay);
  return figures;
}

std::string Breakdown(const std::array<int, kOutcomes>& outcomes) {
  std::string text;
  for (int i = 1; i < kOutcomes; ++i) {
    if (outcomes[i] == 0) continue;
    text += (text.empty() ? " (" : ", ") + std::to_string(outcomes[i]) + " " +
            OutcomeName(static_cast<Outcome>(i));
  }
  return text.empty() ? text : text + ")";
}

void PrintRounds(const Options& options, const std::vector<RoundFigures>& rounds) {
  std::printf("\nChat streams, the model's first piece after %lld ms, opened %.0f a second:\n",
              static_cast<long long>(options.delay.count()), options.per_second);
  std::printf("%8s %10s %10s %10s %10s %8s %10s %7s %9s  %s\n", "streams", "p50 added",
              "p99 added", "RSS idle", "RSS at N", "open", "per stream", "CPU s", "CPU wait",
              "errors");
  for (const RoundFigures& r : rounds) {
    double per_stream = static_cast<double>(r.open_kib - r.idle_kib) / r.streams;
    std::printf("%8d %7.2f ms %7.2f ms %6.1f MiB %6.1f MiB %8d %6.1f KiB %7.2f %8.0f%%  %d%s\n",
                r.streams, r.p50_ms, r.p99_ms, r.idle_kib / 1024.0, r.open_kib / 1024.0,
                r.open_at_sample, per_stream, r.cpu_seconds, r.cpu_wait_percent,
                Errors(r.outcomes), Breakdown(r.outcomes).c_str());
  }
  std::printf("CPU wait: the share of the round in which some task on the machine waited for a "
              "CPU (/proc/pressure/cpu);\nwell above zero, the machine was shared and the "
              "delays hold scheduling, not only the service.\n");
  std::printf("Goals: 10,000 streams without an error, at most 100 KB a stream, p99 added "
              "under 5 ms at 1,000 and under 50 ms at 10,000.\n");
}

void PrintGrowth(const Options& options, const GrowthFigures& g) {
  double growth = 100.0 * static_cast<double>(g.late_kib - g.early_kib) / g.early_kib;
  std::printf("\nMemory after %ld answers against after %ld (%d at a time, scripted model, no "
              "delay): %.1f MiB -> %.1f MiB, %+.1f %% (goal: under 5 %%); errors %d%s\n",
              g.late_answers, g.early_answers, options.batch, g.early_kib / 1024.0,
              g.late_kib / 1024.0, growth, Errors(g.outcomes), Breakdown(g.outcomes).c_str());
}

std::vector<int> Counts(const char* text) {
  std::vector<int> counts;
  for (const char* at = text; *at; at = std::strchr(at, ',') ? std::strchr(at, ',') + 1 : "")
    counts.push_back(std::atoi(at));
  return counts;
}

std::optional<Options> ParseOptions(int argc, char** argv) {
  Options o;
  int i = 1;
  for (; i + 1 < argc && std::strcmp(argv[i], "--") != 0; i += 2) {
    std::string flag = argv[i];
    const char* value = argv[i + 1];
    if (flag == "--counts") o.counts = Counts(value);
    else if (flag == "--per-second") o.per_second = std::atof(value);
    else if (flag == "--delay-ms") o.delay = milliseconds(std::atol(value));
    else if (flag == "--answers") o.answers = std::atol(value);
    else if (flag == "--batch") o.batch = std::max(1, std::atoi(value));
    else if (flag == "--accounts") o.accounts = std::max(1, std::atoi(value));
    else if (flag == "--logs") o.logs = value;
    else return std::nullopt;
  }
  if (i >= argc || std::strcmp(argv[i], "--") != 0 || i + 1 >= argc) return std::nullopt;
  o.server.assign(argv + i + 1, argv + argc);
  return o;
}

// Each stream holds two descriptors in the server (the player's and the model's connection)
// and two in the bench; a count beyond the limit would measure refusals of accept, not the
// service.
int StreamsThatFit(int wanted) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  int fit = static_cast<int>(std::min<rlim_t>(limit.rlim_cur, 1 << 30) - kSpareDescriptors) / 2;
  if (wanted <= fit) return wanted;
  std::fprintf(stderr, "%d streams need %d descriptors and the limit is %llu: measuring %d\n",
               wanted, 2 * wanted + kSpareDescriptors,
               static_cast<unsigned long long>(limit.rlim_cur), fit);
  return fit;
}

int Run(const Options& options) {
  Bench bench(options);
  std::vector<RoundFigures> rounds;
  for (int wanted : options.counts) {
    int streams = StreamsThatFit(wanted);
    auto figures = bench.Round(streams);
    if (!figures) {
      std::fprintf(stderr, "the server did not start or sign in; see %s\n", options.logs.c_str());
      return 1;
    }
    rounds.push_back(*figures);
    std::fprintf(stderr, "%d streams measured\n", streams);
  }
  PrintRounds(options, rounds);
  if (options.answers <= 0) return 0;
  auto growth = bench.Growth();
  if (!growth) return 1;
  PrintGrowth(options, *growth);
  return 0;
}

}  // namespace
}  // namespace hintwick::bench

int main(int argc, char** argv) {
  auto options = hintwick::bench::ParseOptions(argc, argv);
  if (!options) {
    std::fprintf(stderr, "usage: hintwick-stream-bench [--counts N,N] [--per-second R] "
                         "[--delay-ms D] [--answers A] [--batch B] [--accounts K] [--logs DIR] "
                         "-- SERVER_EXE FLAGS...\n");
    return 2;
  }
  try {
    return hintwick::bench::Run(*options);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "stream bench failed: %s\n", e.what());
    return 1;
  }
}
