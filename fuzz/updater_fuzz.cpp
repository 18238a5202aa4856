// Arbitrary bytes through the updater's manifest, version order and signature encodings, under
// ASan/UBSan, with the properties no table can sweep.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "fuzz_support.h"
#include "setup/updater_rules.h"

namespace {

// Reflexive and antisymmetric for any pair, and transitive through a third version.
void CheckVersionOrder(std::string_view a, std::string_view b, std::string_view c) {
  const int ab = qn::CompareVersions(a, b);
  FUZZ_CHECK(ab >= -1 && ab <= 1);
  FUZZ_CHECK(qn::CompareVersions(a, a) == 0);
  FUZZ_CHECK(qn::CompareVersions(b, a) == -ab);
  const int bc = qn::CompareVersions(b, c);
  if (ab == bc && ab != 0) FUZZ_CHECK(qn::CompareVersions(a, c) == ab);
  if (ab == 0) FUZZ_CHECK(qn::CompareVersions(a, c) == bc);
}

void CheckManifest(std::string_view body) {
  qn::ManifestVerdict verdict = qn::ManifestVerdict::kNothing;
  const qn::UpdateInfo info = qn::ReadManifest(true, 200, body, verdict);
  FUZZ_CHECK(info.available == (verdict == qn::ManifestVerdict::kOffered));
  if (info.available) {
    FUZZ_CHECK(!info.url.empty() && !info.sha256.empty() && !info.version.empty());
    FUZZ_CHECK(info.version != qn::kProductVersion);
    FUZZ_CHECK(info.rollback == (qn::CompareVersions(info.version, qn::kProductVersion) < 0));
  }
  qn::ReadManifest(true, 404, body, verdict);
  FUZZ_CHECK(verdict == qn::ManifestVerdict::kNothing);
}

void CheckEncodings(std::string_view bytes) {
  FUZZ_CHECK(qn::DecodeHex(qn::HexLower(bytes)) == std::string(bytes));
  const std::optional<std::string> decoded = qn::DecodeBase64(bytes);
  if (decoded) FUZZ_CHECK(decoded->size() <= bytes.size());
  qn::SignatureFromBytes(bytes);
  if (decoded) qn::SignatureFromBytes(*decoded);
}

std::string_view NextLine(std::string_view& rest) {
  const size_t end = std::min(rest.find('\n'), rest.size());
  const std::string_view line = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return line;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const ExactCopy copy(std::string_view(reinterpret_cast<const char*>(data), size));
  const std::string_view text = copy.view();
  CheckManifest(text);
  CheckEncodings(text);
  // Three versions, cut at the input's first two line breaks.
  std::string_view rest = text;
  const ExactCopy a(NextLine(rest));
  const ExactCopy b(NextLine(rest));
  const ExactCopy c(rest);
  CheckVersionOrder(a.view(), b.view(), c.view());
  return 0;
}
