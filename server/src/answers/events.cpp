#include "answers/events.h"

#include <boost/json.hpp>

#include "answers/text.h"

namespace hintwick {
namespace {

namespace json = boost::json;

json::object Typed(std::string_view type) {
  json::object object;
  object["type"] = type;
  return object;
}

struct ToJson {
  json::object operator()(const TokenEvent& e) const {
    json::object object = Typed("token");
    object["text"] = e.text;
    return object;
  }
  json::object operator()(const MemoryEvent& e) const {
    json::object object = Typed("memory");
    object["stage"] = e.stage;
    json::array changes;
    for (const std::string& change : e.changes) changes.emplace_back(change);
    object["changes"] = std::move(changes);
    return object;
  }
  json::object operator()(const DiscardEvent&) const { return Typed("discard"); }
  json::object operator()(const RedactedEvent& e) const {
    json::object object = Typed("redacted");
    object["message"] = e.message;
    return object;
  }
  json::object operator()(const WarningEvent& e) const {
    json::object object = Typed("warning");
    object["message"] = e.message;
    return object;
  }
  json::object operator()(const ErrorEvent& e) const {
    json::object object = Typed("error");
    object["message"] = e.message;
    if (e.status) object["status"] = *e.status;
    return object;
  }
  json::object operator()(const DoneEvent&) const { return Typed("done"); }
};

}  // namespace

std::string EventLine(const AnswerEvent& event) {
  // Boost.JSON's serializer escapes only quotes, backslashes and control characters, all of
  // them ASCII: every other byte is written as it is, so UTF-8 stays raw and the line stays one.
  return "data: " + json::serialize(std::visit(ToJson{}, event)) + "\n\n";
}

std::vector<std::string_view> TokenPieces(std::string_view text, std::size_t max_bytes) {
  std::vector<std::string_view> pieces;
  max_bytes = max_bytes == 0 ? 1 : max_bytes;
  while (!text.empty()) {
    std::size_t cut = text.size();
    if (cut > max_bytes) {
      std::size_t space = text.find_last_of(' ', max_bytes - 1);
      cut = space != std::string_view::npos ? space + 1 : Utf8Boundary(text, max_bytes);
      if (cut == 0) cut = Utf8Length(static_cast<unsigned char>(text[0]));
    }
    pieces.push_back(text.substr(0, cut));
    text.remove_prefix(cut);
  }
  return pieces;
}

}  // namespace hintwick
