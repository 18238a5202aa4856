// Shows how the drawer would look over a game without running one: the bottom of a
// screenshot goes through the real backdrop renderer, the real chat view is drawn over it,
// and the result is written as a PNG.
//
// drawer-preview SCREENSHOT OUT.png [--height PCT] [--blur PCT] [--dpi DPI] [--hdr] [--chat FILE]
// The chat file holds lines "Q: question", "A: answer" and "N: notice", in UTF-8.
#include <d2d1_1.h>
#include <d3d11.h>
#include <dwrite.h>
#include <shellapi.h>
#include <wincodec.h>
#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "chat/chat_view.h"
#include "core/handles.h"
#include "core/utf.h"
#include "gfx/drawer_geometry.h"
#include "gfx/drawer_window.h"
#include "gfx/renderer.h"

namespace qn {
namespace {

struct Options {
  std::wstring screenshot;
  std::wstring output;
  std::wstring chat;
  double height_pct = 33;
  double blur_pct = 100;  // the settings' blur strength; 0 only dims
  unsigned dpi = 96;
  bool hdr = false;
};

struct Image {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint32_t> pixels;  // premultiplied BGRA
};

bool ParseOptions(int argc, wchar_t** argv, Options& options) {
  if (argc < 3) return false;
  options.screenshot = argv[1];
  options.output = argv[2];
  for (int i = 3; i < argc; ++i) {
    const std::wstring arg = argv[i];
    const bool has_value = i + 1 < argc;
    if (arg == L"--hdr") {
      options.hdr = true;
    } else if (arg == L"--height" && has_value) {
      options.height_pct = std::clamp(_wtof(argv[++i]), 20.0, 50.0);
    } else if (arg == L"--blur" && has_value) {
      options.blur_pct = std::clamp(_wtof(argv[++i]), 0.0, 100.0);
    } else if (arg == L"--dpi" && has_value) {
      options.dpi = static_cast<unsigned>(std::clamp(_wtoi(argv[++i]), 96, 480));
    } else if (arg == L"--chat" && has_value) {
      options.chat = argv[++i];
    } else {
      return false;
    }
  }
  return true;
}

ComPtr<IWICImagingFactory> Wic() {
  ComPtr<IWICImagingFactory> wic;
  CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(wic.put()));
  return wic;
}

bool LoadImage(const std::wstring& path, Image& image) {
  const auto wic = Wic();
  ComPtr<IWICBitmapDecoder> decoder;
  ComPtr<IWICBitmapFrameDecode> frame;
  ComPtr<IWICFormatConverter> converter;
  if (!wic ||
      FAILED(wic->CreateDecoderFromFilename(path.c_str(), nullptr, GENERIC_READ,
                                            WICDecodeMetadataCacheOnDemand, decoder.put())) ||
      FAILED(decoder->GetFrame(0, frame.put())) ||
      FAILED(wic->CreateFormatConverter(converter.put())) ||
      FAILED(converter->Initialize(frame.get(), GUID_WICPixelFormat32bppPBGRA,
                                   WICBitmapDitherTypeNone, nullptr, 0,
                                   WICBitmapPaletteTypeCustom)) ||
      FAILED(converter->GetSize(&image.width, &image.height))) {
    return false;
  }
  image.pixels.resize(size_t{image.width} * image.height);
  const UINT stride = image.width * 4;
  return SUCCEEDED(converter->CopyPixels(nullptr, stride, stride * image.height,
                                         reinterpret_cast<BYTE*>(image.pixels.data())));
}

bool SavePng(const std::wstring& path, const Image& image) {
  const auto wic = Wic();
  ComPtr<IWICStream> stream;
  ComPtr<IWICBitmapEncoder> encoder;
  ComPtr<IWICBitmapFrameEncode> frame;
  WICPixelFormatGUID format = GUID_WICPixelFormat32bppBGRA;
  const UINT stride = image.width * 4;
  auto* bytes = reinterpret_cast<BYTE*>(const_cast<uint32_t*>(image.pixels.data()));
  return wic && SUCCEEDED(wic->CreateStream(stream.put())) &&
         SUCCEEDED(stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE)) &&
         SUCCEEDED(wic->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.put())) &&
         SUCCEEDED(encoder->Initialize(stream.get(), WICBitmapEncoderNoCache)) &&
         SUCCEEDED(encoder->CreateNewFrame(frame.put(), nullptr)) &&
         SUCCEEDED(frame->Initialize(nullptr)) &&
         SUCCEEDED(frame->SetSize(image.width, image.height)) &&
         SUCCEEDED(frame->SetPixelFormat(&format)) &&
         SUCCEEDED(frame->WritePixels(image.height, stride, stride * image.height, bytes)) &&
         SUCCEEDED(frame->Commit()) && SUCCEEDED(encoder->Commit());
}

