#include "config/config.h"

#include <gtest/gtest.h>

#include <fstream>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

TEST(ConfigTest, FlagsOverTheFileWithTheCommandLeftAndTheHashCostFloored) {
  ScratchDir scratch;
  auto file = (scratch.path / "server.json").string();
  std::ofstream(file) << R"({"access_ttl": 600, "grace": "0", "listen": "0.0.0.0:9000"})";
  std::vector<std::string> args = {"user", "--grace=5", "delete", "--config", file, "a@b.c"};
  auto config = std::get<Config>(LoadConfig(args));
  EXPECT_EQ(args, (std::vector<std::string>{"user", "delete", "a@b.c"}));
  EXPECT_EQ(config.tokens.access.count() + config.tokens.reuse_grace.count(), 605);
  EXPECT_EQ(config.listen_host + ":" + std::to_string(config.listen_port), "0.0.0.0:9000");
  for (std::vector<std::string> refused : {std::vector<std::string>{"--argon2-mib", "18"},
                                           {"--tls-cert", "c.pem"}, {"--colour", "red"}})
    EXPECT_TRUE(std::holds_alternative<ConfigError>(LoadConfig(refused))) << refused[0];
}

}  // namespace
}  // namespace hintwick::test
