#include "config/config.h"

#include <gtest/gtest.h>

#include <fstream>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

TEST(ConfigTest, FlagsOverTheFileAndTheCommandLeftOver) {
  ScratchDir scratch;
  auto file = (scratch.path / "server.json").string();
  std::ofstream(file) << R"({"access_ttl": 600, "grace": "0", "listen": "0.0.0.0:9000"})";
  std::vector<std::string> args = {"user", "--grace=5", "delete", "--config", file, "a@b.c"};
  auto config = std::get<Config>(LoadConfig(args));
  EXPECT_EQ(args, (std::vector<std::string>{"user", "delete", "a@b.c"}));
  EXPECT_EQ(config.tokens.access.count(), 600);
  EXPECT_EQ(config.tokens.reuse_grace.count(), 5);
  EXPECT_EQ(config.listen_host + ":" + std::to_string(config.listen_port), "0.0.0.0:9000");
  struct Row {
    std::vector<std::string> args;
    std::string error;
  } refused[] = {
      {{"--argon2-mib", "8"}, "bad value for --argon2-mib"},  // under OWASP's minimum
      {{"--listen", "8080"}, "bad value for --listen"},
      {{"--tls-cert", "c.pem"}, "go together"},
      {{"--colour", "red"}, "unknown flag --colour"},
      {{"--grace"}, "needs a value"},
  };
  for (auto& row : refused) {
    auto loaded = LoadConfig(row.args);
    ASSERT_TRUE(std::holds_alternative<ConfigError>(loaded)) << row.error;
    EXPECT_NE(std::get<ConfigError>(loaded).text.find(row.error), std::string::npos);
  }
}

}  // namespace
}  // namespace hintwick::test
