#include "chat/chime_synth.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <string>

namespace qn {
namespace {

int16_t SampleAt(const std::vector<uint8_t>& image, size_t n) {
  const size_t at = kWavHeaderBytes + 2 * n;
  return static_cast<int16_t>(image.at(at) | image.at(at + 1) << 8);
}

std::vector<int16_t> Samples(const std::vector<uint8_t>& image) {
  std::vector<int16_t> samples;
  for (size_t n = 0; n < kChimeSampleCount; ++n) samples.push_back(SampleAt(image, n));
  return samples;
}

int PeakOf(const std::vector<int16_t>& samples, size_t from = 0) {
  int peak = 0;
  for (size_t n = from; n < samples.size(); ++n) peak = std::max(peak, std::abs(samples[n]));
  return peak;
}

// The chime as it would sound with the 784 Hz note alone, written out from the formula.
int FirstNoteOnly(size_t n, double gain) {
  const double t = static_cast<double>(n) / 44100.0;
  const double attack = t < 0.006 ? t / 0.006 : 1.0;
  return static_cast<int>(0.7 * std::sin(4926.017280828791 * t) * std::exp(-11.0 * t) * attack *
                          gain * 32767.0);
}

TEST(ChimeSynthTest, HeaderIsByteExactAtEveryVolume) {
  const std::string expected(
      "RIFF\x9C\x60\x00\x00"  // 24,732 = data + 36
      "WAVE"
      "fmt \x10\x00\x00\x00"   // format chunk of 16 bytes
      "\x01\x00\x01\x00"       // PCM, mono
      "\x44\xAC\x00\x00"       // 44,100 samples per second
      "\x88\x58\x01\x00"       // 88,200 bytes per second
      "\x02\x00\x10\x00"       // 2-byte blocks of 16 bits
      "data\x78\x60\x00\x00",  // 24,696 bytes of samples
      kWavHeaderBytes);
  for (const int volume : {0, 1, 40, 100}) {
    const std::vector<uint8_t> image = SynthesizeChime(volume);
    ASSERT_EQ(image.size(), 24740u) << volume;
    EXPECT_EQ(std::string(image.begin(), image.begin() + kWavHeaderBytes), expected) << volume;
  }
}

TEST(ChimeSynthTest, FirstNoteRisesAloneAndTheSecondEntersAfter55Milliseconds) {
  const std::vector<uint8_t> image = SynthesizeChime(100);
  // 0..264 span the 6 ms attack; 2425 is the last sample at or before 0.055 s.
  const struct {
    size_t n;
    bool second_note;
  } cases[] = {{0, false},    {1, false},    {100, false}, {264, false}, {1000, false},
               {2424, false}, {2425, false}, {2426, true}, {2430, true}};
  for (const auto& c : cases) {
    const int alone = FirstNoteOnly(c.n, 0.16);
    if (c.second_note) {
      // The second note begins with a step of about a hundred steps of quantisation.
      EXPECT_GT(std::abs(SampleAt(image, c.n) - alone), 50) << c.n;
    } else {
      EXPECT_EQ(SampleAt(image, c.n), alone) << c.n;
    }
  }
  EXPECT_EQ(SampleAt(image, 0), 0);  // the chime starts from silence
}

TEST(ChimeSynthTest, OutOfRangeVolumesClampToTheNearestEnd) {
  const struct {
    int volume;
    int same_as;
  } cases[] = {{101, 100}, {250, 100}, {INT_MAX, 100}, {-1, 0}, {-100, 0}, {INT_MIN, 0}};
  for (const auto& c : cases) {
    EXPECT_EQ(SynthesizeChime(c.volume), SynthesizeChime(c.same_as)) << c.volume;
  }
  const std::vector<uint8_t> silent = SynthesizeChime(0);
  ASSERT_EQ(silent.size(), kChimeImageBytes);
  EXPECT_TRUE(std::all_of(silent.begin() + kWavHeaderBytes, silent.end(),
                          [](uint8_t b) { return b == 0; }));
}

TEST(ChimeSynthTest, LoudnessFollowsTheVolumeAndStaysFarFromClipping) {
  const std::vector<int16_t> full = Samples(SynthesizeChime(100));
  const std::vector<int16_t> half = Samples(SynthesizeChime(50));
  const int peak = PeakOf(full);
  EXPECT_GT(peak, 32767 / 20);
  EXPECT_LT(peak, 32767 / 5);
  for (size_t n = 0; n < kChimeSampleCount; ++n) {
    ASSERT_LE(std::abs(2 * half[n] - full[n]), 2) << n;
  }
  // Decayed to a whisper by the end, so the image's hard stop does not click.
  EXPECT_LT(PeakOf(full, kChimeSampleCount - 100), peak / 10);
}

TEST(ChimeSynthTest, RateLimitLetsOneChimeThroughPerThreeSeconds) {
  const struct {
    uint64_t last;
    uint64_t now;
    ChimeVerdict verdict;
  } cases[] = {
      {0, 1, ChimeVerdict::kPlay},  // never played: early in the machine's uptime still plays
      {0, 2999, ChimeVerdict::kPlay},
      {10000, 10000, ChimeVerdict::kSuppress},
      {10000, 12900, ChimeVerdict::kSuppress},
      {10000, 12999, ChimeVerdict::kSuppress},
      {10000, 13000, ChimeVerdict::kPlay},
      {10000, 99999, ChimeVerdict::kPlay},
      {UINT64_MAX - 1000, UINT64_MAX, ChimeVerdict::kSuppress},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(JudgeChime(c.last, c.now), c.verdict) << c.last << " -> " << c.now;
  }
}

}  // namespace
}  // namespace qn
