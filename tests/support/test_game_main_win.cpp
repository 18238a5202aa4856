// A stand-in game for the drawer tests: its own process (the drawer refuses to open over a
// window of its own process), one borderless window at the rectangle given on the command
// line, showing GamePixel, brought to the foreground. It runs until its window is closed.
#include <windows.h>

#include <cstdlib>
#include <vector>

#include "support/test_game.h"

namespace {

std::vector<uint32_t> g_pixels;
int g_width = 0;
int g_height = 0;

void Paint(HWND window) {
  PAINTSTRUCT paint;
  const HDC dc = BeginPaint(window, &paint);
  BITMAPINFO info = {};
  info.bmiHeader = {sizeof(BITMAPINFOHEADER), g_width, -g_height, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  SetDIBitsToDevice(dc, 0, 0, static_cast<DWORD>(g_width), static_cast<DWORD>(g_height), 0, 0, 0,
                    static_cast<UINT>(g_height), g_pixels.data(), &info, DIB_RGB_COLORS);
  EndPaint(window, &paint);
}

LRESULT CALLBACK GameProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_PAINT:
      Paint(window);
      return 0;
    case WM_ERASEBKGND:
      return 1;
    case WM_DESTROY:
      PostQuitMessage(0);
      return 0;
    default:
      return DefWindowProcW(window, message, wparam, lparam);
  }
}

void FillPicture() {
  g_pixels.resize(static_cast<size_t>(g_width) * static_cast<size_t>(g_height));
  for (int y = 0; y < g_height; ++y) {
    for (int x = 0; x < g_width; ++x) {
      const qn::test::Rgb c = qn::test::GamePixel(x, y);
      g_pixels[static_cast<size_t>(y) * static_cast<size_t>(g_width) + static_cast<size_t>(x)] =
          (uint32_t{c.r} << 16) | (uint32_t{c.g} << 8) | c.b;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  const HINSTANCE instance = GetModuleHandleW(nullptr);
  const int left = std::atoi(argv[1]), top = std::atoi(argv[2]);
  g_width = std::atoi(argv[3]);
  g_height = std::atoi(argv[4]);
  FillPicture();
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &GameProc;
  window_class.hInstance = instance;
  window_class.lpszClassName = L"HintwickTestGame";
  RegisterClassExW(&window_class);
  const HWND window = CreateWindowExW(0, L"HintwickTestGame", L"Hintwick test game",
                                      WS_POPUP | WS_VISIBLE, left, top, g_width, g_height,
                                      nullptr, nullptr, instance, nullptr);
  if (!window) return 3;
  SetForegroundWindow(window);
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) DispatchMessageW(&message);
  return 0;
}
