#pragma once
// The answer chime as sound data, and the rule that keeps a burst of answers to one chime.
// Nothing here touches the sound device, so all of it runs natively under the sanitizers.
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qn {

inline constexpr uint32_t kChimeSampleRate = 44100;
inline constexpr size_t kChimeSampleCount = 12348;  // 0.28 s
inline constexpr size_t kWavHeaderBytes = 44;
inline constexpr size_t kChimeImageBytes = kWavHeaderBytes + 2 * kChimeSampleCount;

// Answers that finish closer together than this share one chime.
inline constexpr uint64_t kChimeMinIntervalMs = 3000;

// The complete 16-bit mono PCM WAV file for a volume in percent; out-of-range volumes are
// clamped, and 0 still yields a full image of silence so that playing it needs no special case.
std::vector<uint8_t> SynthesizeChime(int volume_pct);

enum class ChimeVerdict { kPlay, kSuppress };

// last_play_tick is 0 when nothing has played yet.
ChimeVerdict JudgeChime(uint64_t last_play_tick, uint64_t now);

}  // namespace qn
