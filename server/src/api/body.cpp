#include "api/body.h"

#include <boost/json/parse.hpp>

namespace hintwick {

std::optional<boost::json::object> ParseObject(const std::string& body, int max_depth) {
  boost::json::parse_options options;
  options.max_depth = static_cast<std::size_t>(max_depth);
  boost::system::error_code ec;
  auto value = boost::json::parse(body, ec, {}, options);
  if (ec || !value.is_object()) return std::nullopt;
  return std::move(value.get_object());
}

std::optional<std::string> StringMember(const boost::json::object& object, const char* key) {
  const auto* value = object.if_contains(key);
  if (!value || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

}  // namespace hintwick
