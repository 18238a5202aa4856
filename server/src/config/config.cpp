#include "config/config.h"

#include <boost/json.hpp>

#include <charconv>
#include <fstream>
#include <functional>
#include <sstream>

namespace hintwick {
namespace {

using Setter = std::function<bool(Config&, const std::string&)>;

struct Option {
  const char* name;  // the flag without "--"; the file's key has '_' for '-'
  const char* meaning;
  Setter set;
};

template <typename Int>
bool ParseInt(const std::string& text, Int& out, Int lowest, Int highest) {
  Int value{};
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) return false;
  if (value < lowest || value > highest) return false;
  out = value;
  return true;
}

Setter Text(std::string Config::*field) {
  return [field](Config& c, const std::string& v) {
    c.*field = v;
    return true;
  };
}

Setter Int(int Config::*field, int lowest, int highest) {
  return [=](Config& c, const std::string& v) { return ParseInt(v, c.*field, lowest, highest); };
}

Setter Size(std::size_t Config::*field, std::size_t lowest) {
  return [=](Config& c, const std::string& v) {
    return ParseInt(v, c.*field, lowest, std::size_t{1} << 30);
  };
}

Setter Seconds(std::chrono::seconds& (*field)(Config&), long lowest) {
  return [=](Config& c, const std::string& v) {
    long value = 0;
    if (!ParseInt(v, value, lowest, 10L * 365 * 24 * 3600)) return false;
    field(c) = std::chrono::seconds(value);
    return true;
  };
}

bool SetListen(Config& c, const std::string& v) {
  auto colon = v.rfind(':');
  if (colon == std::string::npos || colon == 0) return false;
  c.listen_host = v.substr(0, colon);
  if (c.listen_host.size() > 2 && c.listen_host.front() == '[' && c.listen_host.back() == ']')
    c.listen_host = c.listen_host.substr(1, c.listen_host.size() - 2);
  return ParseInt(v.substr(colon + 1), c.listen_port, std::uint16_t{0}, std::uint16_t{65535});
}

bool SetBool(bool& field, const std::string& v) {
  if (v != "true" && v != "false") return false;
  field = v == "true";
  return true;
}

const std::vector<Option>& Options() {
  static const std::vector<Option> options = {
      {"listen", "HOST:PORT to listen on (127.0.0.1:8080)", SetListen},
      {"data", "data folder: the SQLite file and the release folder (./data)",
       Text(&Config::data_dir)},
      {"database", "postgres://... to use PostgreSQL; empty: SQLite in the data folder",
       Text(&Config::database_url)},
      {"release", "folder with Hintwick.exe, Hintwick.exe.sig and version.txt (DATA/release)",
       Text(&Config::release_dir)},
      {"public-url", "the origin players reach this service at, for download links",
       Text(&Config::public_url)},
      {"tls-cert", "PEM certificate chain; serves HTTPS with --tls-key", Text(&Config::tls_cert)},
      {"tls-key", "PEM private key", Text(&Config::tls_key)},
      {"trust-forwarded-for", "true: rate-limit by the proxy's X-Forwarded-For",
       [](Config& c, const std::string& v) { return SetBool(c.trust_forwarded_for, v); }},
      {"access-ttl", "access token lifetime in seconds (3600)",
       Seconds([](Config& c) -> std::chrono::seconds& { return c.tokens.access; }, 1)},
      {"refresh-idle", "refresh token lifetime when unused, in seconds (7776000)",
       Seconds([](Config& c) -> std::chrono::seconds& { return c.tokens.refresh_idle; }, 60)},
      {"grace", "seconds a rotated refresh token may still be used (30; 0: none)",
       Seconds([](Config& c) -> std::chrono::seconds& { return c.tokens.reuse_grace; }, 0)},
      {"grace-reuses", "uses of a rotated token the grace allows (3)",
       [](Config& c, const std::string& v) {
         return ParseInt(v, c.tokens.reuse_grace_max, 1, 100);
       }},
      {"store-threads", "database threads (4)", Int(&Config::store_threads, 1, 256)},
      {"hash-threads", "password hashes at once (2)", Int(&Config::hash_threads, 1, 64)},
      {"hash-queue", "sign-ins waiting for a hash before 503 (64)",
       Int(&Config::hash_queue, 0, 100000)},
      {"argon2-mib", "Argon2id memory in MiB (19)", Int(&Config::argon2_mib, 19, 4096)},
      {"argon2-passes", "Argon2id passes (2)", Int(&Config::argon2_passes, 2, 64)},
      {"body-limit", "largest request body in bytes (65536)", Size(&Config::body_limit, 256)},
      {"header-limit", "largest request header in bytes (8192)",
       Size(&Config::header_limit, 512)},
      {"json-depth", "deepest JSON nesting accepted (16)", Int(&Config::json_depth, 2, 1000)},
      {"read-timeout", "seconds to receive a whole request (10)",
       Seconds([](Config& c) -> std::chrono::seconds& { return c.read_timeout; }, 1)},
      {"idle-timeout", "seconds a kept-alive connection may wait (60)",
       Seconds([](Config& c) -> std::chrono::seconds& { return c.idle_timeout; }, 1)},
      {"drain-timeout", "seconds SIGTERM waits for requests in flight (30)",
       Seconds([](Config& c) -> std::chrono::seconds& { return c.drain_timeout; }, 0)},
      {"rate-address", "sign-in requests per address and window (30)",
       [](Config& c, const std::string& v) { return ParseInt(v, c.rate.per_address, 1, 1 << 20); }},
      {"rate-account", "sign-in attempts per e-mail and window (10)",
       [](Config& c, const std::string& v) { return ParseInt(v, c.rate.per_account, 1, 1 << 20); }},
      {"rate-refresh", "refreshes per address and window (120)",
       [](Config& c, const std::string& v) {
         return ParseInt(v, c.rate.refresh_per_address, 1, 1 << 20);
       }},
      {"model-url", "an OpenAI-compatible server (http://127.0.0.1:8081/v1); empty: no model",
       Text(&Config::model_url)},
      {"model-name", "the model the server is asked for", Text(&Config::model_name)},
      {"model-key", "the model server's API key, if it wants one", Text(&Config::model_key)},
      {"answer-concurrency", "answers streaming at once; beyond, the player is told to wait (1000)",
       Int(&Config::answer_concurrency, 1, 1000000)},
      {"keepalive-ms", "longest quiet in an answer's stream before a keep-alive (15000)",
       [](Config& c, const std::string& v) {
         long value = 0;
         if (!ParseInt(v, value, 10L, 3600L * 1000)) return false;
         c.keepalive = std::chrono::milliseconds(value);
         return true;
       }},
      {"rate-window", "rate limit window in seconds (60)",
       Seconds([](Config& c) -> std::chrono::seconds& { return c.rate.window; }, 1)},
  };
  return options;
}

const Option* FindOption(const std::string& name) {
  for (const auto& option : Options())
    if (name == option.name) return &option;
  return nullptr;
}

std::string FileKeyToFlag(std::string key) {
  for (auto& ch : key)
    if (ch == '_') ch = '-';
  return key;
}

std::optional<std::string> ScalarText(const boost::json::value& v) {
  if (v.is_string()) return std::string(v.get_string());
  if (v.is_bool()) return v.get_bool() ? "true" : "false";
  if (v.is_int64()) return std::to_string(v.get_int64());
  if (v.is_uint64()) return std::to_string(v.get_uint64());
  return std::nullopt;
}

std::optional<ConfigError> ApplyFile(Config& config, const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return ConfigError{"cannot read config file " + path};
  std::stringstream text;
  text << in.rdbuf();
  boost::system::error_code ec;
  auto doc = boost::json::parse(text.str(), ec);
  if (ec || !doc.is_object()) return ConfigError{path + " is not a JSON object"};
  for (const auto& [key, value] : doc.get_object()) {
    auto flag = FileKeyToFlag(std::string(key));
    const Option* option = FindOption(flag);
    auto scalar = ScalarText(value);
    if (!option) return ConfigError{path + ": unknown key " + std::string(key)};
    if (!scalar || !option->set(config, *scalar))
      return ConfigError{path + ": bad value for " + std::string(key)};
  }
  return std::nullopt;
}

// Splits "--name=value" and "--name value"; gives the index after the value.
struct Flag {
  std::string name, value;
  std::size_t next = 0;
  bool has_value = false;
};

Flag ReadFlag(const std::vector<std::string>& args, std::size_t i) {
  Flag flag;
  std::string body = args[i].substr(2);
  auto eq = body.find('=');
  flag.name = body.substr(0, eq);
  flag.next = i + 1;
  if (eq != std::string::npos) {
    flag.value = body.substr(eq + 1);
    flag.has_value = true;
  } else if (i + 1 < args.size()) {
    flag.value = args[i + 1];
    flag.has_value = true;
    flag.next = i + 2;
  }
  return flag;
}

std::optional<ConfigError> Validate(const Config& c) {
  if (c.tls_cert.empty() != c.tls_key.empty())
    return ConfigError{"--tls-cert and --tls-key go together"};
  if (c.data_dir.empty()) return ConfigError{"--data must not be empty"};
  return std::nullopt;
}

}  // namespace

