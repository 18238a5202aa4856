// The game catalogue and each player's progress record per game.
#include <boost/json.hpp>

#include "api/body.h"
#include "api/handlers.h"

namespace hintwick {
namespace {

namespace json = boost::json;

constexpr std::string_view kMemoryPrefix = "/v1/memory/";
constexpr std::size_t kMaxGameKey = 128;

const char* DirectnessName(Directness directness) {
  switch (directness) {
    case Directness::kCoach:
      return "coach";
    case Directness::kAnswer:
      return "answer";
    case Directness::kHints:
      break;
  }
  return "hints";
}

std::optional<Directness> ParseDirectness(std::string_view name) {
  if (name == "coach") return Directness::kCoach;
  if (name == "hints") return Directness::kHints;
  if (name == "answer") return Directness::kAnswer;
  return std::nullopt;
}

// The key as the client sent it: compared byte for byte, never decoded.
std::optional<std::string> GameOf(const Request& request) {
  std::string_view rest = std::string_view(request.path).substr(kMemoryPrefix.size());
  std::string key(rest.substr(0, rest.find('/')));
  if (key.empty() || key.size() > kMaxGameKey) return std::nullopt;
  return key;
}

Reply ProgressReply(const StoreResult<Progress>& result) {
  const Progress* progress = Accounts::Succeeded(result);
  if (!progress) return RefusalFor(AuthFailure::kUnavailable);
  json::object body;
  body["stage"] = progress->stage;
  body["stage_ordinal"] = progress->stage_ordinal;
  body["directness"] = DirectnessName(progress->directness);
  body["spoilers_ok"] = progress->spoilers_ok;
  body["revision"] = progress->revision;
  return JsonReply(200, json::serialize(body));
}

// Each member is optional, but one that is there must have its type.
std::variant<ProgressPatch, Reply> ReadPatch(const json::object& body) {
  ProgressPatch patch;
  if (const auto* v = body.if_contains("stage")) {
    if (!v->is_string() || v->get_string().size() > 200)
      return ErrorReply(400, "stage must be a string of at most 200 bytes");
    patch.stage = std::string(v->get_string());
  }
  if (const auto* v = body.if_contains("stage_ordinal")) {
    if (!v->is_int64()) return ErrorReply(400, "stage_ordinal must be an integer");
    patch.stage_ordinal = v->get_int64();
  }
  if (const auto* v = body.if_contains("directness")) {
    auto directness = v->is_string() ? ParseDirectness(v->get_string()) : std::nullopt;
    if (!directness) return ErrorReply(400, "directness must be coach, hints or answer");
    patch.directness = directness;
  }
  if (const auto* v = body.if_contains("spoilers_ok")) {
    if (!v->is_bool()) return ErrorReply(400, "spoilers_ok must be true or false");
    patch.spoilers_ok = v->get_bool();
  }
  return patch;
}

// The caller and the game of a memory request, or the refusal.
struct Target {
  UserId user = 0;
  std::string game;
};

std::variant<Target, Reply> TargetOf(const Request& request, Services& services) {
  auto caller = Caller(request, services);
  if (auto* refusal = std::get_if<Reply>(&caller)) return std::move(*refusal);
  auto game = GameOf(request);
  if (!game) return ErrorReply(400, "the game key is too long");
  return Target{std::get<UserId>(caller), *game};
}

}  // namespace

Reply ListGames(const Request& request, Services& services) {
  auto caller = Caller(request, services);
  if (auto* refusal = std::get_if<Reply>(&caller)) return std::move(*refusal);
  auto listed = services.store.ListGames();
  const auto* entries = Accounts::Succeeded(listed);
  if (!entries) return RefusalFor(AuthFailure::kUnavailable);
  // A bare array of flat objects: the program reads each object alone.
  json::array games;
  for (const GameEntry& game : *entries)
    games.push_back(json::object{{"slug", game.key},
                                 {"display_name", game.title},
                                 {"has_index", game.has_index}});
  return JsonReply(200, json::serialize(games));
}

Reply GetMemory(const Request& request, Services& services) {
  auto target = TargetOf(request, services);
  if (auto* refusal = std::get_if<Reply>(&target)) return std::move(*refusal);
  auto& [user, game] = std::get<Target>(target);
  return ProgressReply(services.store.GetProgress(user, game));
}

Reply PatchMemory(const Request& request, Services& services) {
  auto target = TargetOf(request, services);
  if (auto* refusal = std::get_if<Reply>(&target)) return std::move(*refusal);
  auto body = ParseObject(request.body, services.config.json_depth);
  if (!body) return ErrorReply(400, "the body must be a JSON object");
  auto patch = ReadPatch(*body);
  if (auto* refusal = std::get_if<Reply>(&patch)) return std::move(*refusal);
  auto& [user, game] = std::get<Target>(target);
  return ProgressReply(services.store.PatchProgress(user, game, std::get<ProgressPatch>(patch)));
}

Reply NewPlaythrough(const Request& request, Services& services) {
  auto target = TargetOf(request, services);
  if (auto* refusal = std::get_if<Reply>(&target)) return std::move(*refusal);
  auto& [user, game] = std::get<Target>(target);
  return ProgressReply(services.store.NewPlaythrough(user, game));
}

}  // namespace hintwick
