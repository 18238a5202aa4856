#pragma once
// The process's Direct3D 11 device and the drawer's backdrop: the part of a captured game
// frame under the drawer, blurred, tinted and faded, written with premultiplied alpha.
// The capture's frame pool and the drawer's swap chain and Direct2D device share the
// device, so the renderer is made first and lives as long as the application.
#include <d3d11.h>
#include <dxgi.h>
#include <windows.h>

#include <cstdint>
#include <vector>

#include "core/handles.h"
#include "gfx/blur_plan.h"

namespace qn {

struct BlurLevel {
  BlurLevel() = default;
  BlurLevel(BlurLevel&&) noexcept = default;
  BlurLevel& operator=(BlurLevel&&) noexcept = default;
  BlurLevel(const BlurLevel&) = delete;
  BlurLevel& operator=(const BlurLevel&) = delete;

  ComPtr<ID3D11Texture2D> texture;
  ComPtr<ID3D11RenderTargetView> target;
  ComPtr<ID3D11ShaderResourceView> view;
  uint32_t width = 0;
  uint32_t height = 0;
};

// What the drawer needs to know of the monitor a game is on.
struct DisplayFacts {
  bool hdr = false;
  float sdr_white_nits = 80.0f;  // how bright the display shows SDR white, when in HDR
  uint64_t adapter = 0;          // the LUID of the adapter that shows it; 0 when none was found
};

class Renderer {
 public:
  Renderer() = default;
  virtual ~Renderer() = default;
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  // Idempotent; a failure keeps nothing. There is deliberately no software fallback, whose
  // frame rate would make the drawer worse than no drawer. The device is made on the adapter
  // with the given LUID when there is one (DisplayFacts::adapter), else on the default one.
  bool Init(uint64_t adapter = 0);
  // Asked at each opening: the player may switch HDR or move the game between two. Cheap
  // after the first time, which makes the DXGI factory that Release drops.
  DisplayFacts DisplayOf(HWND window);
  static bool DisplayIsHdr(HWND window) { return Renderer().DisplayOf(window).hdr; }
  // Called between the caller's clear of the back buffer and its Direct2D overlay.
  bool Render(ID3D11Texture2D* frame, const RECT& crop, ID3D11RenderTargetView* target,
              unsigned target_width, unsigned target_height, const BlurParams& params);
  // Frees what depends on the drawer's size, while the drawer is idle.
  void Trim();
  void Release();

  // For benches that compare with the former blur, which cross-faded the full chain with the
  // sharp frame at every setting; false when its shader cannot be made.
  bool UseOldBlurForBench(bool old);

  ID3D11Device* Device() const { return device_.get(); }
  uint64_t Adapter() const { return adapter_; }
  ID3D11DeviceContext* Context() const { return context_.get(); }
  // How many times the chain has been built, for checking that it is cached.
  uint32_t ChainBuilds() const { return chain_builds_; }

 protected:
  // Virtual so that a test can make Init fail on a working device, or hold it to the lowest
  // feature level it accepts.
  virtual HRESULT CreateDevice(IDXGIAdapter* adapter, const D3D_FEATURE_LEVEL* levels,
                               UINT level_count);
  virtual bool CreateStates();

 private:
  bool MakeDevice(uint64_t adapter);
  IDXGIFactory1* Factory();
  bool CreateShaders();
  bool EnsureChain(unsigned width, unsigned height);
  // Where the passes read the frame: the frame itself, or a copy of part of it.
  struct FrameView {
    ComPtr<ID3D11ShaderResourceView> view;
    PixelSize size;
    PixelRect crop;  // in `view`
  };
  FrameView ViewOf(ID3D11Texture2D* frame, const D3D11_TEXTURE2D_DESC& desc, const PixelRect& crop);
  bool EnsureSourceCopy(ID3D11Texture2D* frame, const D3D11_TEXTURE2D_DESC& desc,
                        const PixelRect& crop);
  void RunPass(const BlurPass& pass, ID3D11ShaderResourceView* frame_view,
               ID3D11RenderTargetView* target);
  void DrawPass(ID3D11PixelShader* shader, ID3D11ShaderResourceView* const (&sources)[2],
                ID3D11RenderTargetView* target, PixelSize size, const BlurCB& constants);

  // Made anew when it no longer tells the truth about adapters, outputs and their colours.
  ComPtr<IDXGIFactory1> factory_;
  ComPtr<ID3D11Device> device_;
  ComPtr<ID3D11DeviceContext> context_;
  ComPtr<ID3D11VertexShader> vertex_shader_;
  ComPtr<ID3D11PixelShader> down_shader_;
  ComPtr<ID3D11PixelShader> up_shader_;
  ComPtr<ID3D11PixelShader> composite_shader_;
  ComPtr<ID3D11PixelShader> cross_fade_shader_;  // made only when a bench asks for the old blur
  bool old_blur_ = false;
  ComPtr<ID3D11SamplerState> sampler_;
  ComPtr<ID3D11BlendState> blend_state_;
  ComPtr<ID3D11RasterizerState> rasterizer_state_;
  ComPtr<ID3D11Buffer> constants_;
  std::vector<BlurLevel> levels_;
  uint32_t chain_width_ = 0;
  uint32_t chain_height_ = 0;
  ComPtr<ID3D11Texture2D> source_copy_;
  ComPtr<ID3D11ShaderResourceView> source_copy_view_;
  uint32_t copy_width_ = 0;
  uint32_t copy_height_ = 0;
  uint32_t copy_format_ = 0;
  uint32_t chain_builds_ = 0;
  uint64_t adapter_ = 0;
};

}  // namespace qn
