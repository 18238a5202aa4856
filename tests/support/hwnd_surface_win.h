#pragma once
// A drawer surface for machines without DirectComposition (Wine): the swap chain is the
// drawer window's own, so a presented frame can be read back from the screen.
#include <memory>
#include <vector>

#include "gfx/drawer_surface.h"

namespace qn::test {

// What the drawer presented, and a device lost on the way, which Wine never does itself.
struct SurfaceRecord {
  struct Presented {
    bool window_visible;
    float offset_y;
  };
  std::vector<Presented> presents;
  size_t lose_device_at = 0;  // the present, counted from 1, that finds the device removed
};

// The slide offset moves nothing: the window shows its whole swap chain.
std::unique_ptr<DrawerSurface> MakeHwndSurface(SurfaceRecord* record = nullptr);

}  // namespace qn::test
