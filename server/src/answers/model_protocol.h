#pragma once
// The OpenAI-compatible chat completion as the bridge speaks it: where to send it, what the
// prompt says, and how each line of the streamed reply reads. No I/O here.
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "answers/inputs.h"

namespace hintwick {

struct ModelTimeouts {
  std::chrono::milliseconds connect{5000};
  std::chrono::milliseconds first_byte{60000};  // a model may still be loading
  std::chrono::milliseconds stall{30000};       // between two pieces of the reply
};

struct ModelEndpoint {
  std::string url;  // http://host:port, optionally with the path up to /v1 or the full path
  std::string model;
  std::string api_key;  // empty: no Authorization header
  ModelTimeouts timeouts;
};

struct ModelAddress {
  std::string host;
  std::string port;
  std::string target;  // the request's path, ending in /chat/completions
};
// Nothing for a URL that is not plain http with a host.
std::optional<ModelAddress> ParseModelUrl(std::string_view url);

// The request's JSON: the model, streaming on, the rules and notes as the system message and
// the player's question as the user's. `strict` is the second attempt after a spoiler.
std::string CompletionRequestBody(std::string_view model, const AnswerRequest& request,
                                  const std::vector<GatedNote>& notes, bool strict);

// Complete lines out of the reply's bytes, without their line ends.
class LineSplitter {
 public:
  static constexpr std::size_t kMaxLine = 1 << 20;
  // False when a line grows past kMaxLine: the reply is not an event stream.
  bool Feed(std::string_view bytes, std::vector<std::string>& lines);

 private:
  std::string partial_;
};

struct UpstreamLine {
  enum Kind { kNothing, kContent, kDone, kError } kind = kNothing;
  std::string text;  // the content, or the player-facing failure
};
// One line of the reply: the answer's text from choices[0].delta.content (reasoning is never
// taken), the end at [DONE], or an error the server sent in the stream.
UpstreamLine ReadUpstreamLine(std::string_view line);

// What the player is told when the model server answers with a status other than 200.
std::string UpstreamStatusMessage(int status, std::string_view body);

}  // namespace hintwick
