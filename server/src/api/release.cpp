#include "api/release.h"

#include <sodium.h>

#include <fstream>
#include <iterator>

#include "ops/log.h"

namespace hintwick {
namespace fs = std::filesystem;
namespace {

std::optional<std::string> ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(in), {});
}

std::string Trimmed(std::string text) {
  while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
  auto start = text.find_first_not_of(" \t\r\n");
  return start == std::string::npos ? "" : text.substr(start);
}

std::optional<std::string> FileSha256(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  crypto_hash_sha256_state state;
  crypto_hash_sha256_init(&state);
  char chunk[1 << 16];
  while (in.read(chunk, sizeof chunk) || in.gcount() > 0)
    crypto_hash_sha256_update(&state, reinterpret_cast<unsigned char*>(chunk),
                              static_cast<unsigned long long>(in.gcount()));
  unsigned char digest[crypto_hash_sha256_BYTES];
  crypto_hash_sha256_final(&state, digest);
  char hex[sizeof digest * 2 + 1];
  sodium_bin2hex(hex, sizeof hex, digest, sizeof digest);
  return hex;
}

std::string Base64(const std::string& bytes) {
  constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;
  std::string text(sodium_base64_ENCODED_LEN(bytes.size(), kVariant), '\0');
  sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
                    bytes.size(), kVariant);
  text.pop_back();  // the terminating zero
  return text;
}

std::string FileStamp(const fs::path& path) {
  std::error_code ec;
  auto size = fs::file_size(path, ec);
  if (ec) return "-;";
  auto time = fs::last_write_time(path, ec).time_since_epoch().count();
  return std::to_string(size) + "@" + std::to_string(time) + ";";
}

}  // namespace

std::string Release::Stamp() const {
  return FileStamp(folder_ / "Hintwick.exe") + FileStamp(folder_ / "Hintwick.exe.sig") +
         FileStamp(folder_ / "version.txt") + FileStamp(folder_ / "notes.txt");
}

std::optional<Published> Release::Current() {
  std::lock_guard lock(mutex_);
  std::string stamp = Stamp();
  if (stamp == stamp_) return cached_;
  stamp_ = stamp;
  cached_.reset();
  auto version = ReadAll(folder_ / "version.txt");
  auto sha256 = FileSha256(folder_ / "Hintwick.exe");
  if (!version || Trimmed(*version).empty() || !sha256) return std::nullopt;
  Published published{Trimmed(*version), *sha256, "", "", folder_ / "Hintwick.exe"};
  if (auto signature = ReadAll(folder_ / "Hintwick.exe.sig")) published.signature = Base64(*signature);
  published.notes = Trimmed(ReadAll(folder_ / "notes.txt").value_or(""));
  LogLine("release " + published.version + " published, sha256 " + published.sha256 +
          (published.signature.empty() ? ", unsigned" : ", signed"));
  cached_ = published;
  return cached_;
}

}  // namespace hintwick
