#include "chat/chime_synth.h"

#include <algorithm>
#include <cmath>

namespace qn {
namespace {

constexpr double kAttackSeconds = 0.006;
constexpr double kDecayPerSecond = 11.0;
// The loudest chime peaks well below full scale: it plays over a game's own sound.
constexpr double kFullVolumeGain = 0.16;

constexpr double kFirstNoteLevel = 0.7;
constexpr double kFirstNoteRadPerSecond = 4926.017280828791;  // 784 Hz
constexpr double kSecondNoteLevel = 0.45;
constexpr double kSecondNoteRadPerSecond = 7380.857780343853;  // 1174.7 Hz
constexpr double kSecondNoteDelaySeconds = 0.055;

constexpr uint16_t kPcmFormat = 1;
constexpr uint16_t kChannels = 1;
constexpr uint16_t kBytesPerSample = 2;

void PutTag(std::vector<uint8_t>& out, const char (&tag)[5]) {
  out.insert(out.end(), tag, tag + 4);
}

void PutU16(std::vector<uint8_t>& out, uint16_t value) {
  out.push_back(static_cast<uint8_t>(value));
  out.push_back(static_cast<uint8_t>(value >> 8));
}

void PutU32(std::vector<uint8_t>& out, uint32_t value) {
  PutU16(out, static_cast<uint16_t>(value));
  PutU16(out, static_cast<uint16_t>(value >> 16));
}

void PutHeader(std::vector<uint8_t>& out) {
  constexpr auto data_bytes = static_cast<uint32_t>(kChimeSampleCount * kBytesPerSample);
  PutTag(out, "RIFF");
  PutU32(out, data_bytes + 36);
  PutTag(out, "WAVE");
  PutTag(out, "fmt ");
  PutU32(out, 16);
  PutU16(out, kPcmFormat);
  PutU16(out, kChannels);
  PutU32(out, kChimeSampleRate);
  PutU32(out, kChimeSampleRate * kChannels * kBytesPerSample);
  PutU16(out, static_cast<uint16_t>(kChannels * kBytesPerSample));
  PutU16(out, static_cast<uint16_t>(kBytesPerSample * 8));
  PutTag(out, "data");
  PutU32(out, data_bytes);
}

// The second note enters with a step rather than its own attack; the click is part of the
// sound and was kept on purpose.
int16_t ChimeSample(size_t n, double gain) {
  const double t = static_cast<double>(n) / kChimeSampleRate;
  const double decay = std::exp(-kDecayPerSecond * t);
  const double attack = t < kAttackSeconds ? t / kAttackSeconds : 1.0;
  const double first = kFirstNoteLevel * std::sin(kFirstNoteRadPerSecond * t);
  const double second =
      t > kSecondNoteDelaySeconds
          ? kSecondNoteLevel * std::sin((t - kSecondNoteDelaySeconds) * kSecondNoteRadPerSecond)
          : 0.0;
  const double s = (first + second) * decay * attack * gain;
  return static_cast<int16_t>(std::clamp(s, -1.0, 1.0) * 32767.0);
}

}  // namespace

std::vector<uint8_t> SynthesizeChime(int volume_pct) {
  const double gain = std::clamp(volume_pct, 0, 100) / 100.0 * kFullVolumeGain;
  std::vector<uint8_t> image;
  image.reserve(kChimeImageBytes);
  PutHeader(image);
  for (size_t n = 0; n < kChimeSampleCount; ++n) {
    PutU16(image, static_cast<uint16_t>(ChimeSample(n, gain)));
  }
  return image;
}

ChimeVerdict JudgeChime(uint64_t last_play_tick, uint64_t now) {
  if (last_play_tick != 0 && now - last_play_tick < kChimeMinIntervalMs) {
    return ChimeVerdict::kSuppress;
  }
  return ChimeVerdict::kPlay;
}

}  // namespace qn
