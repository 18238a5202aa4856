#pragma once
// The updater's decisions and texts without platform code: version order, what a manifest
// offers, the player-facing messages, and the encodings of checksums, keys and signatures.
// Built natively too, so the parsers run under the sanitizers and the fuzzer.
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/version.h"

namespace qn {

// An update is a whole executable held in memory; anything far beyond ours is not one.
inline constexpr size_t kMaxUpdateBytes = size_t{64} << 20;

// The release key: the hex of the 65-byte uncompressed P-256 point (04, X, Y). Empty until
// the service signs its releases; while it is, updates are installed on their checksum alone.
inline constexpr char kReleasePublicKeyHex[] = "";

struct UpdateInfo {
  bool available = false;
  std::string version;
  std::string url;
  std::string sha256;
  std::string notes;
  bool rollback = false;  // the published version is lower than ours
  std::string signature;  // base64, empty when the manifest carries none
  bool unreachable = false;  // no answer, or the service's own failure: nothing is known

  bool operator==(const UpdateInfo&) const = default;
};

// -1, 0 or 1 over at most four dot-separated numeric components; see the .cpp for the rule.
int CompareVersions(std::string_view a, std::string_view b);

// What a manifest came to, for the caller's log line.
enum class ManifestVerdict { kNothing, kUpToDate, kIncomplete, kOffered };

// The offer in a GET /v1/version reply; `verdict` says why nothing is offered.
UpdateInfo ReadManifest(bool arrived, int32_t status, std::string_view body,
                        ManifestVerdict& verdict);

// Player-facing texts, in the order the update flow shows them.
std::wstring UpToDateText();
inline constexpr wchar_t kUpdateCheckFailedText[] =
    L"Hintwick could not reach its service to check for updates. Check your connection and try "
    L"again later.";
std::wstring UpdateQuestionText(const UpdateInfo& info);
inline constexpr wchar_t kUpdateCaption[] = L"Hintwick";
inline constexpr wchar_t kCheckingForUpdatesText[] = L"Checking for updates...";
// Beside the download's progress bar; `total` 0 while the size is not known.
std::wstring DownloadProgressText(std::string_view version, uint64_t got, uint64_t total);
inline constexpr wchar_t kNoUpdateError[] = L"No update to apply.";
inline constexpr wchar_t kDownloadError[] = L"Could not download the update.";
inline constexpr wchar_t kHashError[] = L"Could not hash the download.";
inline constexpr wchar_t kChecksumError[] =
    L"The downloaded update did not match its published checksum, so it was discarded.";
inline constexpr wchar_t kSignatureError[] =
    L"The downloaded update is not signed by Hintwick's publisher, so it was discarded.";
inline constexpr wchar_t kNotAProgramError[] =
    L"The downloaded update is not a Hintwick program for this computer, so it was discarded.";
inline constexpr wchar_t kWriteError[] = L"Could not write the update to disk.";
inline constexpr wchar_t kMoveAsideError[] = L"Could not move the running program aside.";
inline constexpr wchar_t kPutInPlaceError[] =
    L"Could not put the update in place; the previous version was restored.";
// Only when the restoring rename fails too: the program keeps running, but its file is gone.
inline constexpr wchar_t kNotRestoredError[] =
    L"Could not put the update in place, nor restore the previous version. It was left beside "
    L"Hintwick with \".old\" added to its name.";

// Lower-case hexadecimal, two characters a byte.
// Whether the bytes are a 64-bit Windows program with a window (x64, PE32+, GUI subsystem).
// Whatever its checksum and signature say, a file that is not one (the symbols or an archive
// published under the program's name) must never take the program's place.
bool IsX64WindowsProgram(std::string_view bytes);

std::string HexLower(std::string_view bytes);
// Even-length hexadecimal of either case; nothing for anything else.
std::optional<std::string> DecodeHex(std::string_view text);
bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b);
// Standard base64 with padding optional; white space or any other byte fails.
std::optional<std::string> DecodeBase64(std::string_view text);

// An ECDSA P-256 signature as the 64 bytes r || s, from either that raw form or the DER
// sequence of two integers that common signing tools write.
using RawSignature = std::array<uint8_t, 64>;
std::optional<RawSignature> SignatureFromBytes(std::string_view bytes);

}  // namespace qn
