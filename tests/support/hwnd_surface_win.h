#pragma once
// A drawer surface for machines without DirectComposition (Wine): the swap chain is the
// drawer window's own, so a presented frame can be read back from the screen.
#include <memory>

#include "gfx/drawer_surface.h"

namespace qn::test {

// The slide offset moves nothing: the window shows its whole swap chain.
std::unique_ptr<DrawerSurface> MakeHwndSurface();

}  // namespace qn::test
