#include "ops/log.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

namespace hintwick {
namespace {

std::mutex log_mutex;

std::string TimeStamp() {
  auto now = std::chrono::system_clock::now();
  std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(
                    now.time_since_epoch()).count() % 1000;
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[40];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%03dZ", utc.tm_year + 1900,
                utc.tm_mon + 1, utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec,
                static_cast<int>(millis));
  return text;
}

// A path is the client's text: control bytes would let it forge lines of its own.
std::string Printable(std::string_view text) {
  std::string out(text.substr(0, 200));
  for (auto& ch : out)
    if (static_cast<unsigned char>(ch) < 0x20 || ch == 0x7f) ch = '?';
  return out;
}

}  // namespace

void LogLine(std::string_view text) {
  std::string line = TimeStamp() + " " + std::string(text) + "\n";
  std::lock_guard lock(log_mutex);
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}

void LogRequest(const RequestLogEntry& entry) {
  char tail[64];
  std::snprintf(tail, sizeof tail, " %d %.1fms %zu", entry.status, entry.seconds * 1000,
                entry.bytes_out);
  LogLine(Printable(entry.peer) + " " + Printable(entry.method) + " " +
          Printable(entry.path) + tail);
}

}  // namespace hintwick
