// The updater's portable rules: version order, the texts of the update prompt, and the
// encodings a signed release arrives in.
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "setup/updater_rules.h"

namespace qn {
namespace {

TEST(UpdaterRulesTest, VersionsCompareByUpToFourNumericComponents) {
  const struct {
    const char* a;
    const char* b;
    int expected;
  } cases[] = {
      {"0.1.10", "0.1.9", 1},  // numeric, not textual
      {"0.2", "0.1.7", 1},
      {"0.1.6", "0.1.7", -1},
      {"0.1.07", "0.1.7", 0},  // leading zeros count for nothing
      {"1.2", "1.2.0.0", 0},   // missing components are zeros
      {"1.", "1", 0},
      {"", "0.0.0", 0},
      {"", "0.0.1", -1},
      {"1.0-beta", "1.0", 0},  // anything after the digits is skipped
      {"2rc1", "2", 0},
      {"v2", "1", -1},  // no leading digits reads as 0
      {"1..2", "1.0.2", 0},
      {"1.2.3.4.5", "1.2.3.4", 0},  // a fifth component is never read
      {"1.2.3.4.9", "1.2.3.4.1", 0},
      {"1.2.3.5.0", "1.2.3.4.9", 1},
      {"4294967296", "0", 0},   // 2^32 wraps to 0
      {"2147483648", "1", -1},  // and 2^31 is negative as a signed value
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.a) + " vs " + c.b);
    EXPECT_EQ(CompareVersions(c.a, c.b), c.expected);
    EXPECT_EQ(CompareVersions(c.b, c.a), -c.expected);
  }
}

TEST(UpdaterRulesTest, ThePromptNamesBothVersionsAndTheNotes) {
  UpdateInfo info;
  info.available = true;
  info.version = "0.2.0";
  info.notes = "Faster drawer.";
  EXPECT_EQ(UpdateQuestionText(info),
            L"A new version of Hintwick is available.\n\nYou have 0.1.7, the latest is 0.2.0."
            L"\n\nFaster drawer.\n\nDownload and install it now? Hintwick will restart.");
  info.version = "0.1.5";
  info.notes.clear();
  info.rollback = true;
  EXPECT_EQ(UpdateQuestionText(info),
            L"The published version of Hintwick is older than yours.\n\nYou have 0.1.7, the "
            L"published build is 0.1.5.\n\nDownload and install it now? Hintwick will restart.");
  EXPECT_EQ(UpToDateText(), L"Hintwick is up to date (version 0.1.7).");
}

// A raw signature r || s that openssl wrote as DER: r is 32 bytes, s starts 03 BA.
constexpr char kDerSignature[] =
    "MEQCIGNyAgr0S25QI2ps/zQkkqPNYil4xuiOduR4zg+v7R1PAiADutCMiuE/tCQ07o2/"
    "dhH05Ve+jjMvvixSZSWpRnDDUA==";
constexpr char kRawSignature[] =
    "Y3ICCvRLblAjamz/NCSSo81iKXjG6I525HjOD6/tHU8DutCMiuE/tCQ07o2/dhH05Ve+jjMvvixSZSWpRnDDUA==";
// r has its top bit set, so DER gives it 33 bytes with a leading zero.
constexpr char kDerSignatureLongR[] =
    "MEUCIQD9+oqqdRMr1MeKDGEKeHO8hoQb8evVSlEIHp9vRsYo6gIgHC+"
    "jtRdEw476EMXnYGLTcTcbubQsqPw35MhWd8t51V8=";
constexpr char kRawOfLongR[] =
    "fdfa8aaa75132bd4c78a0c610a7873bc86841bf1ebd54a51081e9f6f46c628ea"
    "1c2fa3b51744c38efa10c5e76062d371371bb9b42ca8fc37e4c85677cb79d55f";

std::optional<std::string> SignatureHex(const std::string& bytes) {
  const std::optional<RawSignature> raw = SignatureFromBytes(bytes);
  if (!raw) return std::nullopt;
  return HexLower(std::string(raw->begin(), raw->end()));
}

TEST(UpdaterRulesTest, SignaturesAreReadFromDerOrRawBytes) {
  const std::string raw = DecodeBase64(kRawSignature).value();
  const std::string der = DecodeBase64(kDerSignature).value();
  EXPECT_EQ(SignatureHex(der), HexLower(raw));
  EXPECT_EQ(SignatureHex(raw), HexLower(raw));
  EXPECT_EQ(SignatureHex(DecodeBase64(kDerSignatureLongR).value()), kRawOfLongR);

  std::string short_r = der;  // r given as 31 bytes is padded back to 32
  short_r.erase(4, 1);
  short_r[1] = static_cast<char>(short_r[1] - 1);
  short_r[3] = 31;
  EXPECT_EQ(SignatureHex(short_r), "00" + HexLower(raw).substr(2));

  const struct {
    const char* what;
    std::string bytes;
  } refused[] = {
      {"63 raw bytes", raw.substr(0, 63)},
      {"DER with a trailing byte", der + '\0'},
      {"DER cut short", der.substr(0, der.size() - 1)},
      {"33-byte integer without a zero lead",
       DecodeBase64(kDerSignatureLongR).value().replace(4, 1, 1, '\x01')},
      {"empty", ""},
  };
  for (const auto& c : refused) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(SignatureHex(c.bytes), std::nullopt);
  }
}

TEST(UpdaterRulesTest, EncodingsDecodeStrictly) {
  EXPECT_EQ(DecodeBase64("YWJj"), "abc");
  EXPECT_EQ(DecodeBase64("YWI="), "ab");
  EXPECT_EQ(DecodeBase64("YWI"), "ab");
  EXPECT_EQ(DecodeBase64(""), "");
  EXPECT_EQ(DecodeBase64("YW Jj"), std::nullopt);
  EXPECT_EQ(DecodeBase64("YWJjZ"), std::nullopt);
  EXPECT_EQ(DecodeHex("00fFa0"), std::string("\x00\xff\xa0", 3));
  EXPECT_EQ(DecodeHex("abc"), std::nullopt);
  EXPECT_EQ(DecodeHex("0g"), std::nullopt);
  EXPECT_TRUE(EqualIgnoringAsciiCase("ABCdef09", "abcDEF09"));
  EXPECT_FALSE(EqualIgnoringAsciiCase("abc", "abcd"));
  EXPECT_FALSE(EqualIgnoringAsciiCase("a@", "a`"));  // neighbours of the letter ranges
}

}  // namespace
}  // namespace qn
