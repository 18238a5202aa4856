#pragma once
// A Direct2D target on a Direct3D 11 texture, made the way the drawer makes its own (one
// Direct2D unit per pixel), for drawing tests and timing runs that have no window.
#include <d2d1_1.h>
#include <d3d11.h>
#include <dwrite.h>
#include <wincodec.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "core/handles.h"

namespace qn::test {

// Waits for the drawing into a B8G8R8A8 texture to land and copies it out: premultiplied
// BGRA, row after row; empty when the copy fails.
inline std::vector<uint32_t> ReadTexture(ID3D11Device* device, ID3D11DeviceContext* context,
                                         ID3D11Texture2D* texture) {
  D3D11_TEXTURE2D_DESC desc = {};
  texture->GetDesc(&desc);
  const CD3D11_TEXTURE2D_DESC staging_desc(desc.Format, desc.Width, desc.Height, 1, 1, 0,
                                           D3D11_USAGE_STAGING, D3D11_CPU_ACCESS_READ);
  ComPtr<ID3D11Texture2D> staging;
  D3D11_MAPPED_SUBRESOURCE mapped;
  if (FAILED(device->CreateTexture2D(&staging_desc, nullptr, staging.put()))) return {};
  context->CopyResource(staging.get(), texture);
  if (FAILED(context->Map(staging.get(), 0, D3D11_MAP_READ, 0, &mapped))) return {};
  std::vector<uint32_t> pixels(size_t{desc.Width} * desc.Height);
  for (uint32_t y = 0; y < desc.Height; ++y) {
    std::memcpy(&pixels[size_t{y} * desc.Width],
                static_cast<const uint8_t*>(mapped.pData) + size_t{y} * mapped.RowPitch,
                size_t{desc.Width} * 4);
  }
  context->Unmap(staging.get(), 0);
  return pixels;
}

class OffscreenTarget {
 public:
  // The hardware driver (llvmpipe under Wine) first, WARP where there is none.
  bool Create(uint32_t width, uint32_t height) {
    width_ = width;
    height_ = height;
    return CreateTexture() && CreateContext() &&
           SUCCEEDED(DWriteCreateFactory(DWRITE_FACTORY_TYPE_SHARED, __uuidof(IDWriteFactory),
                                         reinterpret_cast<IUnknown**>(dwrite_.put())));
  }

  ID2D1DeviceContext* context() const { return context_.get(); }
  IDWriteFactory* dwrite() const { return dwrite_.get(); }
  uint32_t width() const { return width_; }
  uint32_t height() const { return height_; }

  ID3D11Device* device() const { return device_.get(); }
  ID3D11DeviceContext* immediate() const { return immediate_.get(); }

  std::vector<uint32_t> ReadPixels() const {
    return ReadTexture(device_.get(), immediate_.get(), texture_.get());
  }

 private:
  bool CreateTexture() {
    const CD3D11_TEXTURE2D_DESC desc(DXGI_FORMAT_B8G8R8A8_UNORM, width_, height_, 1, 1,
                                     D3D11_BIND_RENDER_TARGET | D3D11_BIND_SHADER_RESOURCE);
    for (const D3D_DRIVER_TYPE type : {D3D_DRIVER_TYPE_HARDWARE, D3D_DRIVER_TYPE_WARP}) {
      if (SUCCEEDED(D3D11CreateDevice(nullptr, type, nullptr, D3D11_CREATE_DEVICE_BGRA_SUPPORT,
                                      nullptr, 0, D3D11_SDK_VERSION, device_.put(), nullptr,
                                      immediate_.put()))) {
        return SUCCEEDED(device_->CreateTexture2D(&desc, nullptr, texture_.put()));
      }
    }
    return false;
  }

  bool CreateContext() {
    const auto dxgi_device = device_.As<IDXGIDevice>();
    const auto surface = texture_.As<IDXGISurface>();
    const D2D1_BITMAP_PROPERTIES1 properties = D2D1::BitmapProperties1(
        D2D1_BITMAP_OPTIONS_TARGET | D2D1_BITMAP_OPTIONS_CANNOT_DRAW,
        D2D1::PixelFormat(DXGI_FORMAT_B8G8R8A8_UNORM, D2D1_ALPHA_MODE_PREMULTIPLIED), 96, 96);
    if (!dxgi_device || !surface ||
        FAILED(D2D1CreateFactory(D2D1_FACTORY_TYPE_SINGLE_THREADED, __uuidof(ID2D1Factory1),
                                 nullptr, reinterpret_cast<void**>(factory_.put()))) ||
        FAILED(factory_->CreateDevice(dxgi_device.get(), d2d_device_.put())) ||
        FAILED(
            d2d_device_->CreateDeviceContext(D2D1_DEVICE_CONTEXT_OPTIONS_NONE, context_.put())) ||
        FAILED(context_->CreateBitmapFromDxgiSurface(surface.get(), &properties, bitmap_.put()))) {
      return false;
    }
    context_->SetTarget(bitmap_.get());
    return true;
  }

  uint32_t width_ = 0, height_ = 0;
  ComPtr<ID3D11Device> device_;
  ComPtr<ID3D11DeviceContext> immediate_;
  ComPtr<ID3D11Texture2D> texture_;
  ComPtr<ID2D1Factory1> factory_;
  ComPtr<ID2D1Device> d2d_device_;
  ComPtr<ID2D1DeviceContext> context_;
  ComPtr<ID2D1Bitmap1> bitmap_;
  ComPtr<IDWriteFactory> dwrite_;
};

// A file beside the running test program, where pictures are left for a look by eye.
inline std::wstring NextToProgram(const std::wstring& name) {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring program = path;
  return program.substr(0, program.find_last_of(L"\\/") + 1) + name;
}

// Premultiplied pixels are written as they are: fine for the opaque pictures tests make.
// Needs COM on the calling thread.
inline bool WritePng(const std::wstring& path, uint32_t width, uint32_t height,
                     const std::vector<uint32_t>& pixels) {
  ComPtr<IWICImagingFactory> wic;
  ComPtr<IWICStream> stream;
  ComPtr<IWICBitmapEncoder> encoder;
  ComPtr<IWICBitmapFrameEncode> frame;
  WICPixelFormatGUID format = GUID_WICPixelFormat32bppBGRA;
  const UINT stride = width * 4;
  return SUCCEEDED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                    IID_PPV_ARGS(wic.put()))) &&
         SUCCEEDED(wic->CreateStream(stream.put())) &&
         SUCCEEDED(stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE)) &&
         SUCCEEDED(wic->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.put())) &&
         SUCCEEDED(encoder->Initialize(stream.get(), WICBitmapEncoderNoCache)) &&
         SUCCEEDED(encoder->CreateNewFrame(frame.put(), nullptr)) &&
         SUCCEEDED(frame->Initialize(nullptr)) && SUCCEEDED(frame->SetSize(width, height)) &&
         SUCCEEDED(frame->SetPixelFormat(&format)) &&
         SUCCEEDED(
             frame->WritePixels(height, stride, stride * height,
                                reinterpret_cast<BYTE*>(const_cast<uint32_t*>(pixels.data())))) &&
         SUCCEEDED(frame->Commit()) && SUCCEEDED(encoder->Commit());
}

}  // namespace qn::test
