#pragma once
// The published build, read from the operator's release folder: Hintwick.exe, its openssl
// signature Hintwick.exe.sig (optional), version.txt and notes.txt (optional). The checksum
// is computed here, once per change of the files, so the manifest never disagrees with them.
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace hintwick {

struct Published {
  std::string version;
  std::string sha256;     // lower-case hex
  std::string signature;  // base64 of the .sig file's bytes, empty when unsigned
  std::string notes;
  std::shared_ptr<const std::string> exe;  // the file's bytes, read once per change
};

class Release {
 public:
  explicit Release(std::filesystem::path folder) : folder_(std::move(folder)) {}
  std::optional<Published> Current();

 private:
  std::string Stamp() const;  // changes whenever one of the files does

  std::filesystem::path folder_;
  std::mutex mutex_;
  std::string stamp_;
  std::optional<Published> cached_;
};

}  // namespace hintwick
