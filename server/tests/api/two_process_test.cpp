// Two hintwick-server processes on one PostgreSQL serve the same players: a sign-in on one is
// refreshed on the other (a reuse seen by another process is the store's test), and the
// operator's commands reach both.
#include <gtest/gtest.h>

#include <boost/json.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <sys/wait.h>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

// A server process, found by the address its first line gives; SIGTERM must end it cleanly.
// The shell prints its own process id and then becomes the server.
struct ServerProcess {
  explicit ServerProcess(const std::string& database) {
    std::string command = "echo $$; exec '" HINTWICK_SERVER_EXE "' --listen 127.0.0.1:0 --data '" +
                          scratch.path.string() + "' --database '" + database + "'";
    output = popen(command.c_str(), "r");
    char line[512];
    if (output && std::fgets(line, sizeof line, output)) pid = std::atoi(line);
    while (port == 0 && output && std::fgets(line, sizeof line, output))
      if (const char* at = std::strstr(line, "listening on http://127.0.0.1:"))
        port = static_cast<std::uint16_t>(std::atoi(std::strrchr(at, ':') + 1));
  }
  ~ServerProcess() { Stop(); }
  int Stop() {  // the exit status after SIGTERM
    if (!output) return -1;
    if (pid > 0) kill(pid, SIGTERM);
    char line[512];
    while (std::fgets(line, sizeof line, output)) continue;  // its last words, up to the exit
    int status = pclose(std::exchange(output, nullptr));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  ScratchDir scratch;
  std::FILE* output = nullptr;
  pid_t pid = 0;
  std::uint16_t port = 0;
};

TEST(TwoProcessTest, OneDatabaseServesBoth) {
  if (PostgresUrl().empty()) GTEST_SKIP() << "no PostgreSQL cluster for this run";
  ServerProcess first(PostgresUrl()), second(PostgresUrl());
  ASSERT_TRUE(first.port && second.port);
  auto call = [](const ServerProcess& process, const std::string& path, const std::string& body) {
    return CallPort(process.port, "POST", path, body, "", RandomAddress());
  };
  auto signed_in = call(first, "/v1/auth/register",
                        R"({"email":")" + UniqueEmail() + R"(","password":"correct horse"})");
  ASSERT_EQ(signed_in.status, 200);
  auto rotated = call(second, "/v1/auth/refresh",
                      R"({"refresh_token":")" + signed_in.Member("refresh_token") + "\"}");
  ASSERT_EQ(rotated.status, 200);
  std::string access = rotated.Member("access_token");
  EXPECT_EQ(CallPort(first.port, "GET", "/v1/games", "", access).status, 200);
  // The operator's commands work on the same database: a game both list, an account both forget.
  std::string admin = "'" HINTWICK_SERVER_EXE "' --database '" + PostgresUrl() + "' ";
  std::string key = UniqueName("game"), email = UniqueEmail();
  auto other = call(first, "/v1/auth/register", R"({"email":")" + email + R"(","password":"correct horse"})");
  ASSERT_EQ(std::system((admin + "game add " + key + ".EXE 'Odd Quest' >/dev/null").c_str()), 0);
  auto games = CallPort(second.port, "GET", "/v1/games", "", other.Member("access_token"));
  EXPECT_NE(games.body.find(R"({"slug":")" + key + R"(","display_name":"Odd Quest")"), std::string::npos);
  ASSERT_EQ(std::system((admin + "user delete " + email + " >/dev/null").c_str()), 0);
  EXPECT_EQ(CallPort(first.port, "GET", "/v1/games", "", other.Member("access_token")).status, 401);
  EXPECT_EQ(first.Stop(), 0);
  EXPECT_EQ(second.Stop(), 0);
}

}  // namespace
}  // namespace hintwick::test
