// Two hintwick-server processes on one PostgreSQL serve the same players: a sign-in on one is
// refreshed on the other, and a reuse of the rotated token is caught on both.
#include <gtest/gtest.h>

#include <boost/json.hpp>

#include <csignal>
#include <cstdio>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "service_fixture.h"

extern char** environ;

namespace hintwick::test {
namespace {

// A server process whose first line tells its address; SIGTERM must end it cleanly.
class ServerProcess {
 public:
  explicit ServerProcess(const std::string& database) {
    int fds[2];
    if (pipe(fds) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, fds[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, fds[0]);
    std::vector<std::string> args = {HINTWICK_SERVER_EXE, "--listen", "127.0.0.1:0",
                                     "--data", scratch_.path.string(), "--database", database};
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = 0;
    posix_spawn_file_actions_destroy(&actions);
    close(fds[1]);
    output_ = fdopen(fds[0], "r");
    ReadPort();
  }

  ~ServerProcess() {
    if (output_) std::fclose(output_);
    if (pid_) Stop();
  }

  // The exit status after SIGTERM.
  int Stop() {
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  std::uint16_t port = 0;

 private:
  void ReadPort() {
    char line[512];
    while (output_ && std::fgets(line, sizeof line, output_)) {
      const char* at = std::strstr(line, "listening on http://127.0.0.1:");
      if (!at) continue;
      port = static_cast<std::uint16_t>(std::atoi(at + std::strlen("listening on http://127.0.0.1:")));
      return;
    }
  }

  ScratchDir scratch_;
  pid_t pid_ = 0;
  std::FILE* output_ = nullptr;
};

std::string Field(const Response& reply, const char* key) {
  auto value = reply.Json();
  const auto* member = value.is_object() ? value.get_object().if_contains(key) : nullptr;
  return member && member->is_string() ? std::string(member->get_string()) : "";
}

TEST(TwoProcessTest, OneDatabaseServesBoth) {
  if (PostgresUrl().empty()) GTEST_SKIP() << "no PostgreSQL cluster for this run";
  ServerProcess first(PostgresUrl()), second(PostgresUrl());
  ASSERT_NE(first.port, 0);
  ASSERT_NE(second.port, 0);
  auto call = [](const ServerProcess& process, const std::string& path, const std::string& body) {
    return CallPort(process.port, "POST", path, body, "", RandomAddress());
  };
  auto signed_in = call(first, "/v1/auth/register",
                        R"({"email":")" + UniqueEmail() + R"(","password":"correct horse"})");
  ASSERT_EQ(signed_in.status, 200);
  std::string first_refresh = R"({"refresh_token":")" + Field(signed_in, "refresh_token") + "\"}";
  auto rotated = call(second, "/v1/auth/refresh", first_refresh);
  ASSERT_EQ(rotated.status, 200);
  EXPECT_EQ(CallPort(first.port, "GET", "/v1/games", "", Field(rotated, "access_token")).status, 200);
  // Past the grace's few reuses the old token is a stolen one, whichever process sees it.
  int last = 0;
  for (int i = 0; i <= 3; ++i) last = call(i % 2 ? second : first, "/v1/auth/refresh", first_refresh).status;
  EXPECT_EQ(last, 401);
  std::string second_refresh = R"({"refresh_token":")" + Field(rotated, "refresh_token") + "\"}";
  EXPECT_EQ(call(first, "/v1/auth/refresh", second_refresh).status, 401);
  EXPECT_EQ(call(second, "/v1/auth/refresh", second_refresh).status, 401);
  EXPECT_EQ(CallPort(second.port, "GET", "/v1/games", "", Field(rotated, "access_token")).status, 401);
  EXPECT_EQ(first.Stop(), 0);
  EXPECT_EQ(second.Stop(), 0);
}

}  // namespace
}  // namespace hintwick::test
