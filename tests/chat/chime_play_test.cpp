#include <windows.h>

#include <mmsystem.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "chat/chime.h"
#include "chat/chime_synth.h"
#include "support/test_files.h"

namespace qn {
namespace {

// The clock and the sound device, as plain functions the chime's hooks can point at.
ULONGLONG g_now = 0;
BOOL g_result = TRUE;
std::vector<std::string> g_calls;  // "play <first sample byte>" or "purge"

ULONGLONG WINAPI FakeClock() { return g_now; }
std::string Played(const uint8_t* image) {
  return "play " + std::to_string(image[kWavHeaderBytes + 200]);
}

BOOL WINAPI FakePlayer(LPCWSTR sound, HMODULE, DWORD flags) {
  const bool play = sound && flags == (SND_MEMORY | SND_ASYNC | SND_NODEFAULT);
  const auto* image = reinterpret_cast<const uint8_t*>(sound);
  g_calls.push_back(play ? Played(image) : !sound && flags == SND_PURGE ? "purge" : "?");
  return g_result;
}

void PlayAt(ULONGLONG tick) {
  g_now = tick;
  PlayChime();
}

// Answers 1.5 s apart get a chime every 3 s; a failing device is tried no more often, and
// an image is stopped before it is replaced or freed, since the device reads it as it plays.
TEST(ChimePlay, OneChimePerIntervalFromTheImageOfTheCurrentVolume) {
  const test::CapturedLog log;
  SetChimeHooks(&FakeClock, &FakePlayer);
  g_calls.clear();
  PlayChime();  // nothing built yet
  const std::string loud = Played(SynthesizeChime(100).data());
  const std::string quiet = Played(SynthesizeChime(10).data());
  BuildChime(100);
  for (const ULONGLONG tick : {1, 1500, 3001, 4500}) PlayAt(tick);
  BuildChime(10);
  g_result = FALSE;
  for (const ULONGLONG tick : {6001, 7000}) PlayAt(tick);
  FreeChime();
  EXPECT_EQ(g_calls, (std::vector<std::string>{loud, loud, "purge", quiet, "purge"}));
  EXPECT_EQ(log.Count("INFO  chime suppressed (rate limit)\r\n"), 3u);
  EXPECT_EQ(log.Count("WARN  PlaySound failed for the answer cue\r\n"), 1u);
  SetChimeHooks(nullptr, nullptr);
  g_result = TRUE;
}

}  // namespace
}  // namespace qn
