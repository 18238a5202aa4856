#include "http/parse.h"

#include <boost/beast/http/error.hpp>

namespace hintwick {
namespace http = boost::beast::http;

namespace {

std::string BearerOf(std::string_view authorization) {
  constexpr std::string_view kScheme = "bearer ";
  if (authorization.size() <= kScheme.size()) return {};
  for (std::size_t i = 0; i < kScheme.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(authorization[i])) != kScheme[i]) return {};
  return std::string(authorization.substr(kScheme.size()));
}

// The proxy appends the address it saw last; earlier entries are the client's own claims.
std::string LastForwarded(std::string_view header) {
  auto comma = header.rfind(',');
  auto last = comma == std::string_view::npos ? header : header.substr(comma + 1);
  while (!last.empty() && last.front() == ' ') last.remove_prefix(1);
  while (!last.empty() && last.back() == ' ') last.remove_suffix(1);
  return std::string(last);
}

}  // namespace

void ApplyLimits(WireParser& parser, const WireLimits& limits) {
  parser.body_limit(limits.body);
  parser.header_limit(static_cast<std::uint32_t>(limits.header));
}

Request ToRequest(const WireRequest& wire, std::string peer, bool secure,
                  bool trust_forwarded_for) {
  Request request;
  request.method = std::string(wire.method_string());
  std::string_view target = wire.target();
  request.path = std::string(target.substr(0, target.find('?')));
  request.bearer = BearerOf(wire[http::field::authorization]);
  request.body = wire.body();
  request.host = std::string(wire[http::field::host]);
  request.secure = secure;
  auto forwarded = wire["X-Forwarded-For"];
  request.peer = trust_forwarded_for && !forwarded.empty() ? LastForwarded(forwarded)
                                                           : std::move(peer);
  return request;
}

std::optional<Reply> ReadFailureReply(const boost::system::error_code& ec) {
  if (ec == http::error::body_limit) return ErrorReply(413, "the request body is too large");
  if (ec == http::error::header_limit)
    return ErrorReply(431, "the request header is too large");
  if (ec.category() == http::make_error_code(http::error::end_of_stream).category() &&
      ec != http::error::end_of_stream && ec != http::error::partial_message)
    return ErrorReply(400, "malformed HTTP request");
  return std::nullopt;
}

}  // namespace hintwick
