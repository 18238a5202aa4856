// Runs the preview tool on a made-up game scene and checks what a player would see.
#include <wincodec.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "../../tests/chat/offscreen_target_win.h"
#include "support/test_files.h"

namespace qn {
namespace {

constexpr uint32_t kWidth = 1280, kHeight = 720;

double Luma(uint32_t p) { return 0.3 * (p >> 16 & 255) + 0.59 * (p >> 8 & 255) + 0.11 * (p & 255); }

// A sky fading into striped hills: colourful, with hard edges for the blur to smooth.
std::vector<uint32_t> Scene() {
  std::vector<uint32_t> pixels(size_t{kWidth} * kHeight);
  for (size_t i = 0; i < pixels.size(); ++i) {
    const size_t x = i % kWidth, y = i / kWidth;
    const uint32_t sky = 0xFFF03050u + static_cast<uint32_t>(y * 150 / kHeight << 8);
    const bool hill = y > kHeight * (0.55 + 0.06 * std::sin(x / 140.0));
    pixels[i] = !hill ? sky : (y / 12) % 2 ? 0xFF1A7F33u : 0xFFEEEEE6u;
  }
  return pixels;
}

// The tool writes 8-bit BGRA, which the decoder hands back as it is.
std::vector<uint32_t> LoadPng(const std::wstring& path) {
  ComPtr<IWICImagingFactory> wic;
  ComPtr<IWICBitmapDecoder> decoder;
  ComPtr<IWICBitmapFrameDecode> frame;
  std::vector<uint32_t> pixels(size_t{kWidth} * kHeight);
  UINT width = 0, height = 0;
  EXPECT_TRUE(
      SUCCEEDED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                 IID_PPV_ARGS(wic.put()))) &&
      SUCCEEDED(wic->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                               WICDecodeMetadataCacheOnDemand, decoder.put())) &&
      SUCCEEDED(decoder->GetFrame(0, frame.put())) && SUCCEEDED(frame->GetSize(&width, &height)) &&
      width == kWidth && height == kHeight &&
      SUCCEEDED(frame->CopyPixels(nullptr, kWidth * 4, kWidth * 4 * kHeight,
                                  reinterpret_cast<BYTE*>(pixels.data()))));
  return pixels;
}

// Above the drawer the game is untouched; inside it the scene is darkened and smooth, with
// the conversation's text bright on top of it.
TEST(DrawerPreview, DrawsTheChatOverTheBlurredBottomOfTheGame) {
  const ComApartment com(COINIT_MULTITHREADED);
  const std::vector<uint32_t> scene = Scene();
  const std::wstring scene_png = test::NextToProgram(L"preview_scene.png"),
                     chat = test::NextToProgram(L"preview_chat.txt");
  ASSERT_TRUE(test::WritePng(scene_png, kWidth, kHeight, scene));
  test::WriteFileBytes(
      chat, "Q: Where is the key?\nA: Under the **third lantern** on the pier.\nN: Noted\n");
  const struct {  // drawer_top: 35% of 720; 220 * 1.5 at 144 DPI

    const wchar_t *arguments, *output;
    uint32_t drawer_top;
  } cases[] = {{L"--height 35 --blur 40", L"preview_96dpi.png", 468},
               {L"--height 20 --dpi 144 --hdr", L"preview_144dpi_hdr.png", 390}};
  for (const auto& c : cases) {
    const std::wstring output = test::NextToProgram(c.output);
    const test::ProcessResult run = test::RunProcess(
        test::NextToProgram(L"drawer-preview.exe"),
        L"\"" + scene_png + L"\" \"" + output + L"\" --chat \"" + chat + L"\" " + c.arguments,
        120000);
    ASSERT_EQ(run.exit_code, 0u) << c.arguments;
    const std::vector<uint32_t> out = LoadPng(output);
    EXPECT_TRUE(std::equal(scene.begin(), scene.begin() + c.drawer_top * kWidth, out.begin()));
    double scene_luma = 0, drawer_luma = 0;
    int bright = 0;
    for (size_t i = size_t{c.drawer_top} * kWidth; i < out.size(); ++i) {
      scene_luma += Luma(scene[i]);
      drawer_luma += Luma(out[i]);
      bright += Luma(out[i]) > 200;
    }
    EXPECT_LT(drawer_luma, 0.7 * scene_luma);
    EXPECT_GT(bright, 200) << "no text";
  }
}

}  // namespace
}  // namespace qn
