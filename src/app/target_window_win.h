#pragma once
// What the drawer control asks the system about a window it might open over. Each answer is
// a value; the decisions made from them live in drawer_target.h.
#include <windows.h>

#include <string>

#include "app/drawer_target.h"

namespace qn {

// Empty when the process cannot be opened, as for some protected system processes.
std::wstring ExecutablePathOf(HWND window);
std::wstring WindowTitle(HWND window);
bool BelongsToThisProcess(HWND window);

// The window's rectangle, the one read cheap enough for every tick.
ScreenRect WindowRectOf(HWND window);
// A handful of reads from the window manager: the rectangle, the frame, the monitor, scales.
WindowPlace MeasureWindow(HWND window);
// Whether `upper` lies above `lower` in the order windows are stacked.
bool IsAbove(HWND upper, HWND lower);

// The shell's notification state; false also when it cannot be read.
bool ShellReportsD3dFullscreen();
// Whether what the player types into the window's process escapes a low-level hook.
bool KeysHiddenFromHookIn(HWND window);

}  // namespace qn
