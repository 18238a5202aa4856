// hintwick-server: serves the program's accounts, games, progress, answers and updates, or runs
// one operator command against the same database.
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iostream>

#include "ops/admin.h"
#include "packs/pack_cli.h"
#include "ops/log.h"
#include "service.h"

namespace hintwick {
namespace {

constexpr const char* kPackUsage =
    "  pack check FILE...                         "
    "check knowledge packs; each error as FILE:LINE\n"
    "  pack import FILE...                        "
    "check, then load each pack, replacing the game's\n";

int Serve(const Config& config) {
  auto opened = Service::Open(config, true);
  if (const auto* error = std::get_if<std::string>(&opened)) {
    LogLine(*error);
    return 1;
  }
  Service& service = *std::get<std::unique_ptr<Service>>(opened);
  LogLine("listening on " + service.BaseUrl() + " (in the program's config.json: \"base_url\": \"" +
          service.BaseUrl() + "\")");
  service.Run();
  LogLine("stopped");
  return 0;
}

int Administer(const Config& config, const std::vector<std::string>& words) {
  auto opened = OpenConfiguredStore(config);
  if (const auto* error = std::get_if<StoreError>(&opened)) {
    std::fprintf(stderr, "cannot open the database: %s\n", error->text.c_str());
    return 1;
  }
  int status = RunAdmin(*std::get<std::unique_ptr<Store>>(opened), words);
  if (status == 2) std::fprintf(stderr, "not a command; see --help\n");
  return status;
}

int Main(std::vector<std::string> args) {
  if (std::find(args.begin(), args.end(), "--help") != args.end()) {
    std::printf("hintwick-server [FLAGS] [COMMAND]\n\nFlags:\n%s\nCommands:\n%s%s",
                ConfigUsage().c_str(), AdminUsage().c_str(), kPackUsage);
    return 0;
  }
  auto loaded = LoadConfig(args);
  if (const auto* error = std::get_if<ConfigError>(&loaded)) {
    std::fprintf(stderr, "%s (see --help)\n", error->text.c_str());
    return 2;
  }
  const Config& config = std::get<Config>(loaded);
  if (!args.empty() && args[0] == "pack") {
    return RunPackCommand({args.begin() + 1, args.end()}, std::cout, std::cerr,
                          [&] { return OpenConfiguredStore(config); });
  }
  // A log reader that went away must not take the service with it.
  std::signal(SIGPIPE, SIG_IGN);
  return args.empty() ? Serve(config) : Administer(config, args);
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
