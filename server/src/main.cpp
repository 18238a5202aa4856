// hintwick-server: serves the program's accounts, games, progress and updates, or runs one
// operator command against the same database.
#include <cstdio>
#include <filesystem>

#include "api/api.h"
#include "api/release.h"
#include "http/server.h"
#include "ops/admin.h"
#include "ops/log.h"
#include "ops/metrics.h"

namespace hintwick {
namespace {

ServerOptions ServerOptionsOf(const Config& c) {
  ServerOptions o;
  o.host = c.listen_host;
  o.port = c.listen_port;
  o.limits = {c.body_limit, c.header_limit};
  o.read_timeout = c.read_timeout;
  o.idle_timeout = c.idle_timeout;
  o.drain_timeout = c.drain_timeout;
  o.tls_cert = c.tls_cert;
  o.tls_key = c.tls_key;
  o.trust_forwarded_for = c.trust_forwarded_for;
  o.store_threads = c.store_threads;
  o.hash_threads = c.hash_threads;
  o.hash_queue = c.hash_queue;
  return o;
}

int Serve(const Config& config, Store& store) {
  PasswordHasher hasher({static_cast<unsigned long long>(config.argon2_passes),
                         static_cast<std::size_t>(config.argon2_mib) << 20});
  Accounts accounts(store, hasher, config.tokens);
  Metrics metrics;
  Release release(config.ReleaseDir());
  Api api({config, store, accounts, metrics, release});
  Server server(ServerOptionsOf(config), api, metrics);
  if (auto error = server.Bind()) {
    LogLine(*error);
    return 1;
  }
  LogLine("listening on " + server.BaseUrl() + " (in the program's config.json: \"base_url\": \"" +
          server.BaseUrl() + "\")");
  server.Run(true);
  LogLine("stopped");
  return 0;
}

int Main(std::vector<std::string> args) {
  if (!args.empty() && (args[0] == "--help" || args[0] == "-h")) {
    std::printf("hintwick-server [FLAGS] [COMMAND]\n\nFlags:\n%s\nCommands:\n%s",
                ConfigUsage().c_str(), AdminUsage().c_str());
    return 0;
  }
  auto loaded = LoadConfig(args);
  if (const auto* error = std::get_if<ConfigError>(&loaded)) {
    std::fprintf(stderr, "%s (see --help)\n", error->text.c_str());
    return 2;
  }
  const Config& config = std::get<Config>(loaded);
  std::error_code ec;
  std::filesystem::create_directories(config.data_dir, ec);
  auto opened = OpenStore(config.DatabaseUrl(), config.store_threads + config.hash_threads);
  if (const auto* error = std::get_if<StoreError>(&opened)) {
    std::fprintf(stderr, "cannot open the database: %s\n", error->text.c_str());
    return 1;
  }
  Store& store = *std::get<std::unique_ptr<Store>>(opened);
  if (args.empty()) return Serve(config, store);
  int status = RunAdmin(store, args);
  if (status == 2) std::fprintf(stderr, "not a command; see --help\n");
  return status;
}

}  // namespace
}  // namespace hintwick

int main(int argc, char** argv) {
  try {
    return hintwick::Main(std::vector<std::string>(argv + 1, argv + argc));
  } catch (const std::exception& e) {
    std::fprintf(stderr, "hintwick-server failed: %s\n", e.what());
    return 1;
  }
}
