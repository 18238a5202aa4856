#include "http/message.h"

#include <boost/json.hpp>

namespace hintwick {

Reply ErrorReply(int status, std::string_view message) {
  boost::json::object body;
  body["error"] = message;
  return JsonReply(status, boost::json::serialize(body));
}

Reply JsonReply(int status, std::string body) {
  Reply reply;
  reply.status = status;
  reply.body = std::move(body);
  return reply;
}

}  // namespace hintwick
