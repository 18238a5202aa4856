#pragma once
// The whole service assembled from its configuration (store, password hasher, accounts,
// handlers, listener), so that the program and its tests run the very same assembly.
#include <memory>
#include <string>
#include <variant>

#include "config/config.h"

namespace hintwick {

class Service {
 public:
  // Opens the store and the listening socket, and with `signals` has SIGTERM and SIGINT stop
  // it; the words of the failure if anything fails.
  static std::variant<std::unique_ptr<Service>, std::string> Open(const Config& config,
                                                                  bool signals);
  ~Service();

  // Serves until Stop or a signal; returns once drained.
  void Run();
  void Stop();  // from any thread
  std::uint16_t Port() const;
  std::string BaseUrl() const;
  Store& store();

 private:
  Service() = default;
  struct Parts;
  std::unique_ptr<Parts> parts_;
};

// The configured database, for the operator's commands as for the service.
StoreResult<std::unique_ptr<Store>> OpenConfiguredStore(const Config& config);

}  // namespace hintwick
