#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <sstream>
#include <thread>

#include <boost/asio.hpp>
#include <boost/json.hpp>

#include "answers/bridge.h"
#include "answers/spoiler_guard.h"
#include "answers/turn.h"

namespace hintwick {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using namespace std::chrono_literals;

// One step of a scripted reply: a pause, then bytes sent as one HTTP chunk.
struct Step {
  std::chrono::milliseconds pause;
  std::string bytes;
};
struct Script {
  std::string status = "200 OK";
  std::vector<Step> steps;
  bool hold_open = false;  // after the steps, wait for the bridge to close the connection
};

std::string Data(std::string_view json) { return "data: " + std::string(json) + "\n\n"; }
std::string Content(std::string_view text) {
  return Data(R"({"choices":[{"delta":{"content":")" + std::string(text) + R"("}}]})");
}

// An OpenAI-compatible server on loopback that answers each connection with the next script.
class ScriptedModel {
 public:
  explicit ScriptedModel(std::vector<Script> scripts)
      : acceptor_(io_, {asio::ip::make_address("127.0.0.1"), 0}),
        thread_([this, scripts = std::move(scripts)] { Serve(scripts); }) {}
  ~ScriptedModel() {
    boost::system::error_code ignored;
    acceptor_.close(ignored);
    thread_.join();
  }
  std::string Url() const {
    return "http://127.0.0.1:" + std::to_string(acceptor_.local_endpoint().port());
  }
  std::future<void> ClosedByBridge() { return closed_.get_future(); }
  std::vector<std::string> requests;

 private:
  void Serve(const std::vector<Script>& scripts) {
    for (const Script& script : scripts) {
      boost::system::error_code error;
      tcp::socket socket(io_);
      acceptor_.accept(socket, error);
      if (error) return;
      ReadRequest(socket);
      Reply(socket, script);
    }
  }
  void ReadRequest(tcp::socket& socket) {
    std::string request;
    boost::system::error_code error;
    asio::read_until(socket, asio::dynamic_buffer(request), "\r\n\r\n", error);
    std::size_t head = request.find("\r\n\r\n") + 4;
    std::size_t length = std::stoul(request.substr(request.find("Content-Length: ") + 16));
    if (request.size() < head + length) {
      asio::read(socket, asio::dynamic_buffer(request),
                 asio::transfer_exactly(head + length - request.size()), error);
    }
    requests.push_back(request.substr(head));
  }
  void Reply(tcp::socket& socket, const Script& script) {
    boost::system::error_code error;
    asio::write(
        socket,
        asio::buffer("HTTP/1.1 " + script.status +
                     "\r\nContent-Type: text/event-stream\r\nTransfer-Encoding: chunked\r\n\r\n"),
        error);
    for (const Step& step : script.steps) {
      std::this_thread::sleep_for(step.pause);
      std::ostringstream chunk;
      chunk << std::hex << step.bytes.size() << "\r\n" << step.bytes << "\r\n";
      asio::write(socket, asio::buffer(chunk.str()), error);
    }
    if (!script.hold_open) {
      asio::write(socket, asio::buffer(std::string("0\r\n\r\n")), error);
      return;
    }
    char byte;
    socket.read_some(asio::buffer(&byte, 1), error);  // returns when the bridge closes
    if (error) closed_.set_value();
  }

  asio::io_context io_;
  tcp::acceptor acceptor_;
  std::promise<void> closed_;
  std::thread thread_;
};

template <typename T>
T RunToEnd(asio::io_context& io, asio::awaitable<T> work) {
  std::future<T> result = asio::co_spawn(io, std::move(work), asio::use_future);
  io.run();
  return result.get();
}

struct BridgeRow {
  const char* name;
  Script script;
  ModelTimeouts timeouts{1000ms, 1000ms, 1000ms};
  std::string answer;
  AnswerEnd end = AnswerEnd::kComplete;
  std::string error_part = "";
};

TEST(BridgeTest, ForwardsContentAndTurnsFailuresIntoWords) {
  BridgeRow rows[] = {
      {"utf-8 split across chunks",
       {"200 OK",
        {{0ms, R"(data: {"choices":[{"delta":{"content":"caf)"
               "\xC3"},
         {20ms, "\xA9\"}}]}\n\n" + Data("[DONE]")}}},
       {},
       "café"},
      {"reasoning dropped, done ends it",
       {"200 OK",
        {{0ms, ": ping\n\n" + Data(R"({"choices":[{"delta":{"reasoning_content":"secret"}}]})")},
         {0ms, Content("ok") + Data("[DONE]") + Content("after")}}},
       {},
       "ok"},
      {"error mid-answer",
       {"200 OK",
        {{0ms, Content("Hal")}, {10ms, Data(R"({"error":{"message":"out of memory"}})")}}},
       {},
       "Hal",
       AnswerEnd::kFailed,
       "out of memory"},
      {"busy status",
       {"503 Service Unavailable", {{0ms, R"({"error":{"message":"loading"}})"}}},
       {},
       "",
       AnswerEnd::kFailed,
       "busy (http 503: loading)"},
      {"stall",
       {"200 OK", {{0ms, Content("a")}, {600ms, Content("b")}}},
       {1000ms, 1000ms, 150ms},
       "a",
       AnswerEnd::kFailed,
       "stopped in the middle"},
      {"first byte",
       {"200 OK", {{600ms, Content("a")}}},
       {1000ms, 150ms, 1000ms},
       "",
       AnswerEnd::kFailed,
       "did not start answering within 1 seconds"},
  };
  for (BridgeRow& row : rows) {
    ScriptedModel model({row.script});
    asio::io_context io;
    Cancellation cancel;
    std::string answer;
    PieceSink sink = [&](std::string_view piece) -> asio::awaitable<bool> {
      answer += piece;
      co_return true;
    };
    ModelEndpoint endpoint{model.Url(), "m", "", row.timeouts};
    AnswerResult result =
        RunToEnd(io, StreamCompletion(endpoint, R"({"model":"m"})", sink, cancel));
    EXPECT_EQ(answer, row.answer) << row.name;
    EXPECT_EQ(result.end, row.end) << row.name;
    EXPECT_NE(result.error.find(row.error_part), std::string::npos)
        << row.name << ": " << result.error;
  }
}

