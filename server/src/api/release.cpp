#include "api/release.h"

#include <sodium.h>

#include <fstream>
#include <iterator>

#include "auth/tokens.h"
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
  auto exe = ReadAll(folder_ / "Hintwick.exe");
  if (!version || Trimmed(*version).empty() || !exe) return std::nullopt;
  Published published{Trimmed(*version), Sha256Hex(*exe), "", "",
                      std::make_shared<const std::string>(std::move(*exe))};
  if (auto signature = ReadAll(folder_ / "Hintwick.exe.sig")) published.signature = Base64(*signature);
  published.notes = Trimmed(ReadAll(folder_ / "notes.txt").value_or(""));
  LogLine("release " + published.version + " published, sha256 " + published.sha256 +
          (published.signature.empty() ? ", unsigned" : ", signed"));
  cached_ = published;
  return cached_;
}

}  // namespace hintwick
