#include "nginx.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/asio.hpp>

#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "service_fixture.h"

namespace hintwick::test {
namespace asio = boost::asio;
using tcp = asio::ip::tcp;
using namespace std::chrono_literals;

namespace {

constexpr int kAttempts = 5;

// A port free a moment ago; nginx cannot be told to take any, so a race is possible and the
// caller starts again when it loses one.
std::uint16_t FreePort() {
  asio::io_context io;
  tcp::acceptor probe(io);
  boost::system::error_code ec;
  probe.open(tcp::v4(), ec);
  probe.bind({asio::ip::make_address("127.0.0.1"), 0}, ec);
  const tcp::endpoint bound = probe.local_endpoint(ec);
  return ec ? 0 : bound.port();
}

// Everything nginx writes goes to the scratch folder: the pid file, the log and the buffers it
// would otherwise keep under /var, which a test's user may not write.
std::string Configuration(const std::filesystem::path& folder, const std::string& http_block) {
  const std::string dir = folder.string();
  std::string text = "daemon off;\nmaster_process off;\npid " + dir + "/nginx.pid;\nerror_log " +
                     dir + "/error.log;\nevents { worker_connections 64; }\nhttp {\n" +
                     "access_log off;\n";
  for (const char* temp : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"})
    text += std::string(temp) + "_temp_path " + dir + "/" + temp + ";\n";
  return text + http_block + "\n}\n";
}

// nginx runs in the child; if the test dies without stopping it, so does it.
pid_t Spawn(const std::string& program, const std::filesystem::path& folder) {
  const std::string conf = (folder / "nginx.conf").string(), log = (folder / "error.log").string();
  const std::string output = (folder / "output.log").string();
  std::vector<const char*> argv = {program.c_str(), "-c", conf.c_str(), "-e", log.c_str(), nullptr};
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int fd = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd >= 0) {
    dup2(fd, STDOUT_FILENO);
    dup2(fd, STDERR_FILENO);
  }
  execv(program.c_str(), const_cast<char* const*>(argv.data()));
  _exit(127);
}

}  // namespace

std::string FencedBlock(const std::string& markdown, const std::string& begin,
                        const std::string& end) {
  std::istringstream lines(markdown);
  std::string block;
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    if (inside && line.find(end) != std::string::npos) return block;
    if (inside && !line.starts_with("```")) block += line + "\n";
    if (!inside && line.find(begin) != std::string::npos) inside = true;
  }
  return "";
}

std::string Replaced(std::string text, const std::string& from, const std::string& to) {
  for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
    text.replace(at, from.size(), to);
  return text;
}

Nginx::Nginx(const std::string& program, const std::filesystem::path& folder,
             const std::string& http_block)
    : folder_(folder) {
  for (int attempt = 0; attempt < kAttempts && !Start(program, http_block); ++attempt) {
    if (failure_.find("Address already in use") == std::string::npos) return;
  }
}

Nginx::~Nginx() { Stop(); }

bool Nginx::Start(const std::string& program, const std::string& http_block) {
  port_ = FreePort();
  std::filesystem::remove(folder_ / "nginx.pid");
  std::ofstream(folder_ / "nginx.conf")
      << Configuration(folder_, Replaced(http_block, "{port}", std::to_string(port_)));
  pid_ = Spawn(program, folder_);
  // Binding a taken port, nginx tries for about 2.5 s before it gives up.
  for (auto end = std::chrono::steady_clock::now() + 10s; std::chrono::steady_clock::now() < end;
       std::this_thread::sleep_for(10ms)) {
    // nginx writes its pid file only once it listens.
    if (ReadFile(folder_ / "nginx.pid").starts_with(std::to_string(pid_) + "\n")) return true;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) != pid_) continue;
    pid_ = -1;
    failure_ = ReadFile(folder_ / "output.log") + ReadFile(folder_ / "error.log");
    return false;
  }
  Stop();
  failure_ = "nginx did not start listening within 10 s";
  return false;
}

// Killed outright: it runs as one process with nothing of its own to save, in a scratch folder.
void Nginx::Stop() {
  if (pid_ <= 0) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
  pid_ = -1;
}

}  // namespace hintwick::test
