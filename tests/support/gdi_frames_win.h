#pragma once
// A frame source for machines without window capture (Wine): the window's picture on the
// screen when the capture starts, for a stand-in game whose picture does not change.
#include <windows.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "gfx/frame_source.h"

namespace qn::test {

// How often the stand-in game presents: never after its first frame (0, a still game), or
// `hz` times a second by `now_ms` (GetTickCount64 when empty), each frame the same picture.
struct StandInGame {
  int hz = 0;
  std::function<uint64_t()> now_ms;
};

// Frames are B8G8R8A8 textures of the whole window (its GetWindowRect area), opaque, copied
// up once per frame the game presents; the throttle holds back frames as the capture does,
// the divisor is ignored.
std::unique_ptr<FrameSource> MakeGdiFrameSource(StandInGame game = {});

// What the screen shows in `area` (screen pixels), as top-down opaque BGRA rows; empty when
// GDI fails. Under Wine on Xvfb this includes what Direct3D presented to a window.
std::vector<uint32_t> ReadScreen(const RECT& area);

}  // namespace qn::test
