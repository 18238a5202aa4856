#include "answers/model_protocol.h"

#include <boost/json.hpp>

#include "answers/text.h"

namespace hintwick {
namespace {

namespace json = boost::json;

constexpr std::size_t kDetailBytes = 200;

bool EndsWith(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

std::string TierRule(const AnswerRequest& request) {
  if (request.max_tier <= kNudge) {
    return "Give only a nudge: a question or a pointer to where to look, never the solution.";
  }
  if (request.max_tier == kHint) {
    return "Give a hint that points the way, but do not spell out the full solution.";
  }
  if (request.position.directness == Directness::kHints) {
    return "The player has asked this before: now give the solution plainly.";
  }
  return "Give the solution plainly.";
}

std::string NotesPart(const AnswerRequest& request, const std::vector<GatedNote>& notes) {
  std::string stage =
      request.position.stage.empty() ? "the start of the game" : request.position.stage;
  std::string part = "The player is at: " + stage +
                     ". The notes below are everything they may learn at this point. Answer "
                     "only from them; if they do not answer the question, say you have nothing "
                     "on it yet. Never name a character, place, item, enemy or event that is not "
                     "in the notes or in the player's question: it may come later in the game.\n"
                     "Notes:\n";
  for (const GatedNote& note : notes) part += "- " + note.title + ": " + note.body + "\n";
  if (notes.empty()) part += "(none)\n";
  return part;
}

std::string GeneralKnowledgePart(const AnswerRequest& request) {
  std::string part =
      "There are no notes for this game, so answer from what you know of it. Never go past what "
      "the player has said: do not name or hint at any character, place, item, enemy, twist or "
      "event they have not mentioned themselves, and leave out anything that may come later.\n";
  if (!request.position.stage.empty())
    part += "They say they are at: " + request.position.stage + ".\n";
  return part;
}

std::string SystemPrompt(const AnswerRequest& request, const std::vector<GatedNote>& notes,
                         bool strict) {
  std::string title = request.outline.title.empty() ? "a game" : request.outline.title;
  std::string prompt = "You help a player of " + title + " while they play, without spoilers.\n";
  prompt += request.has_pack ? NotesPart(request, notes) : GeneralKnowledgePart(request);
  prompt += TierRule(request) + "\n";
  if (strict) {
    prompt +=
        "Your previous answer named something from later in the game and was withdrawn. "
        "Use only words from the notes and the player's question, and name nothing else.\n";
  }
  return prompt + "Keep it to a few sentences. Do not list sources; they are added after you.";
}

std::string Detail(std::string_view text) {
  return std::string(text.substr(0, Utf8Boundary(text, kDetailBytes)));
}

// The message of {"error":{"message":…}} or {"error":"…"}, cut short; empty if none.
std::string ErrorDetail(const json::value& reply) {
  const json::object* object = reply.if_object();
  const json::value* error = object ? object->if_contains("error") : nullptr;
  if (!error) return "";
  if (const json::string* text = error->if_string()) return Detail(*text);
  const json::object* inner = error->if_object();
  const json::value* message = inner ? inner->if_contains("message") : nullptr;
  const json::string* text = message ? message->if_string() : nullptr;
  return text ? Detail(*text) : "the model server reported an error";
}

std::string DeltaContent(const json::value& reply) {
  const json::object* object = reply.if_object();
  const json::value* choices = object ? object->if_contains("choices") : nullptr;
  const json::array* list = choices ? choices->if_array() : nullptr;
  if (!list || list->empty() || !list->front().is_object()) return "";
  const json::value* delta = list->front().get_object().if_contains("delta");
  const json::object* fields = delta ? delta->if_object() : nullptr;
  const json::value* content = fields ? fields->if_contains("content") : nullptr;
  const json::string* text = content ? content->if_string() : nullptr;
  return text ? std::string(*text) : "";
}

}  // namespace

std::optional<ModelAddress> ParseModelUrl(std::string_view url) {
  constexpr std::string_view kScheme = "http://";
  if (url.substr(0, kScheme.size()) != kScheme) return {};
  url.remove_prefix(kScheme.size());
  std::size_t slash = url.find('/');
  std::string_view authority = url.substr(0, slash);
  std::string path(slash == std::string_view::npos ? "" : url.substr(slash));
  ModelAddress address{std::string(authority), "80", ""};
  std::size_t colon = authority.rfind(':');
  if (colon != std::string_view::npos && authority.find(']', colon) == std::string_view::npos) {
    address.host = authority.substr(0, colon);
    address.port = authority.substr(colon + 1);
  }
  if (address.host.size() > 2 && address.host.front() == '[') {
    address.host = address.host.substr(1, address.host.size() - 2);
  }
  if (address.host.empty() || address.port.empty()) return {};
  while (EndsWith(path, "/")) path.pop_back();
  if (!EndsWith(path, "/chat/completions"))
    path += EndsWith(path, "/v1") ? "/chat/completions" : "/v1/chat/completions";
  address.target = path;
  return address;
}

std::string CompletionRequestBody(std::string_view model, const AnswerRequest& request,
                                  const std::vector<GatedNote>& notes, bool strict) {
  json::array messages;
  messages.push_back(
      json::object{{"role", "system"}, {"content", SystemPrompt(request, notes, strict)}});
  messages.push_back(json::object{{"role", "user"}, {"content", request.question}});
  json::object body{{"model", model}, {"stream", true}};
  body["messages"] = std::move(messages);
  return json::serialize(body);
}

bool LineSplitter::Feed(std::string_view bytes, std::vector<std::string>& lines) {
  partial_ += bytes;
  std::size_t start = 0;
  for (std::size_t end; (end = partial_.find('\n', start)) != std::string::npos; start = end + 1) {
    std::size_t length = end - start;
    if (length > 0 && partial_[end - 1] == '\r') --length;
    lines.push_back(partial_.substr(start, length));
  }
  partial_.erase(0, start);
  return partial_.size() <= kMaxLine;
}

UpstreamLine ReadUpstreamLine(std::string_view line) {
  if (line.substr(0, 5) != "data:") return {};  // comments, keep-alives, other fields
  line.remove_prefix(5);
  while (!line.empty() && line.front() == ' ') line.remove_prefix(1);
  if (line == "[DONE]") return {UpstreamLine::kDone, ""};
  boost::system::error_code ec;
  json::value reply = json::parse(line, ec);
  if (ec) {
    return {UpstreamLine::kError,
            "The answer model sent a reply this service cannot read. Try asking again."};
  }
  if (std::string detail = ErrorDetail(reply); !detail.empty()) {
    return {UpstreamLine::kError,
            "The answer model failed in the middle of the answer (" + detail + "). Try again."};
  }
  std::string content = DeltaContent(reply);
  if (content.empty()) return {};
  return {UpstreamLine::kContent, std::move(content)};
}

std::string UpstreamStatusMessage(int status, std::string_view body) {
  boost::system::error_code ec;
  json::value reply = json::parse(body, ec);
  std::string detail = ec ? "" : ErrorDetail(reply);
  std::string code =
      " (http " + std::to_string(status) + (detail.empty() ? "" : ": " + detail) + ").";
  if (status == 401 || status == 403) {
    return "The answer model refused this service's key" + code +
           " Whoever runs this service needs to check its model settings.";
  }
  if (status == 404) {
    return "The answer model was not found" + code +
           " Whoever runs this service needs to check the model's name and address.";
  }
  if (status == 429 || status == 503)
    return "The answer model is busy" + code + " Try again in a moment.";
  return "The answer model failed" + code +
         " Try again; if it keeps failing, tell whoever runs this service.";
}

}  // namespace hintwick
