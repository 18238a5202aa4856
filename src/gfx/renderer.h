#pragma once
// The process's Direct3D 11 device and the drawer's backdrop: the part of a captured game
// frame under the drawer, blurred, tinted and faded, written with premultiplied alpha.
// The capture's frame pool and the drawer's swap chain and Direct2D device share the
// device, so the renderer is made first and lives as long as the application.
#include <d3d11.h>
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

class Renderer {
 public:
  Renderer() = default;
  virtual ~Renderer() = default;
  Renderer(const Renderer&) = delete;
  Renderer& operator=(const Renderer&) = delete;

  // Idempotent; a failure keeps nothing. There is deliberately no software fallback, whose
  // frame rate would make the drawer worse than no drawer.
  bool Init();
  static bool DisplayIsHdr(HWND window);
  // Called between the caller's clear of the back buffer and its Direct2D overlay.
  bool Render(ID3D11Texture2D* frame, const RECT& crop, ID3D11RenderTargetView* target,
              unsigned target_width, unsigned target_height, const BlurParams& params);
  // Frees what depends on the drawer's size, while the drawer is idle.
  void Trim();
  void Release();

  ID3D11Device* Device() const { return device_.get(); }
  ID3D11DeviceContext* Context() const { return context_.get(); }
  // How many times the chain has been built, for checking that it is cached.
  uint32_t ChainBuilds() const { return chain_builds_; }

 protected:
  // The last step of Init; virtual so that a test can make it fail on a working device.
  virtual bool CreateStates();

 private:
  bool CreateDevice();
  bool CreateShaders();
  bool EnsureChain(unsigned width, unsigned height);
  bool EnsureSourceCopy(ID3D11Texture2D* frame, const D3D11_TEXTURE2D_DESC& desc);
  ComPtr<ID3D11ShaderResourceView> SourceView(ID3D11Texture2D* frame,
                                              const D3D11_TEXTURE2D_DESC& desc);
  void RunPass(const BlurPass& pass, ID3D11ShaderResourceView* frame_view,
               ID3D11RenderTargetView* target);
  void DrawPass(ID3D11PixelShader* shader, ID3D11ShaderResourceView* const (&sources)[2],
                ID3D11RenderTargetView* target, PixelSize size, const BlurCB& constants);

  ComPtr<ID3D11Device> device_;
  ComPtr<ID3D11DeviceContext> context_;
  ComPtr<ID3D11VertexShader> vertex_shader_;
  ComPtr<ID3D11PixelShader> down_shader_;
  ComPtr<ID3D11PixelShader> up_shader_;
  ComPtr<ID3D11PixelShader> composite_shader_;
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
};

}  // namespace qn
