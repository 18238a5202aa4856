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
  return reply.status == 200 ? std::string(reply.Json().at("access_token").as_string()) : "";
}

class ProgressTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ProgressTest, CatalogueListsEveryKeyAsAnEntry) {
  TestService service(GetParam());
  std::string key = UniqueName("game"), alias = UniqueName("game");
  ASSERT_TRUE(std::holds_alternative<bool>(service.store().PutGame({key, alias}, "Odd Quest", true)));
  EXPECT_EQ(service.Call("GET", "/v1/games").status, 401);
  auto listed = service.Call("GET", "/v1/games", "", AccessToken(service)).Json();
  ASSERT_TRUE(listed.is_array());
  int found = 0;
  for (const auto& entry : listed.as_array()) {
    const auto& slug = entry.at("slug").as_string();
    if (slug != key && slug != alias) continue;
    ++found;
    EXPECT_EQ(entry, json::parse(R"({"slug":")" + std::string(slug) +
                                 R"(","display_name":"Odd Quest","has_index":true})"));
  }
  EXPECT_EQ(found, 2);
}

TEST_P(ProgressTest, MemoryReadPatchAndNewPlaythrough) {
  TestService service(GetParam());
  std::string token = AccessToken(service);
  std::string path = "/v1/memory/" + UniqueName("game");
  const char* fresh = R"({"stage":"","stage_ordinal":0,"directness":"hints","spoilers_ok":false,"revision":0})";
  EXPECT_EQ(service.Call("GET", path, "", token).Json(), json::parse(fresh));
  struct Row {
    std::string patch;
    std::string record;  // as it reads after the patch; empty for a refusal
  } rows[] = {
      {R"({"stage":"act 2","stage_ordinal":3})", R"("act 2",3,"hints",false,1)"},
      {R"({"directness":"answer","spoilers_ok":true})", R"("act 2",3,"answer",true,2)"},
      {R"({})", R"("act 2",3,"answer",true,3)"},
      {R"({"directness":"Coach"})", ""},
      {R"({"spoilers_ok":"true"})", ""},
      {R"({"stage_ordinal":1.5})", ""},
      {R"({"stage":7})", ""},
      {R"(["stage"])", ""},
  };
  auto as_row = [](const json::value& v) {
    return json::serialize(v.at("stage")) + "," + json::serialize(v.at("stage_ordinal")) + "," +
           json::serialize(v.at("directness")) + "," + json::serialize(v.at("spoilers_ok")) + "," +
           json::serialize(v.at("revision"));
  };
  for (const Row& row : rows) {
    auto reply = service.Call("PATCH", path, row.patch, token);
    ASSERT_EQ(reply.status, row.record.empty() ? 400 : 200) << row.patch << " " << reply.body;
    if (!row.record.empty()) EXPECT_EQ(as_row(reply.Json()), row.record) << row.patch;
  }
  auto reset = service.Call("POST", path + "/new-playthrough", "{}", token);
  ASSERT_EQ(reset.status, 200);
  EXPECT_EQ(as_row(reset.Json()), R"("",0,"answer",true,4)");
  EXPECT_EQ(service.Call("GET", path, "", token).Json(), reset.Json());
}

TEST_P(ProgressTest, RecordsBelongToOnePlayerAndOneExactKey) {
  TestService service(GetParam());
  std::string mine = AccessToken(service), theirs = AccessToken(service);
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
