#pragma once
// A frame source for machines without window capture (Wine): the window's picture on the
// screen when the capture starts, for a stand-in game whose picture does not change.
#include <windows.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "gfx/frame_source.h"

namespace qn::test {

// Frames are B8G8R8A8 textures of the whole window (its GetWindowRect area), opaque; the
// throttle holds back copies as the capture does, the divisor is ignored.
std::unique_ptr<FrameSource> MakeGdiFrameSource();

// What the screen shows in `area` (screen pixels), as top-down opaque BGRA rows; empty when
// GDI fails. Under Wine on Xvfb this includes what Direct3D presented to a window.
std::vector<uint32_t> ReadScreen(const RECT& area);

}  // namespace qn::test
