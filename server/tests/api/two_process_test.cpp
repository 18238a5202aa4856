// Two hintwick-server processes on one PostgreSQL serve the same players: a sign-in on one is
// refreshed on the other, and a reuse of the rotated token is caught on both.
#include <gtest/gtest.h>

#include <boost/json.hpp>

#include <csignal>
#include <cstdio>
#include <sys/wait.h>
#include <unistd.h>

#include "service_fixture.h"

namespace hintwick::test {
namespace {

// A server process found by the address its first line gives; SIGTERM must end it cleanly.
struct ServerProcess {
  explicit ServerProcess(const std::string& database) {
    int out[2];
    if (pipe(out) != 0 || (pid = fork()) < 0) return;
    if (pid == 0) {
      dup2(out[1], STDOUT_FILENO);
      execl(HINTWICK_SERVER_EXE, HINTWICK_SERVER_EXE, "--listen", "127.0.0.1:0", "--data",
            scratch.path.c_str(), "--database", database.c_str(), nullptr);
      _exit(127);
    }
    close(out[1]);
    output = fdopen(out[0], "r");
    char line[512];
    const char* kListening = "listening on http://127.0.0.1:";
    while (port == 0 && std::fgets(line, sizeof line, output))
      if (const char* at = std::strstr(line, kListening))
        port = static_cast<std::uint16_t>(std::atoi(at + std::strlen(kListening)));
  }
  ~ServerProcess() {
    if (pid > 0) Stop();
    if (output) std::fclose(output);
  }
  int Stop() {  // the exit status after SIGTERM
    kill(pid, SIGTERM);
    int status = 0;
    waitpid(std::exchange(pid, 0), &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  ScratchDir scratch;
  pid_t pid = 0;
  std::FILE* output = nullptr;
  std::uint16_t port = 0;
};

TEST(TwoProcessTest, OneDatabaseServesBoth) {
  if (PostgresUrl().empty()) GTEST_SKIP() << "no PostgreSQL cluster for this run";
  ServerProcess first(PostgresUrl()), second(PostgresUrl());
  ASSERT_TRUE(first.port && second.port);
  auto call = [](const ServerProcess& process, const std::string& path, const std::string& body) {
    return CallPort(process.port, "POST", path, body, "", RandomAddress());
  };
  auto token = [](const Response& reply, const char* key) {
    return std::string(reply.Json().at(key).as_string());
  };
  auto signed_in = call(first, "/v1/auth/register",
                        R"({"email":")" + UniqueEmail() + R"(","password":"correct horse"})");
  ASSERT_EQ(signed_in.status, 200);
  std::string first_refresh = R"({"refresh_token":")" + token(signed_in, "refresh_token") + "\"}";
  auto rotated = call(second, "/v1/auth/refresh", first_refresh);
  ASSERT_EQ(rotated.status, 200);
  std::string access = token(rotated, "access_token");
  EXPECT_EQ(CallPort(first.port, "GET", "/v1/games", "", access).status, 200);
  // Past the grace's few reuses the old token is a stolen one, whichever process sees it.
  int last = 0;
  for (int i = 0; i <= 3; ++i) last = call(i % 2 ? second : first, "/v1/auth/refresh", first_refresh).status;
  EXPECT_EQ(last, 401);
  std::string second_refresh = R"({"refresh_token":")" + token(rotated, "refresh_token") + "\"}";
  EXPECT_EQ(call(first, "/v1/auth/refresh", second_refresh).status, 401);
  EXPECT_EQ(call(second, "/v1/auth/refresh", second_refresh).status, 401);
  EXPECT_EQ(CallPort(second.port, "GET", "/v1/games", "", access).status, 401);
  EXPECT_EQ(first.Stop(), 0);
  EXPECT_EQ(second.Stop(), 0);
}

}  // namespace
}  // namespace hintwick::test
