#pragma once
// From the HTTP library's parsed request to the handlers' Request, and from a failed read to
// the refusal it deserves. Shared by the connection loop and the fuzz target.
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>

#include <optional>

#include "http/message.h"

namespace hintwick {

using WireRequest = boost::beast::http::request<boost::beast::http::string_body>;
using WireParser = boost::beast::http::request_parser<boost::beast::http::string_body>;

struct WireLimits {
  std::size_t body = 64 * 1024;
  std::size_t header = 8 * 1024;
};

void ApplyLimits(WireParser& parser, const WireLimits& limits);

Request ToRequest(const WireRequest& wire, std::string peer, bool secure,
                  bool trust_forwarded_for);

// The reply owed for a read that failed, or nullopt when the connection should just close
// (the peer left, the read timed out, the service is stopping).
std::optional<Reply> ReadFailureReply(const boost::system::error_code& ec);

}  // namespace hintwick