TEST(BridgeTest, CancelClosesTheUpstreamConnectionAtOnce) {
  ScriptedModel model({{"200 OK", {{0ms, Content("first")}}, true}});
  asio::io_context io;
  Cancellation cancel;
  std::thread canceller;
  PieceSink sink = [&](std::string_view) -> asio::awaitable<bool> {
    // As the HTTP layer would, from its side, while the bridge waits on the model.
    canceller = std::thread([&] {
      std::this_thread::sleep_for(50ms);
      cancel.Cancel();
    });
    co_return true;
  };
  std::future<void> closed = model.ClosedByBridge();
  auto start = std::chrono::steady_clock::now();
  AnswerResult result =
      RunToEnd(io, StreamCompletion({model.Url(), "m", "", {}}, "{}", sink, cancel));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);  // not the stall time-out's 30 s
  canceller.join();
  EXPECT_EQ(result.end, AnswerEnd::kCancelled);
  EXPECT_EQ(closed.wait_for(2s), std::future_status::ready);
}

TEST(BridgeTest, UnreachableServerIsSaidSo) {
  asio::io_context io;
  tcp::acceptor closed(io, {asio::ip::make_address("127.0.0.1"), 0});
  std::string url = "http://127.0.0.1:" + std::to_string(closed.local_endpoint().port());
  closed.close();
  Cancellation cancel;
  PieceSink sink = [](std::string_view) -> asio::awaitable<bool> { co_return true; };
  AnswerResult result = RunToEnd(io, StreamCompletion({url, "m", "", {}}, "{}", sink, cancel));
  EXPECT_NE(result.error.find("Could not reach the answer model"), std::string::npos);
}

// The turn's event types in order, consecutive tokens as one, and the tokens' text.
struct Turn {
  std::vector<std::string> types;
  std::string answer;
};

Turn RunTurn(ScriptedModel& model, const AnswerRequest& request) {
  asio::io_context io;
  Cancellation cancel;
  Turn turn;
  EventSink send = [&](std::string line) -> asio::awaitable<bool> {
    auto event = boost::json::parse(line.substr(6)).as_object();
    std::string type(event["type"].as_string());
    if (type == "token") turn.answer += event["text"].as_string();
    if (type == "redacted") turn.answer = event["message"].as_string();
    if (turn.types.empty() || turn.types.back() != type || type != "token")
      turn.types.push_back(type);
    co_return true;
  };
  ModelAnswerer answerer({model.Url(), "m", "", {}});
  RunToEnd(io, RunAnswer(request, answerer, send, cancel));
  return turn;
}

TEST(TurnTest, ASpoilerIsDiscardedOnceThenRedacted) {
  AnswerRequest request{
      "who rules?", {"Gate", 1, Directness::kHints, false}, {"Game", {}, {{"Mara", 2}}},
      true,         {{"Lever", "Pull it.", 1, 1}},          kHint};
  Script spoiler{"200 OK", {{0ms, Content("It is ") + Content("Mara.") + Data("[DONE]")}}};
  Script clean{"200 OK", {{0ms, Content("Pull the lever.") + Data("[DONE]")}}};
  ScriptedModel second_clean({spoiler, clean});
  Turn turn = RunTurn(second_clean, request);
  EXPECT_EQ(turn.types, (std::vector<std::string>{"discard", "token", "done"}));
  EXPECT_EQ(turn.answer, "Pull the lever.\n\nFrom the notes: Lever");
  EXPECT_NE(second_clean.requests[1].find("previous answer named something"), std::string::npos);
  ScriptedModel both_spoil({spoiler, spoiler});
  turn = RunTurn(both_spoil, request);
  EXPECT_EQ(turn.types, (std::vector<std::string>{"discard", "redacted", "done"}));
  EXPECT_EQ(turn.answer, kRedactedMessage);
  ScriptedModel only_thinking(
      {{"200 OK",
        {{0ms, Data(R"({"choices":[{"delta":{"reasoning_content":"hm"}}]})") + Data("[DONE]")}}}});
  EXPECT_EQ(RunTurn(only_thinking, request).types, std::vector<std::string>{"error"});
}

}  // namespace
}  // namespace hintwick
