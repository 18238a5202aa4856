// The updater's portable rules: version order, the texts of the update prompt, and the
// encodings a signed release arrives in.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <tuple>

#include "setup/updater_rules.h"
#include "support/program_image.h"

namespace qn {
namespace {

TEST(UpdaterRulesTest, VersionsCompareByUpToFourNumericComponents) {
  const std::tuple<const char*, const char*, int> cases[] = {
      {"0.1.10", "0.1.9", 1},  // numeric, not textual
      {"0.2", "0.1.7", 1},
      {"0.1.6", "0.1.7", -1},
      {"0.1.07", "0.1.7", 0},  // leading zeros count for nothing
      {"1.2", "1.2.0.0", 0},   // missing components are zeros
      {"", "0.0.1", -1},
      {"1.0-beta", "1.0", 0},         // anything after the digits is skipped
      {"v2", "1", -1},                // no leading digits reads as 0
      {"1.2.3.4.9", "1.2.3.4.1", 0},  // a fifth component is never read
      {"1.2.3.5.0", "1.2.3.4.9", 1},
      {"4294967296", "0", 0},   // 2^32 wraps to 0
      {"2147483648", "1", -1},  // and 2^31 is negative as a signed value
  };
  for (const auto& [a, b, expected] : cases) {
    SCOPED_TRACE(std::string(a) + " vs " + b);
    EXPECT_EQ(CompareVersions(a, b), expected);
    EXPECT_EQ(CompareVersions(b, a), -expected);
  }
}

// Whatever its checksum, only an x64 Windows program with a window may replace ours.
TEST(UpdaterRulesTest, OnlyAnX64WindowsProgramIsTakenForOne) {
  const std::string program = test::ProgramImage("");
  const auto with = [&](size_t at, char byte) { return std::string(program).replace(at, 1, 1, byte); };
  EXPECT_TRUE(IsX64WindowsProgram(program));
  for (const std::string& other : {with(0x45, '\x01'),          // another machine
                                   with(0x58 + 68, '\x03'),     // console
                                   with(0x59, '\x01'),          // PE32 (0x10B)
                                   with(0x3C, '\xF0'),          // header past the end
                                   program.substr(0, 0x9C), std::string("PK\x03\x04")}) {
    EXPECT_FALSE(IsX64WindowsProgram(other)) << other.size();
  }
}

TEST(UpdaterRulesTest, ThePromptNamesBothVersionsAndTheNotes) {
  EXPECT_EQ(UpdateQuestionText({true, "0.2.0", "", "", "Faster drawer.", false, ""}),
            L"A new version of Hintwick is available.\n\nYou have 0.1.7, the latest is 0.2.0."
            L"\n\nFaster drawer.\n\nDownload and install it now? Hintwick will restart.");
  EXPECT_EQ(UpdateQuestionText({true, "0.1.5", "", "", "", true, ""}),
            L"The published version of Hintwick is older than yours.\n\nYou have 0.1.7, the "
            L"published build is 0.1.5.\n\nDownload and install it now? Hintwick will restart.");
  EXPECT_EQ(DownloadProgressText("0.2.0", 3'355'443, 13'107'200),
            L"Downloading version 0.2.0: 3.2 MB of 12.5 MB");
  EXPECT_EQ(DownloadProgressText("0.2.0", 52'429, 0), L"Downloading version 0.2.0: 0.1 MB");
}

// Signed with openssl: r has its top bit set, so DER gives it 33 bytes with a leading zero.
constexpr char kDer[] =
    "MEUCIQD9+oqqdRMr1MeKDGEKeHO8hoQb8evVSlEIHp9vRsYo6gIgHC+"
    "jtRdEw476EMXnYGLTcTcbubQsqPw35MhWd8t51V8=";
constexpr char kRaw[] =
    "fdfa8aaa75132bd4c78a0c610a7873bc86841bf1ebd54a51081e9f6f46c628ea"
    "1c2fa3b51744c38efa10c5e76062d371371bb9b42ca8fc37e4c85677cb79d55f";

std::optional<std::string> SignatureHex(const std::string& bytes) {
  const std::optional<RawSignature> raw = SignatureFromBytes(bytes);
  if (!raw) return std::nullopt;
  return HexLower(std::string(raw->begin(), raw->end()));
}

// Whether a valid signature verifies is the Windows tests' part; here, what reaches the
// system's call from either encoding, and which malformed ones never do.
TEST(UpdaterRulesTest, SignaturesAreReadFromDerOrRawBytes) {
  const std::string der = DecodeBase64(kDer).value();
  const std::string raw = DecodeHex(kRaw).value();
  std::string short_s = der;  // s given as 31 bytes is padded back to 32
  short_s.erase(39, 1);
  short_s[1] = static_cast<char>(der[1] - 1);
  short_s[38] = 31;
  const std::tuple<const char*, std::string, std::optional<std::string>> cases[] = {
      {"DER", der, kRaw},
      {"raw", raw, kRaw},
      {"DER, short s", short_s, std::string(kRaw).replace(64, 2, "00")},
      {"63 raw bytes", raw.substr(0, 63), std::nullopt},
      {"DER and a trailing byte", der + '\0', std::nullopt},
      {"DER cut short", der.substr(0, der.size() - 1), std::nullopt},
      {"33-byte r without a zero lead", std::string(der).replace(4, 1, 1, '\x01'), std::nullopt},
  };
  for (const auto& [what, bytes, expected] : cases) {
    EXPECT_EQ(SignatureHex(bytes), expected) << what;
  }
  EXPECT_EQ(DecodeBase64("YWI"), "ab");  // padding is optional
  EXPECT_EQ(DecodeBase64("MEU CIQ"), std::nullopt);
  EXPECT_EQ(DecodeHex("0g"), std::nullopt);
  EXPECT_FALSE(EqualIgnoringAsciiCase("a@", "a`"));  // neighbours of the letter ranges
}

}  // namespace
}  // namespace qn
