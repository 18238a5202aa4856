#pragma once
// The service's answers: a route table from method and path to small handler functions, each
// from a parsed request to a reply.
#include "auth/accounts.h"
#include "config/config.h"
#include "http/message.h"

namespace hintwick {

class ChatDesk;
class Metrics;
class Release;

struct Services {
  const Config& config;
  Store& store;
  Accounts& accounts;
  Metrics& metrics;
  Release& release;
  ChatDesk& chat;
};

class Api : public Handler {
 public:
  explicit Api(Services services) : services_(services) {}
  RouteInfo Classify(const Request& request) const override;
  Reply Handle(const Request& request) override;

 private:
  Services services_;
};

}  // namespace hintwick
