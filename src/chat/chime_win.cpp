#include <windows.h>

#include <mmsystem.h>

#include <cstdint>
#include <mutex>
#include <vector>

#include "chat/chime.h"
#include "chat/chime_synth.h"
#include "core/log.h"
#include "core/module_proc.h"

namespace qn {
namespace {

// winmm.dll on demand; without it the cue is skipped with the same warning as a failed play.
ChimePlayer SystemPlayer() {
  static const SystemFunction<ChimePlayer> play(L"winmm.dll", "PlaySoundW");
  return play ? play.get() : [](LPCWSTR, HMODULE, DWORD) -> BOOL { return FALSE; };
}

struct ChimeState {
  std::mutex mutex;
  std::vector<uint8_t> wav;
  uint64_t last_play_tick = 0;
  ChimeClock clock = &GetTickCount64;
  ChimePlayer player = SystemPlayer();
};

ChimeState& State() {
  static ChimeState state;
  return state;
}

// Asynchronous playback reads straight from our buffer, so it has to be stopped before the
// buffer can go. Called under the lock so that no play can start in between.
void StopPlayback(ChimeState& state) { state.player(nullptr, nullptr, SND_PURGE); }

}  // namespace

// In BuildChime and FreeChime the local vector outlives the lock guard, so the image swapped out
// is freed after the lock is released and a concurrent PlayChime never waits on the heap.
void BuildChime(int volume_pct) {
  std::vector<uint8_t> image = SynthesizeChime(volume_pct);
  ChimeState& state = State();
  std::lock_guard lock(state.mutex);
  if (!state.wav.empty()) StopPlayback(state);
  state.wav.swap(image);
}

void FreeChime() {
  std::vector<uint8_t> image;
  ChimeState& state = State();
  std::lock_guard lock(state.mutex);
  StopPlayback(state);
  state.wav.swap(image);
}

void PlayChime() {
  ChimeState& state = State();
  std::lock_guard lock(state.mutex);
  if (state.wav.empty()) return;
  const uint64_t now = state.clock();
  if (JudgeChime(state.last_play_tick, now) == ChimeVerdict::kSuppress) {
    Log(kLogInfo, L"chime suppressed (rate limit)");
    return;
  }
  // Counted before playing: a device that keeps failing is then tried once per interval,
  // not once per answer.
  state.last_play_tick = now;
  const auto* sound = reinterpret_cast<LPCWSTR>(state.wav.data());
  if (!state.player(sound, nullptr, SND_MEMORY | SND_ASYNC | SND_NODEFAULT)) {
    Log(kLogWarn, L"PlaySound failed for the answer cue");
  }
}

void SetChimeHooks(ChimeClock clock, ChimePlayer player) {
  ChimeState& state = State();
  std::lock_guard lock(state.mutex);
  state.clock = clock ? clock : &GetTickCount64;
  state.player = player ? player : SystemPlayer();
  state.last_play_tick = 0;
}

}  // namespace qn