bool LoadChat(const std::wstring& path, ChatModel& chat) {
  std::ifstream file(std::filesystem::path(path), std::ios::binary);
  if (!file) return false;
  std::string line;
  while (std::getline(file, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.size() < 3 || line[1] != ':') continue;
    const uint32_t role = line[0] == 'Q'   ? kRoleQuestion
                          : line[0] == 'A' ? kRoleAnswer
                                           : kRoleNotice;
    chat.SetText(role, Utf8ToWide(std::string_view(line).substr(line[2] == ' ' ? 3 : 2)));
  }
  return true;
}

// The screenshot stands for the whole game window, so the drawer sits where the program
// would put it.
RECT DrawerRectIn(const Image& game, const Options& options) {
  const ScreenRect window{0, 0, static_cast<int32_t>(game.width),
                          static_cast<int32_t>(game.height)};
  return ToRect(DrawerRect(window, options.dpi, options.height_pct / 100.0));
}

// Enough of IEEE half precision for the 0..1 of a linearised screenshot.
uint16_t ToHalf(float value) {
  if (value < 6.1e-5f) return 0;
  int exponent = 0;
  const float mantissa = std::frexp(value, &exponent);  // value = mantissa * 2^exponent
  const auto bits = static_cast<uint32_t>(std::lround((mantissa * 2 - 1) * 1024));
  return static_cast<uint16_t>(((exponent + 14) << 10) + bits);
}

float SrgbToLinear(uint32_t channel) {
  const float c = static_cast<float>(channel) / 255.0f;
  return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f);
}

// An HDR desktop captures as scRGB, where an SDR game's white sits at 1.0.
std::vector<uint16_t> ToScRgb(const Image& game) {
  std::vector<uint16_t> texels;
  texels.reserve(game.pixels.size() * 4);
  for (const uint32_t pixel : game.pixels) {
    for (const int shift : {16, 8, 0})
      texels.push_back(ToHalf(SrgbToLinear((pixel >> shift) & 255)));
    texels.push_back(ToHalf(1.0f));
  }
  return texels;
}

ComPtr<ID3D11Texture2D> MakeTexture(ID3D11Device* device, uint32_t width, uint32_t height,
                                    DXGI_FORMAT format, UINT bind, const void* data, UINT pitch) {
  // No bind flags means a staging copy for reading back.
  const CD3D11_TEXTURE2D_DESC desc(format, width, height, 1, 1, bind,
                                   bind ? D3D11_USAGE_DEFAULT : D3D11_USAGE_STAGING,
                                   bind ? 0 : D3D11_CPU_ACCESS_READ);
  const D3D11_SUBRESOURCE_DATA init = {data, pitch, 0};
  ComPtr<ID3D11Texture2D> texture;
  device->CreateTexture2D(&desc, data ? &init : nullptr, texture.put());
  return texture;
}

ComPtr<ID3D11Texture2D> MakeFrame(ID3D11Device* device, const Image& game, bool hdr) {
  if (!hdr) {
    return MakeTexture(device, game.width, game.height, DXGI_FORMAT_B8G8R8A8_UNORM,
                       D3D11_BIND_SHADER_RESOURCE, game.pixels.data(), game.width * 4);
  }
  const std::vector<uint16_t> texels = ToScRgb(game);
  return MakeTexture(device, game.width, game.height, DXGI_FORMAT_R16G16B16A16_FLOAT,
                     D3D11_BIND_SHADER_RESOURCE, texels.data(), game.width * 8);
}

// The drawer's Direct2D overlay, made the way the drawer makes it: one unit per pixel.
bool DrawChat(ID3D11Device* device, ID3D11Texture2D* target, const Options& options, uint32_t width,
              uint32_t height) {
  const D2D1_FACTORY_OPTIONS kNoDebug = {D2D1_DEBUG_LEVEL_NONE};
  ComPtr<ID2D1Factory1> factory;
  ComPtr<ID2D1Device> d2d;
  ComPtr<ID2D1DeviceContext> context;
  ComPtr<ID2D1Bitmap1> bitmap;
  ComPtr<IDWriteFactory> dwrite;
  ComPtr<IDXGIDevice> dxgi;
  ComPtr<IDXGISurface> surface;
  device->QueryInterface(IID_PPV_ARGS(dxgi.put()));
  target->QueryInterface(IID_PPV_ARGS(surface.put()));
  const D2D1_BITMAP_PROPERTIES1 properties = D2D1::BitmapProperties1(
      D2D1_BITMAP_OPTIONS_TARGET | D2D1_BITMAP_OPTIONS_CANNOT_DRAW,
      D2D1::PixelFormat(DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_PREMULTIPLIED), 96, 96);
  if (!dxgi || !surface ||
      FAILED(D2D1CreateFactory(D2D1_FACTORY_TYPE_SINGLE_THREADED, __uuidof(ID2D1Factory1),
                               &kNoDebug, reinterpret_cast<void**>(factory.put()))) ||
      FAILED(factory->CreateDevice(dxgi.get(), d2d.put())) ||
      FAILED(d2d->CreateDeviceContext(D2D1_DEVICE_CONTEXT_OPTIONS_NONE, context.put())) ||
      FAILED(context->CreateBitmapFromDxgiSurface(surface.get(), &properties, bitmap.put())) ||
      FAILED(DWriteCreateFactory(DWRITE_FACTORY_TYPE_SHARED, __uuidof(IDWriteFactory),
                                 reinterpret_cast<IUnknown**>(dwrite.put())))) {
    return false;
  }
  ChatModel chat;
  ChatView view(chat);
  if (!view.Init(dwrite.get())) return false;
  chat.SetStatusLine(L"Drawer preview");
  if (!options.chat.empty() && !LoadChat(options.chat, chat)) return false;
  view.SetSize(width, height, static_cast<float>(options.dpi) / 96.0f);
  context->SetTarget(bitmap.get());
  context->BeginDraw();
  view.Draw(context.get(), 1.0f);
  return SUCCEEDED(context->EndDraw());
}

