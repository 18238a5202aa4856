#include "setup/updater_rules.h"

#include "core/json.h"
#include "core/utf.h"

namespace qn {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

// One component at `pos`: its digits as an unsigned value, with whatever follows them up to
// the next "." ignored ("2rc1" reads as 2). Too many digits wrap instead of failing: no real
// version has them, and the comparison only has to stay total.
uint32_t NextComponent(std::string_view text, size_t& pos) {
  uint32_t value = 0;
  for (; pos < text.size() && text[pos] >= '0' && text[pos] <= '9'; ++pos) {
    value = value * 10u + static_cast<uint32_t>(text[pos] - '0');
  }
  while (pos < text.size() && text[pos] != '.') ++pos;
  if (pos < text.size()) ++pos;
  return value;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

int Base64Value(char c) {
  if (c >= 'A' && c <= 'Z') return c - 'A';
  if (c >= 'a' && c <= 'z') return c - 'a' + 26;
  if (c >= '0' && c <= '9') return c - '0' + 52;
  if (c == '+') return 62;
  if (c == '/') return 63;
  return -1;
}

// One DER INTEGER at `pos` as a 32-byte big-endian field element. DER keeps a leading zero
// only to clear the sign bit, so a value may take 33 bytes; a short one is padded.
bool ReadDerInteger(std::string_view der, size_t& pos, uint8_t* out) {
  if (pos + 2 > der.size() || der[pos] != 0x02) return false;
  size_t length = static_cast<uint8_t>(der[pos + 1]);
  pos += 2;
  if (length == 0 || length > 33 || pos + length > der.size()) return false;
  std::string_view value = der.substr(pos, length);
  pos += length;
  if (value.size() == 33) {
    if (value[0] != 0) return false;
    value.remove_prefix(1);
  }
  const size_t pad = 32 - value.size();
  for (size_t i = 0; i < 32; ++i) out[i] = i < pad ? 0 : static_cast<uint8_t>(value[i - pad]);
  return true;
}

}  // namespace

int CompareVersions(std::string_view a, std::string_view b) {
  size_t pa = 0;
  size_t pb = 0;
  // A fifth component is never looked at, so that "1.2.3.4.9" equals "1.2.3.4.1".
  for (int component = 0; component < 4; ++component) {
    const uint32_t va = pa < a.size() ? NextComponent(a, pa) : 0;
    const uint32_t vb = pb < b.size() ? NextComponent(b, pb) : 0;
    // Signed on purpose: every build must agree on what counts as a rollback.
    const auto sa = static_cast<int32_t>(va);
    const auto sb = static_cast<int32_t>(vb);
    if (sa != sb) return sa < sb ? -1 : 1;
    if (pa >= a.size() && pb >= b.size()) return 0;
  }
  return 0;
}

UpdateInfo ReadManifest(bool arrived, int32_t status, std::string_view body,
                        ManifestVerdict& verdict) {
  UpdateInfo info;
  verdict = ManifestVerdict::kNothing;
  info.unreachable = !arrived || status >= 500;
  if (status != 200) return info;
  const std::string version = JsonGetString(body, "version").value_or("");
  if (version.empty()) return info;
  // Equality is textual on purpose: "0.1.07" is a different build even though it orders
  // the same as ours.
  if (version == kProductVersion) {
    verdict = ManifestVerdict::kUpToDate;
    return info;
  }
  info.url = JsonGetString(body, "url").value_or("");
  info.sha256 = JsonGetString(body, "sha256").value_or("");
  info.notes = JsonGetString(body, "notes").value_or("");
  info.signature = JsonGetString(body, "signature").value_or("");
  if (info.url.empty() || info.sha256.empty()) {
    verdict = ManifestVerdict::kIncomplete;
    return UpdateInfo{};
  }
  info.available = true;
  info.version = version;
  info.rollback = CompareVersions(version, kProductVersion) < 0;
  verdict = ManifestVerdict::kOffered;
  return info;
}

std::wstring UpToDateText() {
  return L"Hintwick is up to date (version " + Utf8ToWide(kProductVersion) + L").";
}

std::wstring UpdateQuestionText(const UpdateInfo& info) {
  std::wstring text = info.rollback
                          ? L"The published version of Hintwick is older than yours.\n\nYou have "
                          : L"A new version of Hintwick is available.\n\nYou have ";
  text += Utf8ToWide(kProductVersion);
  text += info.rollback ? L", the published build is " : L", the latest is ";
  text += Utf8ToWide(info.version) + L".";
  if (!info.notes.empty()) text += L"\n\n" + Utf8ToWide(info.notes);
  return text + L"\n\nDownload and install it now? Hintwick will restart.";
}

namespace {

// Megabytes as the system's file dialogs count them, to one decimal.
std::wstring Megabytes(uint64_t bytes) {
  const uint64_t tenths = (bytes * 10 + (uint64_t{1} << 19)) >> 20;
  return std::to_wstring(tenths / 10) + L"." + std::to_wstring(tenths % 10) + L" MB";
}

}  // namespace

std::wstring DownloadProgressText(std::string_view version, uint64_t got, uint64_t total) {
  std::wstring text = L"Downloading version " + Utf8ToWide(version) + L": ";
  text += Megabytes(got);
  return total == 0 ? text : text + L" of " + Megabytes(total);
}

namespace {

// Little-endian, as the file format is; nullopt past the end.
std::optional<uint32_t> ReadLe(std::string_view bytes, size_t at, size_t size) {
  if (at > bytes.size() || bytes.size() - at < size) return std::nullopt;
  uint32_t value = 0;
  for (size_t i = size; i-- > 0;) value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
  return value;
}

}  // namespace

bool IsX64WindowsProgram(std::string_view bytes) {
  constexpr uint32_t kMz = 0x5A4D, kPe = 0x4550, kAmd64 = 0x8664, kPe32Plus = 0x20B, kGui = 2;
  const std::optional<uint32_t> header = ReadLe(bytes, 0x3C, 4);
  if (ReadLe(bytes, 0, 2) != kMz || !header) return false;
  const size_t optional = size_t{*header} + 24;  // past the signature and the file header
  return ReadLe(bytes, *header, 4) == kPe && ReadLe(bytes, size_t{*header} + 4, 2) == kAmd64 &&
         ReadLe(bytes, optional, 2) == kPe32Plus && ReadLe(bytes, optional + 68, 2) == kGui;
}

std::string HexLower(std::string_view bytes) {
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const char c : bytes) {
    const auto byte = static_cast<uint8_t>(c);
    hex += kHexDigits[byte >> 4];
    hex += kHexDigits[byte & 0x0F];
  }
  return hex;
}

