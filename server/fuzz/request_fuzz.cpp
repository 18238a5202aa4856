// Raw bytes as an HTTP request through the whole handling: the HTTP parser under the service's
// limits, the route table, the handlers and a real SQLite store. Whatever the input, the reply
// is a status with a JSON error for any refusal, and it never echoes a password or bearer
// token the request held. A twin service gets the same request with those secrets changed
// letter by letter: a secret that is only part of a fixed message ("…invalid; sign in…")
// shows in one reply, an echoed one in both.
#include <boost/json.hpp>
#include <unistd.h>

#include <cctype>
#include <filesystem>

#include "api/api.h"
#include "api/chat.h"
#include "api/release.h"
#include "http/parse.h"
#include "ops/metrics.h"

namespace hintwick {
namespace {

std::unique_ptr<Store> ScratchStore(Config& config, const char* name) {
  config.data_dir = (std::filesystem::temp_directory_path() /
                     ("hintwick-fuzz-" + std::to_string(getpid()) + name)).string();
  std::filesystem::create_directories(config.data_dir);
  auto opened = OpenStore(config.DatabaseUrl(), 1);
  if (std::holds_alternative<StoreError>(opened)) std::abort();
  return std::move(std::get<std::unique_ptr<Store>>(opened));
}

struct Harness {
  explicit Harness(const char* name) : store(ScratchStore(config, name)) {}
  Config config;
  std::unique_ptr<Store> store;
  PasswordHasher hasher{HashCost{}};
  Accounts accounts{*store, hasher, config.tokens};
  Metrics metrics;
  Release release{"/nonexistent"};
  ChatDesk chat{config};
  Api api{{config, *store, accounts, metrics, release, chat}};
};

// Letters in the other case and digits moved on: distinct secrets stay distinct, so the twin
// takes the same paths, and no fixed message of the service holds the result as well.
std::string Swapped(std::string text) {
  for (char& c : text) {
    if (std::isalpha(static_cast<unsigned char>(c))) c = static_cast<char>(c ^ 0x20);
    if (c >= '0' && c <= '9') c = static_cast<char>('0' + (c - '0' + 5) % 10);
  }
  return text;
}

std::string PasswordOf(const Request& request) {
  boost::system::error_code ec;
  auto body = boost::json::parse(request.body, ec);
  const auto* member = !ec && body.is_object() ? body.get_object().if_contains("password") : nullptr;
  return member && member->is_string() ? std::string(member->get_string()) : "";
}

// The same request with its bearer token and, where it stands as written, its password swapped.
Request Twin(const Request& request) {
  Request twin = request;
  twin.bearer = Swapped(request.bearer);
  const std::string password = PasswordOf(request);
  for (auto at = password.empty() ? std::string::npos : twin.body.find(password);
       at != std::string::npos; at = twin.body.find(password, at + password.size()))
    twin.body.replace(at, password.size(), Swapped(password));
  return twin;
}

void CheckShape(const Reply& reply) {
  if (reply.status < 200 || reply.status > 599) std::abort();
  if (reply.status >= 400 && !boost::json::parse(reply.body).at("error").is_string()) std::abort();
}

void CheckNoEcho(const Reply& reply, const Request& request, const Reply& twin_reply) {
  for (const std::string& secret : {request.bearer, PasswordOf(request)}) {
    if (secret.size() >= 8 && reply.body.find(secret) != std::string::npos &&
        twin_reply.body.find(Swapped(secret)) != std::string::npos)
      std::abort();
  }
}

}  // namespace
}  // namespace hintwick

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace hintwick;
  static Harness harness("a"), twin("b");
  WireParser parser;
  ApplyLimits(parser, {harness.config.body_limit, harness.config.header_limit});
  parser.eager(true);
  boost::system::error_code ec;
  parser.put(boost::asio::buffer(data, size), ec);
  if (!ec && !parser.is_done()) parser.put_eof(ec);
  if (ec) {
    if (auto refusal = ReadFailureReply(ec)) CheckShape(*refusal);
    return 0;
  }
  if (!parser.is_done()) return 0;
  Request request = ToRequest(parser.get(), "127.0.0.1", false, true);
  Request twin_request = Twin(request);
  harness.api.Classify(request);
  twin.api.Classify(twin_request);
  const Reply reply = harness.api.Handle(request);
  CheckShape(reply);
  CheckNoEcho(reply, request, twin.api.Handle(twin_request));
  return 0;
}
