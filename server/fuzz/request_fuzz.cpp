// Raw bytes as an HTTP request through the whole handling: the HTTP parser under the service's
// limits, the route table, the handlers and a real SQLite store. Whatever the input, the reply
// is a status with a JSON error for any refusal, and it never carries a password or bearer
// token the request held.
#include <boost/json.hpp>
#include <unistd.h>

#include <filesystem>

#include "api/api.h"
#include "api/chat.h"
#include "api/release.h"
#include "http/parse.h"
#include "ops/metrics.h"

namespace hintwick {
namespace {

std::unique_ptr<Store> ScratchStore(Config& config) {
  config.data_dir = (std::filesystem::temp_directory_path() /
                     ("hintwick-fuzz-" + std::to_string(getpid()))).string();
  std::filesystem::create_directories(config.data_dir);
  auto opened = OpenStore(config.DatabaseUrl(), 1);
  if (std::holds_alternative<StoreError>(opened)) std::abort();
  return std::move(std::get<std::unique_ptr<Store>>(opened));
}

struct Harness {
  Config config;
  std::unique_ptr<Store> store = ScratchStore(config);
  PasswordHasher hasher{HashCost{}};
  Accounts accounts{*store, hasher, config.tokens};
  Metrics metrics;
  Release release{"/nonexistent"};
  ChatDesk chat{config};
  Api api{{config, *store, accounts, metrics, release, chat}};
};

// The reply is well formed and holds neither the bearer token nor the body's password.
void Check(const Reply& reply, const Request& request) {
  if (reply.status < 200 || reply.status > 599) std::abort();
  if (reply.status >= 400 && !boost::json::parse(reply.body).at("error").is_string()) std::abort();
  boost::system::error_code ec;
  auto body = boost::json::parse(request.body, ec);
  const auto* member = !ec && body.is_object() ? body.get_object().if_contains("password") : nullptr;
  const std::string password = member && member->is_string() ? std::string(member->get_string()) : "";
  for (const std::string* secret : {&request.bearer, &password})
    if (secret->size() >= 8 && reply.body.find(*secret) != std::string::npos) std::abort();
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
    if (auto refusal = ReadFailureReply(ec)) Check(*refusal, Request{});
    return 0;
  }
  if (!parser.is_done()) return 0;
  Request request = ToRequest(parser.get(), "127.0.0.1", false, true);
  harness.api.Classify(request);
  Check(harness.api.Handle(request), request);
  return 0;
}