std::optional<std::string> DecodeHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::string bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    const int high = HexValue(text[i]);
    const int low = HexValue(text[i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes += static_cast<char>(high * 16 + low);
  }
  return bytes;
}

bool EqualIgnoringAsciiCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  if (text.size() % 4 == 1) return std::nullopt;
  std::string bytes;
  uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    const int value = Base64Value(c);
    if (value < 0) return std::nullopt;
    bits = (bits << 6) | static_cast<uint32_t>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      bytes += static_cast<char>((bits >> count) & 0xFF);
    }
  }
  return bytes;
}

std::optional<RawSignature> SignatureFromBytes(std::string_view bytes) {
  RawSignature raw{};
  // A DER signature of P-256 is at most 72 bytes and never exactly 64 unless both integers
  // are unusually short; the strict parse below settles the rare overlap in DER's favour.
  if (bytes.size() >= 8 && bytes[0] == 0x30 && static_cast<uint8_t>(bytes[1]) == bytes.size() - 2) {
    size_t pos = 2;
    if (ReadDerInteger(bytes, pos, raw.data()) && ReadDerInteger(bytes, pos, raw.data() + 32) &&
        pos == bytes.size()) {
      return raw;
    }
  }
  if (bytes.size() != raw.size()) return std::nullopt;
  for (size_t i = 0; i < raw.size(); ++i) raw[i] = static_cast<uint8_t>(bytes[i]);
  return raw;
}

}  // namespace qn
