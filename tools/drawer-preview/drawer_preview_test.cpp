// Runs the preview tool on a made-up game scene and checks what a player would see.
#include <wincodec.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "../../tests/chat/offscreen_target_win.h"
#include "core/handles.h"

namespace qn {
namespace {

struct Image {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint32_t> pixels;  // BGRA
  uint32_t At(uint32_t x, uint32_t y) const { return pixels[size_t{y} * width + x]; }
};

std::wstring NextToProgram(const std::wstring& name) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring folder = path;
  return folder.substr(0, folder.find_last_of(L"\\/") + 1) + name;
}

uint32_t Bgra(double r, double g, double b) {
  const auto c = [](double v) {
    return static_cast<uint32_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255));
  };
  return 0xFF000000u | c(r) << 16 | c(g) << 8 | c(b);
}

// Dusk sky, a sun, rolling hills and a striped road: colourful, with hard edges.
Image Scene(uint32_t width, uint32_t height) {
  Image image{width, height, std::vector<uint32_t>(size_t{width} * height)};
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      const double u = double(x) / width, v = double(y) / height;
      const double hill = 0.55 + 0.06 * std::sin(u * 9) + 0.03 * std::sin(u * 23);
      uint32_t pixel = Bgra(0.95 - 0.6 * v, 0.45 + 0.2 * v, 0.35 + 0.5 * v);
      if (std::hypot(u - 0.7, v - 0.3) < 0.08) pixel = Bgra(1, 0.85, 0.3);
      if (v > hill) pixel = Bgra(0.1, 0.5 - 0.3 * (v - hill), 0.2);
      if (v > 0.75 && std::abs(u - 0.5) < 0.1 + (v - 0.75)) {
        pixel = (y / 12) % 2 ? Bgra(0.2, 0.2, 0.22) : Bgra(0.95, 0.95, 0.9);
      }
      image.pixels[size_t{y} * width + x] = pixel;
    }
  }
  return image;
}

ComPtr<IWICImagingFactory> Wic() {
  ComPtr<IWICImagingFactory> wic;
  CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(wic.put()));
  return wic;
}

Image Load(const std::wstring& path) {
  const auto wic = Wic();
  ComPtr<IWICBitmapDecoder> decoder;
  ComPtr<IWICBitmapFrameDecode> frame;
  ComPtr<IWICFormatConverter> converter;
  Image image;
  if (!wic ||
      FAILED(wic->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                            WICDecodeMetadataCacheOnDemand, decoder.put())) ||
      FAILED(decoder->GetFrame(0, frame.put())) ||
      FAILED(wic->CreateFormatConverter(converter.put())) ||
      FAILED(converter->Initialize(frame.get(), GUID_WICPixelFormat32bppBGRA,
                                   WICBitmapDitherTypeNone, nullptr, 0,
                                   WICBitmapPaletteTypeCustom)) ||
      FAILED(converter->GetSize(&image.width, &image.height))) {
    return {};
  }
  image.pixels.resize(size_t{image.width} * image.height);
  converter->CopyPixels(nullptr, image.width * 4, image.width * 4 * image.height,
                        reinterpret_cast<BYTE*>(image.pixels.data()));
  return image;
}

DWORD RunTool(std::wstring arguments) {
  std::wstring command = L"\"" + NextToProgram(L"drawer-preview.exe") + L"\" " + arguments;
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  PROCESS_INFORMATION process = {};
  if (!CreateProcessW(nullptr, command.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                      &startup, &process)) {
    return GetLastError();
  }
  const UniqueKernelHandle owned_process(process.hProcess), owned_thread(process.hThread);
  DWORD code = 1;
  WaitForSingleObject(process.hProcess, 120000);
  GetExitCodeProcess(process.hProcess, &code);
  return code;
}

double Luma(uint32_t p) {
  return 0.3 * ((p >> 16) & 255) + 0.59 * ((p >> 8) & 255) + 0.11 * (p & 255);
}

class DrawerPreview : public testing::Test {
 protected:
  void SetUp() override { CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
  void TearDown() override { CoUninitialize(); }
};

// Above the drawer the game is untouched; inside it the scene is darkened and smooth,
// with the conversation's text bright on top of it.
TEST_F(DrawerPreview, DrawsTheChatOverTheBlurredBottomOfTheGame) {
  const Image scene = Scene(1280, 720);
  ASSERT_TRUE(
      test::WritePng(NextToProgram(L"preview_scene.png"), scene.width, scene.height, scene.pixels));
  std::ofstream(std::filesystem::path(NextToProgram(L"preview_chat.txt")))
      << "Q: Where is the lighthouse key?\n"
         "A: Under the **third lantern** on the pier, past the striped road.\n"
         "N: Noted \xE2\x80\x94 reached the harbour\n";
  const struct {
    const wchar_t* arguments;
    const wchar_t* output;
    uint32_t drawer_top;  // 35% of 720; 220 * 1.5 at 144 DPI
  } cases[] = {{L"--height 35", L"preview_96dpi.png", 468},
               {L"--height 20 --dpi 144 --hdr", L"preview_144dpi_hdr.png", 390}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.output);
    const std::wstring output = NextToProgram(c.output);
    ASSERT_EQ(RunTool(L"\"" + NextToProgram(L"preview_scene.png") + L"\" \"" + output +
                      L"\" --chat \"" + NextToProgram(L"preview_chat.txt") + L"\" " + c.arguments),
              0u);
    const Image out = Load(output);
    ASSERT_EQ(out.width, scene.width);
    ASSERT_EQ(out.height, scene.height);
    for (uint32_t x = 0; x < out.width; x += 7) {
      ASSERT_EQ(out.At(x, c.drawer_top - 1), scene.At(x, c.drawer_top - 1)) << x;
    }
    double scene_luma = 0, drawer_luma = 0;
    int bright = 0;
    for (uint32_t y = c.drawer_top; y < out.height; ++y) {
      for (uint32_t x = 0; x < out.width; ++x) {
        scene_luma += Luma(scene.At(x, y));
        drawer_luma += Luma(out.At(x, y));
        bright += Luma(out.At(x, y)) > 200;
      }
    }
    EXPECT_LT(drawer_luma, 0.7 * scene_luma);
    EXPECT_GT(bright, 200) << "no text";
    EXPECT_NE(out.At(640, c.drawer_top), scene.At(640, c.drawer_top));
  }
}

}  // namespace
}  // namespace qn
