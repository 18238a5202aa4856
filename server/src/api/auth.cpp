// Sign-in, registration, refresh and sign-out, with their rate limits.
#include <boost/json.hpp>

#include "api/body.h"
#include "api/handlers.h"

namespace hintwick {
namespace {

namespace json = boost::json;

// One hit on a counter every process shares; the refusal when the window is full.
std::optional<Reply> RateLimited(Services& services, const std::string& key, int limit) {
  auto hit = services.store.Hit(key, limit, services.config.rate.window, Clock::now());
  const auto* wait = Accounts::Succeeded(hit);
  if (!wait) return RefusalFor(AuthFailure::kUnavailable);
  if (!*wait) return std::nullopt;
  Reply reply = ErrorReply(429, "too many attempts; try again later");
  reply.retry_after = std::max<int>(1, static_cast<int>((*wait)->count()));
  return reply;
}

Reply TokenReply(const IssuedTokens& tokens, const Config& config) {
  json::object body;
  body["access_token"] = tokens.access;
  if (!tokens.refresh.empty()) body["refresh_token"] = tokens.refresh;
  body["token_type"] = "Bearer";
  body["expires_in"] = config.tokens.access.count();
  return JsonReply(200, json::serialize(body));
}

Reply Issued(const AuthResult<IssuedTokens>& result, const Config& config) {
  if (const auto* failure = std::get_if<AuthFailure>(&result)) return RefusalFor(*failure);
  return TokenReply(std::get<IssuedTokens>(result), config);
}

struct Credentials {
  std::string email, password, device_label;
};

// The body of a sign-in or registration, or the refusal that says what is missing.
std::variant<Credentials, Reply> ReadCredentials(const Request& request, Services& services) {
  auto body = ParseObject(request.body, services.config.json_depth);
  if (!body) return ErrorReply(400, "the body must be a JSON object");
  auto email = StringMember(*body, "email");
  auto password = StringMember(*body, "password");
  if (!email || !password) return ErrorReply(400, "email and password are required");
  std::string label = StringMember(*body, "device_label").value_or("unknown").substr(0, 64);
  return Credentials{*email, *password, label};
}

// The per-address limit, then the per-account one when the e-mail reads as one.
std::optional<Reply> SignInLimited(const Request& request, Services& services,
                                   const std::string& email) {
  const RateLimits& rate = services.config.rate;
  if (auto refusal = RateLimited(services, "signin:address:" + request.peer, rate.per_address))
    return refusal;
  auto normal = Accounts::NormalEmail(email);
  if (!normal) return std::nullopt;
  return RateLimited(services, "signin:account:" + *normal, rate.per_account);
}

template <typename Operation>
Reply SignIn(const Request& request, Services& services, Operation operation) {
  auto read = ReadCredentials(request, services);
  if (auto* refusal = std::get_if<Reply>(&read)) return std::move(*refusal);
  auto& credentials = std::get<Credentials>(read);
  if (auto refusal = SignInLimited(request, services, credentials.email)) return *refusal;
  return Issued(operation(credentials), services.config);
}

std::optional<std::string> RefreshTokenOf(const Request& request, Services& services) {
  auto body = ParseObject(request.body, services.config.json_depth);
  return body ? StringMember(*body, "refresh_token") : std::nullopt;
}

}  // namespace

Reply RefusalFor(AuthFailure failure) {
  switch (failure) {
    case AuthFailure::kBadEmail:
      return ErrorReply(400, "that is not an e-mail address");
    case AuthFailure::kShortPassword:
      return ErrorReply(400, "the password must be at least 10 bytes");
    case AuthFailure::kLongPassword:
      return ErrorReply(400, "the password is too long");
    case AuthFailure::kTaken:
      return ErrorReply(409, "an account with that e-mail exists; sign in instead");
    case AuthFailure::kWrongCredentials:
      return ErrorReply(401, "wrong e-mail or password");
    case AuthFailure::kRefused:
      return ErrorReply(401, "the token is not valid; sign in again");
    case AuthFailure::kUnavailable:
      break;
  }
  Reply reply = ErrorReply(503, "the service is unavailable; try again shortly");
  reply.retry_after = 5;
  return reply;
}

Reply Register(const Request& request, Services& services) {
  return SignIn(request, services, [&](const Credentials& c) {
    return services.accounts.Register(c.email, c.password, c.device_label);
  });
}

Reply Login(const Request& request, Services& services) {
  return SignIn(request, services, [&](const Credentials& c) {
    return services.accounts.Login(c.email, c.password, c.device_label);
  });
}

Reply Refresh(const Request& request, Services& services) {
  auto token = RefreshTokenOf(request, services);
  if (!token) return ErrorReply(400, "refresh_token is required");
  if (auto refusal = RateLimited(services, "refresh:address:" + request.peer,
                                 services.config.rate.refresh_per_address))
    return *refusal;
  return Issued(services.accounts.Refresh(*token), services.config);
}

Reply Logout(const Request& request, Services& services) {
  auto token = RefreshTokenOf(request, services);
  if (!token) return ErrorReply(400, "refresh_token is required");
  auto result = services.accounts.Logout(*token);
  if (const auto* failure = std::get_if<AuthFailure>(&result)) return RefusalFor(*failure);
  return JsonReply(200, "{}");
}

std::variant<UserId, Reply> Caller(const Request& request, Services& services) {
  auto result = services.accounts.Authenticate(request.bearer);
  if (const auto* failure = std::get_if<AuthFailure>(&result)) return RefusalFor(*failure);
  return std::get<UserId>(result);
}

}  // namespace hintwick
