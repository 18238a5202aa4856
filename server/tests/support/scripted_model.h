#pragma once
// A model server on loopback that answers one request at a time with a script: the first piece
// of the answer at once, then nothing until the test releases the rest (or the bridge closes
// the connection), so a test decides exactly when an answer goes quiet and when it ends.
#include <boost/asio.hpp>

#include <atomic>
#include <string>
#include <thread>

namespace hintwick::test {

class ScriptedModel {
 public:
  // Without `rest` an answer is never released: it stalls until the bridge gives up on it.
  explicit ScriptedModel(std::string first, std::string rest = "");
  ~ScriptedModel();
  ScriptedModel(const ScriptedModel&) = delete;
  ScriptedModel& operator=(const ScriptedModel&) = delete;

  std::string Url() const;
  // Lets the answer being held send its rest and end; one release per answer.
  void Release() { ++released_; }
  // The answers whose connection has ended, whichever side ended it.
  int Closed() const { return closed_; }

 private:
  void Serve();
  void Answer(boost::asio::ip::tcp::socket& socket, int answer);

  std::string first_, rest_;
  std::atomic<bool> stopping_{false};
  std::atomic<int> released_{0}, closed_{0};
  boost::asio::io_context io_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::thread thread_;
};

}  // namespace hintwick::test
