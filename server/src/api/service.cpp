// The update manifest and its download, and the operator's endpoints.
#include <boost/json.hpp>

#include "api/handlers.h"
#include "api/release.h"
#include "ops/metrics.h"

namespace hintwick {

Reply Version(const Request& request, Services& services) {
  auto published = services.release.Current();
  if (!published) return ErrorReply(404, "no release is published");
  const Config& config = services.config;
  std::string origin = config.public_url;
  if (origin.empty()) {
    std::string host = request.host.empty()
                           ? config.listen_host + ":" + std::to_string(config.listen_port)
                           : request.host;
    origin = (request.secure ? "https://" : "http://") + host;
  }
  while (!origin.empty() && origin.back() == '/') origin.pop_back();
  boost::json::object body{{"version", published->version},
                           {"url", origin + "/v1/download/Hintwick.exe"},
                           {"sha256", published->sha256}};
  if (!published->notes.empty()) body["notes"] = published->notes;
  if (!published->signature.empty()) body["signature"] = published->signature;
  return JsonReply(200, boost::json::serialize(body));
}

Reply Download(const Request&, Services& services) {
  auto published = services.release.Current();
  if (!published) return ErrorReply(404, "no release is published");
  Reply reply;
  reply.content_type = "application/octet-stream";
  reply.body = *published->exe;
  return reply;
}

Reply Health(const Request&, Services&) { return JsonReply(200, R"({"status":"ok"})"); }

Reply MetricsText(const Request&, Services& services) {
  Reply reply;
  reply.content_type = "text/plain; version=0.0.4";
  reply.body = services.metrics.Render();
  return reply;
}

}  // namespace hintwick
