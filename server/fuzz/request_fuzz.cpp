// Raw bytes as an HTTP request through the whole handling: the HTTP parser under the service's
// limits, the route table, the handlers and a real SQLite store. Whatever the input, the reply
// is a status with a JSON error for any refusal, and it never carries a password or bearer
// token the request held.
#include <boost/json.hpp>
#include <sodium.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "api/api.h"
#include "api/release.h"
#include "http/parse.h"
#include "ops/metrics.h"

namespace hintwick {
namespace {

struct Harness {
  Harness() {
    auto folder = std::filesystem::temp_directory_path() /
                  ("hintwick-fuzz-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    config.data_dir = folder.string();
    config.trust_forwarded_for = true;
    auto opened = OpenStore(config.DatabaseUrl(), 1);
    if (std::holds_alternative<StoreError>(opened)) std::abort();
    store = std::move(std::get<std::unique_ptr<Store>>(opened));
    accounts = std::make_unique<Accounts>(*store, hasher, config.tokens);
    api = std::make_unique<Api>(Services{config, *store, *accounts, metrics, release});
  }
  Config config;
  std::unique_ptr<Store> store;
  PasswordHasher hasher{HashCost{}};
  std::unique_ptr<Accounts> accounts;
  Metrics metrics;
  Release release{"/nonexistent"};
  std::unique_ptr<Api> api;
};

// A secret of the request that must not come back: the body's password, the bearer token.
std::vector<std::string> SecretsOf(const Request& request) {
  std::vector<std::string> secrets;
  if (request.bearer.size() >= 8) secrets.push_back(request.bearer);
  boost::system::error_code ec;
  auto body = boost::json::parse(request.body, ec);
  if (!ec && body.is_object())
    if (const auto* p = body.get_object().if_contains("password"); p && p->is_string() &&
                                                                    p->get_string().size() >= 8)
      secrets.emplace_back(p->get_string());
  return secrets;
}

void Check(const Reply& reply, const std::vector<std::string>& secrets) {
  if (reply.status < 200 || reply.status > 599) std::abort();
  if (reply.status >= 400) {
    auto body = boost::json::parse(reply.body);
    if (!body.as_object().at("error").is_string()) std::abort();
  }
  for (const auto& secret : secrets)
    if (reply.body.find(secret) != std::string::npos) std::abort();
}

}  // namespace
}  // namespace hintwick

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace hintwick;
  static Harness harness;
  WireParser parser;
  ApplyLimits(parser, {harness.config.body_limit, harness.config.header_limit});
  parser.eager(true);
  boost::system::error_code ec;
  parser.put(boost::asio::buffer(data, size), ec);
  if (!ec && !parser.is_done()) parser.put_eof(ec);
  if (ec) {
    if (auto refusal = ReadFailureReply(ec)) Check(*refusal, {});
    return 0;
  }
  if (!parser.is_done()) return 0;
  Request request = ToRequest(parser.get(), "127.0.0.1", false, true);
  harness.api->Classify(request);
  Check(harness.api->Handle(request), SecretsOf(request));
  return 0;
}
