#pragma once
// A model server on loopback that answers each request with the next script (the last one again
// once they run out): the head at once, then each step's bytes after its pause as one chunk. A
// held answer then sends nothing until the test releases the rest (or the bridge closes the
// connection), so a test decides exactly when an answer goes quiet and when it ends.
#include <boost/asio.hpp>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace hintwick::test {

std::string Data(std::string_view json);     // one line of an event stream
std::string Content(std::string_view text);  // a line with a piece of the answer's words

struct Step {
  std::chrono::milliseconds pause{0};
  std::string bytes;
};
struct Script {
  std::string status = "200 OK";
  std::vector<Step> steps;
  bool held = false;  // after the steps, wait for Release() or the bridge's close
  std::string rest = "";  // what a release sends; without it a held answer is never released
};

class ScriptedModel {
 public:
  explicit ScriptedModel(std::vector<Script> scripts);
  // The first piece at once, held; the rest and [DONE] once released.
  explicit ScriptedModel(const std::string& first, const std::string& rest = "")
      : ScriptedModel({{"200 OK", {{{}, Content(first)}}, true,
                        rest.empty() ? "" : Content(rest) + Data("[DONE]")}}) {}
  ~ScriptedModel();
  ScriptedModel(const ScriptedModel&) = delete;
  ScriptedModel& operator=(const ScriptedModel&) = delete;

  std::string Url() const;
  void Release() { ++released_; }  // one release per answer
  // The answers whose connection has ended, whichever side ended it.
  int Closed() const { return closed_; }
  std::vector<std::string> Requests() const;  // their bodies, in order

 private:
  void Serve();
  void Answer(boost::asio::ip::tcp::socket& socket, int answer);

  std::vector<Script> scripts_;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;
  std::atomic<bool> stopping_{false};
  std::atomic<int> released_{0}, closed_{0};
  boost::asio::io_context io_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::thread thread_;
};

// Whether `done()` came true within `wait`.
template <class Done>
bool Within(std::chrono::milliseconds wait, Done done) {
  const auto end = std::chrono::steady_clock::now() + wait;
  for (; !done(); std::this_thread::sleep_for(std::chrono::milliseconds(5)))
    if (std::chrono::steady_clock::now() > end) return false;
  return true;
}

}  // namespace hintwick::test
