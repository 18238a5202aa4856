#include <windows.h>

#include <mmsystem.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "chat/chime.h"
#include "chat/chime_synth.h"
#include "core/log.h"
#include "support/test_files.h"

namespace qn {
namespace {

constexpr DWORD kPlayFlags = SND_MEMORY | SND_ASYNC | SND_NODEFAULT;
constexpr char kSuppressed[] = "INFO  chime suppressed (rate limit)\r\n";
constexpr char kPlayFailed[] = "WARN  PlaySound failed for the answer cue\r\n";

// Stands in for the clock and the sound device. The hooks are plain function pointers, so
// they reach the fixture's instance through a global.
struct FakeSound {
  uint64_t now = 0;
  BOOL result = TRUE;
  std::vector<std::string> calls;  // "play", "purge" or "unexpected", in order
  std::vector<std::vector<uint8_t>> played;
};
FakeSound* g_fake = nullptr;

ULONGLONG WINAPI FakeClock() { return g_fake->now; }

// Copies the image at the moment of the call: the asynchronous player would read it later.
std::vector<uint8_t> CopyImage(LPCWSTR sound) {
  const auto* bytes = reinterpret_cast<const uint8_t*>(sound);
  uint32_t riff_size = 0;
  std::memcpy(&riff_size, bytes + 4, sizeof riff_size);
  return std::vector<uint8_t>(bytes, bytes + riff_size + 8);
}

BOOL WINAPI FakePlayer(LPCWSTR sound, HMODULE module, DWORD flags) {
  if (!sound && !module && flags == SND_PURGE) {
    g_fake->calls.push_back("purge");
  } else if (sound && !module && flags == kPlayFlags) {
    g_fake->calls.push_back("play");
    g_fake->played.push_back(CopyImage(sound));
  } else {
    g_fake->calls.push_back("unexpected");
  }
  return g_fake->result;
}

class ChimePlayTest : public ::testing::Test {
 protected:
  void SetUp() override {
    OpenLogAt(log_path_);
    g_fake = &fake_;
    SetChimeHooks(&FakeClock, &FakePlayer);
  }
  void TearDown() override {
    FreeChime();
    SetChimeHooks(nullptr, nullptr);
    g_fake = nullptr;
    CloseLog();
  }

  void PlayAt(uint64_t tick) {
    fake_.now = tick;
    PlayChime();
  }
  size_t Count(const std::string& what) const {
    return static_cast<size_t>(std::count(fake_.calls.begin(), fake_.calls.end(), what));
  }
  size_t LogCount(const std::string& line) const {
    const std::string text = test::ReadFileBytes(log_path_).value_or("");
    size_t count = 0;
    for (size_t at = text.find(line); at != std::string::npos; at = text.find(line, at + 1)) {
      ++count;
    }
    return count;
  }
  // A fresh start for table cases: no play yet, an empty log, no recorded calls.
  void Restart() {
    FreeChime();
    SetChimeHooks(&FakeClock, &FakePlayer);
    CloseLog();
    OpenLogAt(log_path_);
    fake_.calls.clear();
    fake_.played.clear();
  }

  test::TempDir dir_;
  std::wstring log_path_ = dir_.File(L"hintwick.log");
  FakeSound fake_;
};

TEST_F(ChimePlayTest, FirstPlayHandsTheBuiltImageToTheDeviceEvenEarlyInUptime) {
  BuildChime(40);
  PlayAt(1);
  ASSERT_EQ(fake_.calls, std::vector<std::string>{"play"});
  EXPECT_EQ(fake_.played[0], SynthesizeChime(40));
  EXPECT_EQ(LogCount(kSuppressed), 0u);
  EXPECT_EQ(LogCount(kPlayFailed), 0u);
}

TEST_F(ChimePlayTest, AnswersWithinThreeSecondsOfTheLastChimeAreSuppressed) {
  const struct {
    const char* what;
    std::vector<uint64_t> ticks;
    size_t plays;
  } cases[] = {
      {"2.9 s apart", {50000, 52900}, 1},
      {"3.0 s apart", {50000, 53000}, 2},
      // Measured from the last chime heard, not from the last answer.
      {"burst", {50000, 51500, 53000, 54500}, 2},
  };
  for (const auto& c : cases) {
    Restart();
    BuildChime(40);
    for (const uint64_t tick : c.ticks) PlayAt(tick);
    EXPECT_EQ(Count("play"), c.plays) << c.what;
    EXPECT_EQ(LogCount(kSuppressed), c.ticks.size() - c.plays) << c.what;
  }
}

TEST_F(ChimePlayTest, FailedPlayIsLoggedAndStillStartsTheInterval) {
  fake_.result = FALSE;
  BuildChime(40);
  PlayAt(50000);
  PlayAt(51000);
  EXPECT_EQ(Count("play"), 1u);
  EXPECT_EQ(LogCount(kPlayFailed), 1u);
  EXPECT_EQ(LogCount(kSuppressed), 1u);
  PlayAt(53000);
  EXPECT_EQ(Count("play"), 2u);
  EXPECT_EQ(LogCount(kPlayFailed), 2u);
}

TEST_F(ChimePlayTest, NothingPlaysWithoutAnImageAndTryingDoesNotStartTheInterval) {
  PlayAt(50000);
  EXPECT_TRUE(fake_.calls.empty());
  BuildChime(40);
  PlayAt(50100);
  FreeChime();
  PlayAt(60000);
  EXPECT_EQ(fake_.calls, (std::vector<std::string>{"play", "purge"}));
  EXPECT_EQ(LogCount(kSuppressed), 0u);
}

TEST_F(ChimePlayTest, RebuildStopsTheOldImageBeforeFreeingItAndPlaysTheNewVolume) {
  BuildChime(100);
  PlayAt(50000);
  BuildChime(10);
  PlayAt(53000);
  EXPECT_EQ(fake_.calls, (std::vector<std::string>{"play", "purge", "play"}));
  ASSERT_EQ(fake_.played.size(), 2u);
  EXPECT_EQ(fake_.played[0], SynthesizeChime(100));
  EXPECT_EQ(fake_.played[1], SynthesizeChime(10));
}

// The real PlaySoundW: under Wine without a sound device it may fail, which must only be
// logged. The rate limit then runs on GetTickCount64.
TEST_F(ChimePlayTest, SystemPlayerAndClockWorkWithOrWithoutASoundDevice) {
  SetChimeHooks(nullptr, nullptr);
  BuildChime(40);
  PlayChime();
  PlayChime();
  FreeChime();
  EXPECT_LE(LogCount(kPlayFailed), 1u);
  EXPECT_EQ(LogCount(kSuppressed), 1u);
  EXPECT_TRUE(fake_.calls.empty());
}

}  // namespace
}  // namespace qn
