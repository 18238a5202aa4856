#pragma once
// The font every window of the program writes its controls in: the system's own message font,
// at the window's DPI.
#include <windows.h>

#include "core/handles.h"

namespace qn {

// A length given in pixels at 96 DPI, at `dpi`.
inline int Scaled(int length, UINT dpi) {
  return MulDiv(length, static_cast<int>(dpi), USER_DEFAULT_SCREEN_DPI);
}

// Segoe UI at 12 pixels where the system will not say; `weight` 0 keeps the system's.
UniqueHfont MessageFont(UINT dpi, LONG weight = 0);

}  // namespace qn
