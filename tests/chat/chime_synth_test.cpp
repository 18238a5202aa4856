#include "chat/chime_synth.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <string>
#include <utility>

namespace qn {
namespace {

int16_t SampleAt(const std::vector<uint8_t>& image, size_t n) {
  return static_cast<int16_t>(image.at(kWavHeaderBytes + 2 * n) |
                              image.at(kWavHeaderBytes + 2 * n + 1) << 8);
}

// A player rejects an image whose header is off by a byte, so it is checked whole.
TEST(ChimeSynth, HeaderIsByteExactAndLoudnessFollowsTheClampedVolume) {
  const std::string header(
      "RIFF\x9C\x60\x00\x00WAVEfmt \x10\x00\x00\x00\x01\x00\x01\x00\x44\xAC\x00\x00"
      "\x88\x58\x01\x00\x02\x00\x10\x00"
      "data\x78\x60\x00\x00",
      kWavHeaderBytes);
  for (const int volume : {INT_MIN, 0, 40, 100, INT_MAX}) {
    const std::vector<uint8_t> image = SynthesizeChime(volume);
    ASSERT_EQ(image.size(), 24740u) << volume;
    EXPECT_EQ(std::string(image.begin(), image.begin() + kWavHeaderBytes), header) << volume;
    EXPECT_EQ(image, SynthesizeChime(std::clamp(volume, 0, 100))) << volume;
  }
  const std::vector<uint8_t> silent = SynthesizeChime(0);
  EXPECT_TRUE(
      std::all_of(silent.begin() + kWavHeaderBytes, silent.end(), [](uint8_t b) { return !b; }));
  // Loudness follows the volume, and the sound fades in and out.
  const std::vector<uint8_t> full = SynthesizeChime(100), half = SynthesizeChime(50);
  int peak = 0, tail = 0;
  for (size_t n = 0; n < kChimeSampleCount; ++n) {
    ASSERT_LE(std::abs(2 * SampleAt(half, n) - SampleAt(full, n)), 2) << n;
    peak = std::max(peak, std::abs(SampleAt(full, n)));
    if (n + 100 >= kChimeSampleCount) tail = std::max(tail, std::abs(SampleAt(full, n)));
  }
  EXPECT_GT(peak, 32767 / 20);
  EXPECT_LT(peak, 32767 / 5) << "far from clipping";
  EXPECT_LT(tail, peak / 10) << "the hard stop of the image would click";
  // The sound itself: silence at the start, the first note alone until 55 ms, then both.
  const std::pair<size_t, int> pinned[] = {{0, 0}, {2300, -1329}, {2500, 549}, {4000, 550}};
  for (const auto& [n, sample] : pinned) EXPECT_NEAR(SampleAt(full, n), sample, 1) << n;
}

// The first chime always plays; the next only once 3 s have passed.
TEST(ChimeSynth, AnswersWithinTheIntervalShareOneChime) {
  EXPECT_EQ(JudgeChime(0, 1), ChimeVerdict::kPlay);
  EXPECT_EQ(JudgeChime(1, 3000), ChimeVerdict::kSuppress);
  EXPECT_EQ(JudgeChime(1, 3001), ChimeVerdict::kPlay);
}

}  // namespace
}  // namespace qn
