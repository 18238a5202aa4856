#pragma once
// The short two-note sound that tells the player an answer has arrived. The image is built
// once per settings change and played from memory, so an answer never waits on the disk.
#include <windows.h>

namespace qn {

// Safe to call from any thread; replacing the image stops a chime still playing from it.
void BuildChime(int volume_pct);
// At most one chime per rate-limit interval; does nothing before BuildChime or after FreeChime.
void PlayChime();
void FreeChime();

// Shaped like GetTickCount64 and PlaySoundW, so that tests can run the rate limit on a clock
// of their own and count plays on machines without a sound device.
using ChimeClock = ULONGLONG(WINAPI*)();
using ChimePlayer = BOOL(WINAPI*)(LPCWSTR sound, HMODULE module, DWORD flags);

// Null restores the system's function. Ticks from different clocks do not compare, so this
// also forgets when the chime last played.
void SetChimeHooks(ChimeClock clock, ChimePlayer player);

}  // namespace qn
