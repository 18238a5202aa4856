#pragma once
// Reading request bodies with Boost.JSON under a nesting limit, and the members handlers need.
#include <boost/json/object.hpp>

#include <optional>
#include <string>

namespace hintwick {

// nullopt for anything but a JSON object within `max_depth` levels.
std::optional<boost::json::object> ParseObject(const std::string& body, int max_depth);
std::optional<std::string> StringMember(const boost::json::object& object, const char* key);

}  // namespace hintwick
