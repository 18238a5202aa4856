#pragma once
// The answer's events as the program reads them: each one compact JSON object on one "data:"
// line, in raw UTF-8 (the program does not pair escaped surrogates, so an escaped emoji would
// arrive garbled).
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace hintwick {

struct TokenEvent {
  std::string text;
};
struct MemoryEvent {
  std::string stage;
  std::vector<std::string> changes;
};
struct DiscardEvent {};
struct RedactedEvent {
  std::string message;
};
struct WarningEvent {
  std::string message;
};
struct ErrorEvent {
  std::string message;
  std::optional<int> status;  // shown by the program as ", http N"
};
struct DoneEvent {};

using AnswerEvent = std::variant<TokenEvent, MemoryEvent, DiscardEvent, RedactedEvent, WarningEvent,
                                 ErrorEvent, DoneEvent>;

// "data: {...}\n\n".
std::string EventLine(const AnswerEvent& event);

// `text` cut into pieces of at most `max_bytes` (at least one character each), after a space
// where one falls in the piece, and never inside a UTF-8 character.
std::vector<std::string_view> TokenPieces(std::string_view text, std::size_t max_bytes);

}  // namespace hintwick
