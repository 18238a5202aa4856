#include "server_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <thread>

#include <boost/asio.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/json.hpp>

extern char** environ;

namespace hintwick::bench {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::optional<std::uint16_t> AnnouncedPort(const std::string& log) {
  const std::string mark = "listening on http://127.0.0.1:";
  auto at = log.find(mark);
  if (at == std::string::npos) return std::nullopt;
  int port = std::atoi(log.c_str() + at + mark.size());
  if (port <= 0 || port > 65535) return std::nullopt;
  return static_cast<std::uint16_t>(port);
}

// One request on a fresh connection, the reply's status and body; status 0 if none came.
std::pair<int, std::string> Post(std::uint16_t port, const std::string& target,
                                 const std::string& body) {
  asio::io_context io;
  beast::tcp_stream stream(io);
  beast::error_code error;
  stream.connect(asio::ip::tcp::endpoint(asio::ip::make_address("127.0.0.1"), port), error);
  if (error) return {0, ""};
  http::request<http::string_body> request{http::verb::post, target, 11};
  request.set(http::field::host, "127.0.0.1");
  request.set(http::field::content_type, "application/json");
  request.body() = body;
  request.prepare_payload();
  http::write(stream, request, error);
  beast::flat_buffer buffer;
  http::response<http::string_body> response;
  if (!error) http::read(stream, buffer, response, error);
  if (error) return {0, ""};
  return {response.result_int(), response.body()};
}

}  // namespace

ServerProcess::ServerProcess(std::vector<std::string> command, std::string log)
    : command_(std::move(command)), log_(std::move(log)) {}

std::optional<std::uint16_t> ServerProcess::Start() {
  std::vector<char*> argv;
  for (std::string& word : command_) argv.push_back(word.data());
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  int failed = posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (failed) {
    pid_ = -1;
    return std::nullopt;
  }
  for (int i = 0; i < 200; ++i) {
    if (auto port = AnnouncedPort(ReadFile(log_))) return port;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return std::nullopt;
}

void ServerProcess::Stop() {
  if (pid_ < 0) return;
  kill(pid_, SIGTERM);
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
}

long ServerProcess::ResidentKiB() const {
  std::istringstream status(ReadFile("/proc/" + std::to_string(pid_) + "/status"));
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) return std::atol(line.c_str() + 6);
  }
  return -1;
}

double ServerProcess::CpuSeconds() const {
  std::string stat = ReadFile("/proc/" + std::to_string(pid_) + "/stat");
  // The name in parentheses may hold spaces; the fields after it are counted from there.
  std::istringstream fields(stat.substr(stat.rfind(')') + 2));
  std::string field;
  unsigned long long user = 0, system = 0;
  for (int i = 3; i <= 15 && fields >> field; ++i) {
    if (i == 14) user = std::stoull(field);
    if (i == 15) system = std::stoull(field);
  }
  return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

std::optional<std::string> AccessToken(std::uint16_t port, const std::string& email) {
  std::string body = "{\"email\":\"" + email +
                     "\",\"password\":\"stream-bench-password\",\"device_label\":\"bench\"}";
  auto [status, reply] = Post(port, "/v1/auth/register", body);
  if (status == 409) std::tie(status, reply) = Post(port, "/v1/auth/login", body);
  if (status != 200) return std::nullopt;
  boost::system::error_code error;
  auto json = boost::json::parse(reply, error);
  const auto* token =
      !error && json.is_object() ? json.as_object().if_contains("access_token") : nullptr;
  if (!token || !token->is_string()) return std::nullopt;
  return std::string(token->get_string());
}

}  // namespace hintwick::bench
