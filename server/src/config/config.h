#pragma once
// What the service is told at start: a JSON file (--config) and command-line flags, the flags
// winning. Everything has a default that runs on SQLite in ./data with nothing to set.
#include <chrono>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "store/store.h"

namespace hintwick {

struct RateLimits {
  int per_address = 30;  // sign-in and account requests per address and window
  int per_account = 10;  // sign-in attempts per e-mail and window
  int refresh_per_address = 120;
  std::chrono::seconds window{60};
};

struct Config {
  std::string listen_host = "127.0.0.1";
  std::uint16_t listen_port = 8080;
  std::string data_dir = "data";
  std::string database_url;  // empty: SQLite in the data folder
  std::string release_dir;   // empty: "release" in the data folder
  std::string public_url;    // empty: taken from each request's Host header
  std::string tls_cert;      // PEM files; both or neither
  std::string tls_key;
  bool trust_forwarded_for = false;  // behind a reverse proxy that sets X-Forwarded-For
  TokenLifetimes tokens;
  RateLimits rate;
  int store_threads = 4;
  int hash_threads = 2;   // Argon2id runs at most this many at once...
  int hash_queue = 64;    // ...with at most this many waiting; beyond, 503
  int argon2_mib = 19;    // OWASP's minimum memory with t=2, p=1
  int argon2_passes = 2;
  std::size_t body_limit = 64 * 1024;
  std::size_t header_limit = 8 * 1024;
  int json_depth = 16;
  std::chrono::seconds read_timeout{10};
  std::chrono::seconds idle_timeout{60};
  std::chrono::seconds drain_timeout{30};
  std::string model_url;   // empty: answers from the notes alone, without a model
  std::string model_name;
  std::string model_key;   // sent to the model server only; never logged
  int answer_concurrency = 1000;
  std::chrono::milliseconds keepalive{15000};

  std::string DatabaseUrl() const;
  std::string ReleaseDir() const;
};

struct ConfigError {
  std::string text;
};

// The flags consumed leave `args` holding the rest (an admin command, if any).
std::variant<Config, ConfigError> LoadConfig(std::vector<std::string>& args);

// Each flag with its meaning, for --help.
std::string ConfigUsage();

}  // namespace hintwick
