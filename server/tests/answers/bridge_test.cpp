#include <gtest/gtest.h>

#include <future>
#include <thread>

#include <boost/asio.hpp>
#include <boost/json.hpp>

#include "answers/bridge.h"
#include "answers/spoiler_guard.h"
#include "answers/turn.h"
#include "scripted_model.h"

namespace hintwick {
namespace {

using test::Content, test::Data, test::Script, test::ScriptedModel;

namespace asio = boost::asio;
using asio::ip::tcp;
using namespace std::chrono_literals;

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

// clang-format off
TEST(BridgeTest, ForwardsContentAndTurnsFailuresIntoWords) {
  constexpr ModelTimeouts kStall{1000ms, 1000ms, 150ms}, kFirstByte{1000ms, 150ms, 1000ms};
  const AnswerEnd kFailed = AnswerEnd::kFailed;
  BridgeRow rows[] = {
      {"utf-8 split across chunks",
       {"200 OK", {{0ms, R"(data: {"choices":[{"delta":{"content":"caf)" "\xC3"},
                   {20ms, "\xA9\"}}]}\n\n" + Data("[DONE]")}}}, {}, "café"},
      {"reasoning dropped, done ends it",
       {"200 OK", {{0ms, ": ping\n\n" + Data(R"({"choices":[{"delta":{"reasoning_content":"x"}}]})")},
                   {0ms, Content("ok") + Data("[DONE]") + Content("after")}}}, {}, "ok"},
      {"error mid-answer",
       {"200 OK", {{0ms, Content("Hal")}, {10ms, Data(R"({"error":{"message":"out of memory"}})")}}},
       {}, "Hal", kFailed, "out of memory"},
      {"busy status", {"503 Service Unavailable", {{0ms, R"({"error":{"message":"loading"}})"}}}, {},
       "", kFailed, "busy (http 503: loading)"},
      {"stall", {"200 OK", {{0ms, Content("a")}, {600ms, Content("b")}}}, kStall, "a", kFailed,
       "stopped in the middle"},
      {"first byte", {"200 OK", {{600ms, Content("a")}}}, kFirstByte, "", kFailed,
       "did not start answering within 1 seconds"},
      {"unreachable", {"", {}}, {}, "", kFailed, "Could not reach the answer model"},
  };
  // clang-format on
  for (BridgeRow& row : rows) {
    ScriptedModel model({row.script});
    asio::io_context io;
    std::string url = model.Url();
    if (row.script.status.empty()) {  // a port nobody listens on
      tcp::acceptor closed(io, {asio::ip::make_address("127.0.0.1"), 0});
      url = "http://127.0.0.1:" + std::to_string(closed.local_endpoint().port());
    }
    Cancellation cancel;
    std::string answer;
    PieceSink sink = [&](std::string_view piece) -> asio::awaitable<bool> {
      answer += piece;
      co_return true;
    };
    ModelEndpoint endpoint{url, "m", "", row.timeouts};
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
  auto start = std::chrono::steady_clock::now();
  AnswerResult result =
      RunToEnd(io, StreamCompletion({model.Url(), "m", "", {}}, "{}", sink, cancel));
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);  // not the stall time-out's 30 s
  canceller.join();
  EXPECT_EQ(result.end, AnswerEnd::kCancelled);
  EXPECT_TRUE(test::Within(2s, [&] { return model.Closed() == 1; }));
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
  EXPECT_NE(second_clean.Requests()[1].find("previous answer named something"), std::string::npos);
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