std::string Config::DatabaseUrl() const {
  return database_url.empty() ? "sqlite:" + data_dir + "/hintwick.db" : database_url;
}

std::string Config::ReleaseDir() const {
  return release_dir.empty() ? data_dir + "/release" : release_dir;
}

std::variant<Config, ConfigError> LoadConfig(std::vector<std::string>& args) {
  Config config;
  std::vector<std::string> rest;
  // The file first, wherever --config stands, so that every flag overrides it.
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] != "--config" && args[i].rfind("--config=", 0) != 0) continue;
    Flag flag = ReadFlag(args, i);
    if (!flag.has_value) return ConfigError{"--config needs a file"};
    if (auto error = ApplyFile(config, flag.value)) return *error;
  }
  for (std::size_t i = 0; i < args.size();) {
    if (args[i].rfind("--", 0) != 0 || args[i] == "--has-index") {
      rest.push_back(args[i++]);
      continue;
    }
    Flag flag = ReadFlag(args, i);
    const Option* option = FindOption(flag.name);
    if (!option && flag.name != "config") return ConfigError{"unknown flag --" + flag.name};
    if (!flag.has_value) return ConfigError{"--" + flag.name + " needs a value"};
    if (option && !option->set(config, flag.value))
      return ConfigError{"bad value for --" + flag.name};
    i = flag.next;
  }
  if (auto error = Validate(config)) return *error;
  args = std::move(rest);
  return config;
}

std::string ConfigUsage() {
  std::string text = "  --config FILE  a JSON object of the settings below (\"access_ttl\": 600)\n";
  for (const auto& option : Options())
    text += std::string("  --") + option.name + "  " + option.meaning + "\n";
  return text;
}

}  // namespace hintwick
