#include "service.h"

#include <filesystem>

#include "api/api.h"
#include "api/chat.h"
#include "api/release.h"
#include "http/server.h"
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
  o.keepalive = c.keepalive;
  return o;
}

// Often enough that the tables stay small, rarely enough to cost nothing.
constexpr std::chrono::hours kPurgeEvery{1};

void PurgeStore(Store& store, const Config& config) {
  auto purged = store.Purge(Clock::now(), config.tokens, config.rate.window);
  if (const auto* error = std::get_if<StoreError>(&purged)) LogLine("purge failed: " + error->text);
}

}  // namespace

// Declared in the order they depend on each other, so they are destroyed in reverse.
struct Service::Parts {
  explicit Parts(const Config& c, std::unique_ptr<Store> s)
      : config(c),
        store(std::move(s)),
        hasher({static_cast<unsigned long long>(c.argon2_passes),
                static_cast<std::size_t>(c.argon2_mib) << 20}),
        accounts(*store, hasher, c.tokens),
        release(c.ReleaseDir()),
        chat(config),
        api({config, *store, accounts, metrics, release, chat}),
        server(ServerOptionsOf(c), api, metrics) {}

  Config config;
  std::unique_ptr<Store> store;
  PasswordHasher hasher;
  Accounts accounts;
  Metrics metrics;
  Release release;
  ChatDesk chat;
  Api api;
  Server server;
};

StoreResult<std::unique_ptr<Store>> OpenConfiguredStore(const Config& config) {
  std::error_code ignored;
  std::filesystem::create_directories(config.data_dir, ignored);
  return OpenStore(config.DatabaseUrl(), config.store_threads + config.hash_threads);
}

std::variant<std::unique_ptr<Service>, std::string> Service::Open(const Config& config,
                                                                  bool signals) {
  auto opened = OpenConfiguredStore(config);
  if (const auto* error = std::get_if<StoreError>(&opened))
    return "cannot open the database: " + error->text;
  std::unique_ptr<Service> service(new Service);
  service->parts_ =
      std::make_unique<Parts>(config, std::move(std::get<std::unique_ptr<Store>>(opened)));
  if (auto error = service->parts_->server.Bind()) return *error;
  if (signals) service->parts_->server.StopOnSignals();
  Parts& parts = *service->parts_;
  parts.server.Every(std::chrono::duration_cast<std::chrono::seconds>(kPurgeEvery),
                     [&parts] { PurgeStore(*parts.store, parts.config); });
  return service;
}

Service::~Service() = default;
void Service::Run() { parts_->server.Run(); }
void Service::Stop() { parts_->server.Stop(); }
std::uint16_t Service::Port() const { return parts_->server.Port(); }
std::string Service::BaseUrl() const { return parts_->server.BaseUrl(); }
Store& Service::store() { return *parts_->store; }

}  // namespace hintwick
