// The catalogue and the progress record over real HTTP on each store.
#include <gtest/gtest.h>

#include <boost/json.hpp>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

namespace json = boost::json;

class ProgressTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ProgressTest, CatalogueListsEveryKeyAsAnEntry) {
  TestService service(GetParam());
  std::string key = UniqueName("game"), alias = UniqueName("game");
  ASSERT_TRUE(std::holds_alternative<bool>(service.store().PutGame({key, alias}, "Odd Quest", true)));
  EXPECT_EQ(service.Call("GET", "/v1/games").status, 401);
  auto listed = service.Call("GET", "/v1/games", "", service.SignUp().access).Json();
  ASSERT_TRUE(listed.is_array());
  for (const auto& slug : {key, alias}) {
    auto entry = json::parse(R"({"slug":")" + slug + R"(","display_name":"Odd Quest","has_index":true})");
    EXPECT_EQ(std::count(listed.as_array().begin(), listed.as_array().end(), entry), 1) << slug;
  }
}

TEST_P(ProgressTest, MemoryReadPatchAndNewPlaythrough) {
  TestService service(GetParam());
  std::string token = service.SignUp().access;
  std::string path = "/v1/memory/" + UniqueName("game");
  auto record = [](const char* stage, int ordinal, const char* directness, bool spoilers, int revision) {
    return json::value{{"stage", stage}, {"stage_ordinal", ordinal}, {"directness", directness},
                       {"spoilers_ok", spoilers}, {"revision", revision}};
  };
  EXPECT_EQ(service.Call("GET", path, "", token).Json(), record("", 0, "hints", false, 0));
  struct Row {
    std::string patch;
    json::value record;  // as it reads after the patch; null for a refusal
  } rows[] = {
      {R"({"stage":"act 2","stage_ordinal":3})", record("act 2", 3, "hints", false, 1)},
      {R"({"directness":"answer","spoilers_ok":true})", record("act 2", 3, "answer", true, 2)},
      {R"({"directness":"Coach"})", nullptr},
      {R"({"spoilers_ok":"true"})", nullptr},
      {R"({"stage_ordinal":1.5})", nullptr},
      {R"({"stage":7})", nullptr},
      {R"(["stage"])", nullptr},
  };
  for (const Row& row : rows) {
    auto reply = service.Call("PATCH", path, row.patch, token);
    EXPECT_EQ(reply.status, row.record.is_null() ? 400 : 200) << row.patch << " " << reply.body;
    if (!row.record.is_null()) EXPECT_EQ(reply.Json(), row.record) << row.patch;
  }
  auto reset = service.Call("POST", path + "/new-playthrough", "{}", token);
  EXPECT_EQ(reset.Json(), record("", 0, "answer", true, 3));
  EXPECT_EQ(service.Call("GET", path, "", token).Json(), reset.Json());
}

TEST_P(ProgressTest, RecordsBelongToOnePlayerAndOneExactKey) {
  TestService service(GetParam());
  std::string mine = service.SignUp().access, theirs = service.SignUp().access;
  std::string game = UniqueName("game");
  ASSERT_EQ(service.Call("PATCH", "/v1/memory/" + game, R"({"stage":"act 3"})", mine).status, 200);
  struct Row {
    std::string path, token;
    int status;
    std::string stage;
  } rows[] = {
      {"/v1/memory/" + game, mine, 200, "act 3"},
      {"/v1/memory/" + game, theirs, 200, ""},
      {"/v1/memory/" + game + "?x=1", mine, 200, "act 3"},
      {"/v1/memory/G" + game.substr(1), mine, 200, ""},
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
