// The catalogue and the progress record over real HTTP on each store.
#include <gtest/gtest.h>

#include <boost/json.hpp>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

namespace json = boost::json;

std::string AccessToken(const TestService& service) {
  auto reply = service.Call("POST", "/v1/auth/register",
                            R"({"email":")" + UniqueEmail() + R"(","password":"correct horse"})");
  EXPECT_EQ(reply.status, 200);
  return std::string(reply.Json().at("access_token").as_string());
}

class ProgressTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ProgressTest, CatalogueListsEveryKeyAsAnEntry) {
  TestService service(GetParam());
  std::string key = UniqueName("game"), alias = UniqueName("game");
  ASSERT_TRUE(std::holds_alternative<bool>(service.store().PutGame({key, alias}, "Odd Quest", true)));
  std::string token = AccessToken(service);
  EXPECT_EQ(service.Call("GET", "/v1/games").status, 401);
  auto reply = service.Call("GET", "/v1/games", "", token);
  ASSERT_EQ(reply.status, 200);
  auto listed = reply.Json();
  ASSERT_TRUE(listed.is_array()) << reply.body;
  int found = 0;
  for (const auto& entry : listed.as_array()) {
    const auto& game = entry.as_object();
    if (game.at("slug").as_string() != key && game.at("slug").as_string() != alias) continue;
    ++found;
    EXPECT_EQ(game.at("display_name"), "Odd Quest");
    EXPECT_EQ(game.at("has_index"), true);
  }
  EXPECT_EQ(found, 2);
}

TEST_P(ProgressTest, MemoryReadPatchAndNewPlaythrough) {
  TestService service(GetParam());
  std::string token = AccessToken(service);
  std::string path = "/v1/memory/" + UniqueName("game");
  auto fresh = service.Call("GET", path, "", token);
  ASSERT_EQ(fresh.status, 200);
  EXPECT_EQ(fresh.Json(), json::parse(R"({"stage":"","stage_ordinal":0,"directness":"hints",
                                          "spoilers_ok":false,"revision":0})"));
  struct Row {
    std::string patch;
    int status;
    std::string stage;
    std::string directness;
    bool spoilers;
  } rows[] = {
      {R"({"stage":"act 2","stage_ordinal":3})", 200, "act 2", "hints", false},
      {R"({"directness":"answer","spoilers_ok":true})", 200, "act 2", "answer", true},
      {R"({})", 200, "act 2", "answer", true},
      {R"({"directness":"Coach"})", 400, "", "", false},
      {R"({"spoilers_ok":"true"})", 400, "", "", false},
      {R"({"stage_ordinal":1.5})", 400, "", "", false},
      {R"({"stage":7})", 400, "", "", false},
      {R"(["stage"])", 400, "", "", false},
  };
  std::int64_t revision = 0;
  for (const Row& row : rows) {
    auto reply = service.Call("PATCH", path, row.patch, token);
    ASSERT_EQ(reply.status, row.status) << row.patch << " " << reply.body;
    if (row.status != 200) continue;
    auto record = reply.Json().as_object();
    EXPECT_EQ(record.at("stage"), row.stage.c_str());
    EXPECT_EQ(record.at("directness"), row.directness.c_str());
    EXPECT_EQ(record.at("spoilers_ok"), row.spoilers);
    EXPECT_GE(record.at("revision").as_int64(), revision) << row.patch;
    revision = record.at("revision").as_int64();
  }
  EXPECT_GT(revision, 0);
  auto reset = service.Call("POST", path + "/new-playthrough", "{}", token);
  ASSERT_EQ(reset.status, 200);
  auto record = reset.Json().as_object();
  EXPECT_EQ(record.at("stage"), "");
  EXPECT_EQ(record.at("stage_ordinal"), 0);
  EXPECT_EQ(record.at("directness"), "answer");
  EXPECT_EQ(record.at("spoilers_ok"), true);
  EXPECT_EQ(service.Call("GET", path, "", token).Json(), reset.Json());
}

TEST_P(ProgressTest, RecordsBelongToOnePlayerAndOneExactKey) {
  TestService service(GetParam());
  std::string mine = AccessToken(service), theirs = AccessToken(service);
  std::string game = UniqueName("game");
  ASSERT_EQ(service.Call("PATCH", "/v1/memory/" + game, R"({"stage":"act 3"})", mine).status, 200);
  struct Row {
    std::string path;
    std::string token;
    int status;
    std::string stage;
  } rows[] = {
      {"/v1/memory/" + game, mine, 200, "act 3"},
      {"/v1/memory/" + game, theirs, 200, ""},
      {"/v1/memory/" + game + "?x=1", mine, 200, "act 3"},
      {"/v1/memory/" + std::string(1, static_cast<char>(std::toupper(game[0]))) + game.substr(1),
       mine, 200, ""},
      {"/v1/memory/" + game, "forged", 401, ""},
      {"/v1/memory/" + game, "", 401, ""},
      {"/v1/memory/" + std::string(129, 'k'), mine, 400, ""},
      {"/v1/memory/", mine, 404, ""},
  };
  for (const Row& row : rows) {
    auto reply = service.Call("GET", row.path, "", row.token);
    ASSERT_EQ(reply.status, row.status) << row.path;
    if (row.status == 200) EXPECT_EQ(reply.Json().at("stage"), row.stage.c_str()) << row.path;
  }
}

INSTANTIATE_TEST_SUITE_P(Stores, ProgressTest, ::testing::ValuesIn(StoreKinds()), StoreName);

}  // namespace
}  // namespace hintwick::test
