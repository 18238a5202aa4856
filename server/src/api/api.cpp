#include "api/api.h"

#include <array>

#include "api/handlers.h"

namespace hintwick {
namespace {

using HandlerFn = Reply (*)(const Request&, Services&);

struct Route {
  std::string_view method;
  std::string_view pattern;  // "{game}" stands for one non-empty path segment
  Lane lane;
  HandlerFn handle;
};

// Sign-in and registration hash a password, so they queue for the hashing pool; everything
// that reads or writes the database runs on the store's pool.
constexpr std::array kRoutes = {
    Route{"POST", "/v1/auth/register", Lane::kHash, Register},
    Route{"POST", "/v1/auth/login", Lane::kHash, Login},
    Route{"POST", "/v1/auth/refresh", Lane::kStore, Refresh},
    Route{"POST", "/v1/auth/logout", Lane::kStore, Logout},
    Route{"GET", "/v1/games", Lane::kStore, ListGames},
    Route{"GET", "/v1/memory/{game}", Lane::kStore, GetMemory},
    Route{"PATCH", "/v1/memory/{game}", Lane::kStore, PatchMemory},
    Route{"POST", "/v1/memory/{game}/new-playthrough", Lane::kStore, NewPlaythrough},
    Route{"POST", "/v1/chat", Lane::kStore, Chat},  // then streamed on the I/O thread
    Route{"GET", "/v1/version", Lane::kStore, Version},
    Route{"GET", "/v1/download/Hintwick.exe", Lane::kStore, Download},
    Route{"GET", "/healthz", Lane::kInline, Health},
    Route{"GET", "/metrics", Lane::kInline, MetricsText},
};

bool Matches(std::string_view pattern, std::string_view path) {
  while (!pattern.empty()) {
    auto brace = pattern.find('{');
    if (brace == std::string_view::npos) return pattern == path;
    if (path.substr(0, brace) != pattern.substr(0, brace)) return false;
    path.remove_prefix(brace);
    pattern.remove_prefix(pattern.find('}') + 1);
    auto segment_end = path.find('/');
    if (path.empty() || segment_end == 0) return false;
    path.remove_prefix(segment_end == std::string_view::npos ? path.size() : segment_end);
  }
  return path.empty();
}

Reply NotFound(const Request&, Services&) { return ErrorReply(404, "no such endpoint"); }
Reply WrongMethod(const Request&, Services&) {
  return ErrorReply(405, "that method is not allowed here");
}

// The route for the request, a stand-in that refuses it when none fits.
Route Find(const Request& request) {
  bool path_known = false;
  for (const Route& route : kRoutes) {
    if (!Matches(route.pattern, request.path)) continue;
    if (route.method == request.method) return route;
    path_known = true;
  }
  if (path_known) return {"", "wrong-method", Lane::kInline, WrongMethod};
  return {"", "unknown", Lane::kInline, NotFound};
}

}  // namespace

RouteInfo Api::Classify(const Request& request) const {
  Route route = Find(request);
  return {route.lane, route.pattern};
}

Reply Api::Handle(const Request& request) { return Find(request).handle(request, services_); }

}  // namespace hintwick