bool ReadBack(ID3D11Device* device, ID3D11DeviceContext* context, ID3D11Texture2D* texture,
              Image& image) {
  const auto staging =
      MakeTexture(device, image.width, image.height, DXGI_FORMAT_B8G8R8A8_UNORM, 0, nullptr, 0);
  D3D11_MAPPED_SUBRESOURCE mapped;
  if (!staging) return false;
  context->CopyResource(staging.get(), texture);
  if (FAILED(context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped))) return false;
  image.pixels.resize(size_t{image.width} * image.height);
  for (uint32_t y = 0; y < image.height; ++y) {
    memcpy(&image.pixels[size_t{y} * image.width],
           static_cast<const uint8_t*>(mapped.pData) + size_t{y} * mapped.RowPitch,
           size_t{image.width} * 4);
  }
  context->Unmap(staging.get(), 0);
  return true;
}

// Premultiplied "over": the drawer on top of the game, as the compositor shows it.
void Compose(Image& game, const Image& drawer, const RECT& at) {
  for (uint32_t y = 0; y < drawer.height; ++y) {
    for (uint32_t x = 0; x < drawer.width; ++x) {
      const uint32_t top = drawer.pixels[size_t{y} * drawer.width + x];
      uint32_t& under = game.pixels[size_t{y + static_cast<uint32_t>(at.top)} * game.width + x +
                                    static_cast<uint32_t>(at.left)];
      const uint32_t keep = 255 - (top >> 24);
      uint32_t result = 0;
      for (const int shift : {0, 8, 16, 24}) {
        const uint32_t sum = ((top >> shift) & 255) + ((under >> shift) & 255) * keep / 255;
        result |= std::min(sum, 255u) << shift;
      }
      under = result;
    }
  }
}

bool RenderDrawer(Renderer& renderer, const Options& options, Image& game) {
  const RECT drawer = DrawerRectIn(game, options);
  Image picture{static_cast<uint32_t>(drawer.right - drawer.left),
                static_cast<uint32_t>(drawer.bottom - drawer.top),
                {}};
  ID3D11Device* device = renderer.Device();
  const auto frame = MakeFrame(device, game, options.hdr);
  const auto target =
      MakeTexture(device, picture.width, picture.height, DXGI_FORMAT_B8G8R8A8_UNORM,
                  D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE, nullptr, 0);
  ComPtr<ID3D11RenderTargetView> view;
  if (!frame || !target ||
      FAILED(device->CreateRenderTargetView(target.get(), nullptr, view.put()))) {
    return false;
  }
  const float clear[4] = {0, 0, 0, 0};
  renderer.Context()->ClearRenderTargetView(view.get(), clear);
  const BlurParams params = {{0.06f, 0.06f, 0.08f, 0.55f},
                             1.0f,
                             options.hdr ? uint8_t{1} : uint8_t{0},
                             static_cast<float>(options.blur_pct / 100.0)};
  if (!renderer.Render(frame.get(), drawer, view.get(), picture.width, picture.height, params) ||
      !DrawChat(device, target.get(), options, picture.width, picture.height) ||
      !ReadBack(device, renderer.Context(), target.get(), picture)) {
    return false;
  }
  Compose(game, picture, drawer);
  return true;
}

int Run(int argc, wchar_t** argv) {
  Options options;
  Image game;
  Renderer renderer;
  if (!ParseOptions(argc, argv, options)) {
    fwprintf(stderr,
             L"usage: drawer-preview SCREENSHOT OUT.png [--height PCT] [--blur PCT] "
             L"[--dpi DPI] [--hdr] [--chat FILE]\n");
    return 2;
  }
  if (!LoadImage(options.screenshot, game)) {
    fwprintf(stderr, L"cannot read %ls\n", options.screenshot.c_str());
    return 1;
  }
  if (!renderer.Init() || !RenderDrawer(renderer, options, game) ||
      !SavePng(options.output, game)) {
    fwprintf(stderr, L"cannot render the drawer\n");
    return 1;
  }
  return 0;
}

}  // namespace
}  // namespace qn

int main() {
  int argc = 0;
  wchar_t** argv = CommandLineToArgvW(GetCommandLineW(), &argc);
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  const int result = argv ? qn::Run(argc, argv) : 2;
  LocalFree(argv);
  return result;
}
