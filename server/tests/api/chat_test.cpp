// Questions over real HTTP on each store, with the stand-in game's pack imported: what the gate
// lets through at each stage, stage moves, the stream's framing, and a model server that stalls.
#include <gtest/gtest.h>

#include <boost/json.hpp>

#include <sstream>

#include "scripted_model.h"
#include "service_fixture.h"

namespace hintwick::test {
namespace {

namespace json = boost::json;
using namespace std::chrono_literals;

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
  // `again`, reworded, is the same question asked again: the next tier gives what was withheld.
  struct Row { std::string patch, question, given, withheld, moved_to, again = ""; } rows[] = {
      {"{}", "how do I cross the black river?", "no note", "Ferryman", ""},
      {stage2, "How do I cross the black river?", "The Ferryman takes coins",
       "three silver coins", "", "how do i cross the Black River"},
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
    if (row.again.empty()) continue;
    Stream next = Read(service.Raw(ChatRequest(token, row.again), 10s));
    EXPECT_NE(next.text.find(row.withheld), std::string::npos) << row.again << next.text;
  }
}

INSTANTIATE_TEST_SUITE_P(Stores, ChatTest, ::testing::ValuesIn(StoreKinds()), StoreName);

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
    Player first(service.port, question);
    ASSERT_TRUE(first.Receives("Let me", 5s)) << first.received;
    ASSERT_TRUE(first.Receives("\n:\n", 2s)) << "no keep-alive: " << first.received;
    EXPECT_TRUE(open_streams());
    Stream busy = Read(service.Raw(question, 5s));
    ASSERT_EQ(busy.events.size(), 1u);
    EXPECT_EQ(busy.events[0].at("type"), "error");
    EXPECT_NE(busy.events[0].at("message").as_string().find("Ask again"), std::string::npos);
    first.socket.close();
    EXPECT_TRUE(Within(2s, [&] { return model.Closed() == round; })) << "the model request stayed";
  }
  EXPECT_FALSE(open_streams());
}

}  // namespace
}  // namespace hintwick::test
