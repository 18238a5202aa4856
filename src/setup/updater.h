#pragma once
// Keeps the single executable current: asks the service what is published, downloads it,
// checks it and swaps it with the running file by renaming. The player-facing flow (asking,
// restarting) belongs to the application; its texts are in updater_rules.h.
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>

#include "setup/updater_rules.h"

namespace qn {

class HttpClient;
class RequestCancel;

// What the player sees of a download as it arrives, and how they stop it.
struct DownloadWatch {
  // Bytes so far and the whole size (0 while the reply has not said); from the download's
  // thread.
  std::function<void(uint64_t got, uint64_t total)> progress = nullptr;
  const RequestCancel* cancel = nullptr;  // null: runs to its end
};

// The renames of an update, in order, as the test hook sees them.
enum class SwapStep { kWriteNew, kClearOld, kMoveAside, kPutInPlace };

// Defaults are the real program's. Tests point them at a scratch folder, a small cap and
// their own key, and may step in before each rename.
struct UpdaterOptions {
  std::wstring exe_path{};  // empty: the running executable
  size_t max_download_bytes = kMaxUpdateBytes;
  std::string public_key_hex = kReleasePublicKeyHex;
  std::function<void(SwapStep)> before_step = nullptr;
};

class Updater {
 public:
  Updater() = default;
  explicit Updater(UpdaterOptions options) : options_(std::move(options)) {}

  // One GET /v1/version; an unreachable service or an odd reply offers nothing.
  UpdateInfo Check(HttpClient& client) const;
  static int CompareVersions(std::string_view a, std::string_view b) {
    return qn::CompareVersions(a, b);
  }
  // The whole body of a 200 reply, over a connection of its own.
  std::optional<std::string> Download(const std::string& url,
                                      const DownloadWatch& watch = {}) const;
  // Lower-case hex SHA-256; empty when the system's provider fails.
  static std::string Sha256Hex(std::string_view bytes);
  // Downloads, checks and swaps in the update; on failure `error` is the player's text and
  // the running executable is still in place under its own name. Whether a failed download
  // was cancelled is the cancel's own to tell.
  bool Apply(const UpdateInfo& info, std::wstring& error, const DownloadWatch& watch = {}) const;
  // At start-up, before anything else of the program: a swap that was cut short between
  // its renames is undone, and a download that never took the program's name goes.
  void RepairInterruptedSwap() const;
  // Once the build has started: deletes what the previous update moved aside, waiting up to
  // `patience` (unless stopped) for the previous build, whose image it is, to end.
  void RemoveLeftover(std::chrono::milliseconds patience = {}, std::stop_token stop = {}) const;
  // Tells a previous build waiting in HandOver that this one has started.
  static void ConfirmStarted();
  // After an update, from the previous build once it has let go of everything: starts the
  // new one and waits until it has started. One that cannot start, or ends before that, is
  // replaced by the previous build again, which is started instead. False then.
  bool HandOver(std::chrono::milliseconds patience = std::chrono::minutes(10)) const;

  std::wstring ExePath() const;

 private:
  bool SignatureAccepted(const UpdateInfo& info, std::string_view digest) const;
  bool Swap(const std::string& bytes, std::wstring& error) const;
  void Before(SwapStep step) const {
    if (options_.before_step) options_.before_step(step);
  }

  UpdaterOptions options_;
};

// The raw SHA-256 digest (32 bytes); empty on failure.
std::string Sha256Digest(std::string_view bytes);
// Whether `signature` (r || s) signs `digest` under the P-256 point `public_key` (65 bytes,
// 04 || X || Y). A key the system cannot import verifies nothing.
bool VerifyP256Signature(std::string_view public_key, std::string_view digest,
                         const RawSignature& signature);

}  // namespace qn
