// Questions over real HTTP on each store, with the stand-in game's pack imported: what the gate
// lets through at each stage, stage moves, the stream's framing, and a model server that stalls.
#include <gtest/gtest.h>

#include <boost/asio.hpp>
#include <boost/json.hpp>

#include <fstream>
#include <optional>
#include <sstream>

#include "packs/pack_parser.h"
#include "scripted_model.h"
#include "service_fixture.h"

namespace hintwick::test {
namespace {

namespace asio = boost::asio;
namespace json = boost::json;
using tcp = asio::ip::tcp;
using namespace std::chrono_literals;
constexpr const char* kGame = "hintwick_test_game";

void ImportSamplePack(Store& store) {
  std::stringstream text;
  text << std::ifstream(HINTWICK_SAMPLE_PACK).rdbuf();
  auto parsed = ParsePack(text.str(), HINTWICK_SAMPLE_PACK);
  ASSERT_TRUE(std::holds_alternative<Pack>(parsed));
  ASSERT_TRUE(std::holds_alternative<bool>(store.ImportPack(std::get<Pack>(parsed))));
}

std::string ChatRequest(const std::string& token, const std::string& message) {
  std::string body = json::serialize(json::object{{"game", kGame}, {"message", message}});
  return "POST /v1/chat HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + token +
         "\r\nAccept: text/event-stream\r\nContent-Type: application/json\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

struct Stream {
  std::string head, text;  // text: the tokens' texts joined
  std::vector<json::object> events;
};

// Checks the framing on the way: every line is a `data:` line holding one JSON object (a parse
// failure throws, which fails the test), a keep-alive, or the blank line after an event.
Stream Read(const std::string& raw) {
  Stream stream;
  std::size_t end = raw.find("\r\n\r\n");
  stream.head = raw.substr(0, end);
  std::istringstream lines(end == std::string::npos ? "" : raw.substr(end + 4));
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() || line == ":") continue;
    EXPECT_EQ(line.rfind("data: ", 0), 0u) << line;
    const json::object& event = stream.events.emplace_back(json::parse(line.substr(6)).as_object());
    if (event.at("type") == "token") stream.text += event.at("text").as_string();
  }
  return stream;
}

class ChatTest : public ::testing::TestWithParam<std::string> {};

// Each row a new player: the record as patched, then one question, which may name a stage.
TEST_P(ChatTest, AnswersAreGatedAtTheRecordedStageOrTheOneTheQuestionNames) {
  TestService service(GetParam());
  ImportSamplePack(service.store());
  const std::string stage2 = R"({"stage":"Whisperwood","stage_ordinal":2})";
  struct Row { std::string patch, question, given, withheld, moved_to; } rows[] = {
      {"{}", "how do I cross the black river?", "no note", "Ferryman", ""},
      {stage2, "how do I cross the black river?", "The Ferryman takes coins", "Brass Heart", ""},
      {"{}", "what starts the millwheel?", "no note", "Brass Heart", ""},
      {R"({"spoilers_ok":true})", "what starts the millwheel?", "The Brass Heart drives",
       "Moon Key", ""},
      {R"({"directness":"coach","spoilers_ok":true})", "what starts the millwheel?",
       "Look at what is stuck", "Brass Heart", ""},
      {"{}", "I just beat the village, how do I cross the black river?", "Ferryman", "Brass Heart",
       "Whisperwood"},
      {"{}", "how do I get past the woods and the Ferryman?", "no note", "silver", ""},
      {stage2, "I'm at the crypt now, how do I open the gate?", "Moon Key", "Tidewarden",
       "The Sunken Crypt"},
  };
  for (const Row& row : rows) {
    std::string token = service.SignUp().access, memory = std::string("/v1/memory/") + kGame;
    ASSERT_EQ(service.Call("PATCH", memory, row.patch, token).status, 200);
    Stream answer = Read(service.Raw(ChatRequest(token, row.question), 10s));
    for (const char* header : {"HTTP/1.1 200", "Content-Type: text/event-stream",
                               "Cache-Control: no-cache", "X-Accel-Buffering: no"})
      EXPECT_NE(answer.head.find(header), std::string::npos) << header;
    EXPECT_NE(answer.text.find(row.given), std::string::npos) << row.question << answer.text;
    EXPECT_EQ(answer.text.find(row.withheld), std::string::npos) << row.question << answer.text;
    ASSERT_GE(answer.events.size(), 2u);
    EXPECT_EQ(answer.events.back().at("type"), "done");  // nothing lost after the answer
    // The program appends tokens to its last message: the notice must follow the words.
    const auto& before_done = answer.events[answer.events.size() - 2];
    bool moved = !row.moved_to.empty();
    EXPECT_EQ(before_done.at("type") == "memory", moved) << row.question;
    if (moved) EXPECT_EQ(before_done.at("stage"), row.moved_to.c_str());
    auto record = service.Call("GET", memory, "", token).Json();
    EXPECT_EQ(record.at("revision"), moved ? 2 : 1) << row.question;
    if (moved) EXPECT_EQ(record.at("stage"), row.moved_to.c_str());
  }
}

// Reworded, the question still counts as asked again; on PostgreSQL the second asking goes to
// another service on the same database, as behind a balancer.
TEST_P(ChatTest, AQuestionAskedAgainGetsTheNextTierWhicheverProcessAnswers) {
  TestService first(GetParam());
  std::optional<TestService> second;
  if (GetParam() == "postgres") second.emplace(GetParam());
  const TestService& again = second ? *second : first;
  ImportSamplePack(first.store());
  std::string token = first.SignUp().access;
  ASSERT_EQ(first
                .Call("PATCH", std::string("/v1/memory/") + kGame,
                      R"({"stage":"Whisperwood","stage_ordinal":2})", token)
                .status,
            200);
  Stream hint = Read(first.Raw(ChatRequest(token, "How do I cross the black river?"), 10s));
  EXPECT_NE(hint.text.find("The Ferryman takes coins"), std::string::npos) << hint.text;
  EXPECT_EQ(hint.text.find("three silver coins"), std::string::npos) << hint.text;
  Stream answer = Read(again.Raw(ChatRequest(token, "how do i cross the Black River"), 10s));
  EXPECT_NE(answer.text.find("three silver coins"), std::string::npos) << answer.text;
}

INSTANTIATE_TEST_SUITE_P(Stores, ChatTest, ::testing::ValuesIn(StoreKinds()), StoreName);

template <class Done>
bool Within(std::chrono::milliseconds wait, Done done) {
  auto end = std::chrono::steady_clock::now() + wait;
  for (; !done(); std::this_thread::sleep_for(5ms))
    if (std::chrono::steady_clock::now() > end) return false;
  return true;
}

TEST(ChatStreamTest, BusyLimitKeepAliveAndALeavingClientThatFreesItsSlot) {
  ScriptedModel model("Let me think about that lantern for a moment.");  // and then nothing
  Config config;
  config.model_url = model.Url();
  config.answer_concurrency = 1;
  config.keepalive = 100ms;
  TestService service("sqlite", config);
  ImportSamplePack(service.store());
  std::string token = service.SignUp().access;
  std::string question = ChatRequest(token, "how do I light the lantern?");
  auto open_streams = [&] {
    return service.Call("GET", "/metrics").body.find("streams 1") != std::string::npos;
  };
  for (int round = 1; round <= 2; ++round) {
    asio::io_context io;
    tcp::socket first(io);
    first.connect({asio::ip::make_address("127.0.0.1"), service.port});
    asio::write(first, asio::buffer(question));
    std::string received;
    auto has = [&](const char* wanted) {
      char chunk[512];
      if (first.available()) received.append(chunk, first.read_some(asio::buffer(chunk)));
      return received.find(wanted) != std::string::npos;
    };
    ASSERT_TRUE(Within(5s, [&] { return has("Let me"); })) << received;
    ASSERT_TRUE(Within(2s, [&] { return has("\n:\n"); })) << "no keep-alive: " << received;
    EXPECT_TRUE(open_streams());
    Stream busy = Read(service.Raw(question, 5s));
    ASSERT_EQ(busy.events.size(), 1u);
    EXPECT_EQ(busy.events[0].at("type"), "error");
    EXPECT_NE(busy.events[0].at("message").as_string().find("Ask again"), std::string::npos);
    first.close();
    EXPECT_TRUE(Within(2s, [&] { return model.Closed() == round; })) << "the model request stayed";
  }
  EXPECT_FALSE(open_streams());
}

}  // namespace
}  // namespace hintwick::test
