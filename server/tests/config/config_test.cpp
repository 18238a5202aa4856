#include "config/config.h"

#include <gtest/gtest.h>

#include <fstream>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

TEST(ConfigTest, FileThenFlagsAndWhatIsLeft) {
  ScratchDir scratch;
  auto file = scratch.path / "server.json";
  std::ofstream(file) << R"({"access_ttl": 600, "grace": "0", "listen": "0.0.0.0:9000"})";
  struct Row {
    std::vector<std::string> args;
    std::string error;  // empty: accepted
    std::vector<std::string> rest;
  } rows[] = {
      {{"--config", file.string(), "--grace=5", "user", "delete", "a@b.c"}, "", {"user", "delete", "a@b.c"}},
      {{"game", "add", "x", "X", "--has-index"}, "", {"game", "add", "x", "X", "--has-index"}},
      {{"--argon2-mib", "8"}, "bad value for --argon2-mib", {}},
      {{"--listen", "8080"}, "bad value for --listen", {}},
      {{"--tls-cert", "c.pem"}, "go together", {}},
      {{"--colour", "red"}, "unknown flag --colour", {}},
      {{"--grace"}, "needs a value", {}},
  };
  for (auto& row : rows) {
    auto loaded = LoadConfig(row.args);
    if (!row.error.empty()) {
      ASSERT_TRUE(std::holds_alternative<ConfigError>(loaded)) << row.error;
      EXPECT_NE(std::get<ConfigError>(loaded).text.find(row.error), std::string::npos);
      continue;
    }
    ASSERT_TRUE(std::holds_alternative<Config>(loaded)) << std::get<ConfigError>(loaded).text;
    EXPECT_EQ(row.args, row.rest);
  }
  std::vector<std::string> args = {"--config", file.string(), "--grace=5"};
  auto config = std::get<Config>(LoadConfig(args));
  EXPECT_EQ(config.tokens.access.count(), 600);
  EXPECT_EQ(config.tokens.reuse_grace.count(), 5);
  EXPECT_EQ(config.listen_host, "0.0.0.0");
  EXPECT_EQ(config.listen_port, 9000);
  EXPECT_EQ(config.DatabaseUrl(), "sqlite:data/hintwick.db");
}

}  // namespace
}  // namespace hintwick::test
