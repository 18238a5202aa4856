#include <d3d11_4.h>
#include <d3dcompiler.h>
#include <dxgi1_6.h>

#include <cfloat>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>

#include "core/failure_log.h"
#include "core/log.h"
#include "core/module_proc.h"
#include "core/os.h"
#include "gfx/display_win.h"
#include "gfx/hintwick_hlsl.h"
#include "gfx/renderer.h"

namespace qn {
namespace {

constexpr UINT kCompileFlags = D3DCOMPILE_OPTIMIZATION_LEVEL3;

// The shaders are built for the lowest level the device may be made at: a 10.1 device
// refuses shader model 5 code, and nothing in the blur needs more than model 4.1.
constexpr D3D_FEATURE_LEVEL kFeatureLevels[] = {D3D_FEATURE_LEVEL_11_1, D3D_FEATURE_LEVEL_11_0,
                                                D3D_FEATURE_LEVEL_10_1};
constexpr char kVertexProfile[] = "vs_4_1";
constexpr char kPixelProfile[] = "ps_4_1";

ComPtr<ID3DBlob> Compile(const char* entry, const char* profile,
                         const D3D_SHADER_MACRO* defines = nullptr) {
  ComPtr<ID3DBlob> code;
  ComPtr<ID3DBlob> errors;
  const std::string_view source = kHintwickHlsl;
  static const SystemFunction<pD3DCompile> compile(L"d3dcompiler_47.dll", "D3DCompile");
  if (!compile) {
    LogLastError(L"d3dcompiler_47.dll", kLogError);
    return code;
  }
  const HRESULT hr = compile.get()(source.data(), source.size(), "hintwick.hlsl", defines, nullptr,
                                   entry, profile, kCompileFlags, 0, code.put(), errors.put());
  if (SUCCEEDED(hr)) return code;
  if (errors) {
    std::string text(static_cast<const char*>(errors->GetBufferPointer()), errors->GetBufferSize());
    // One log line per failure: the compiler ends its text with a newline and a NUL.
    while (!text.empty() && (text.back() == '\0' || text.back() == '\n')) text.pop_back();
    Log(kLogError, L"shader %hs failed: %hs", entry, text.c_str());
  } else {
    Log(kLogError, L"shader %hs failed: %ls", entry, ErrorText(hr).c_str());
  }
  code.reset();
  return code;
}

bool CreatePixelShader(ID3D11Device* device, const char* entry, ID3D11PixelShader** shader,
                       const D3D_SHADER_MACRO* defines = nullptr) {
  const ComPtr<ID3DBlob> code = Compile(entry, kPixelProfile, defines);
  return code && SUCCEEDED(device->CreatePixelShader(code->GetBufferPointer(),
                                                     code->GetBufferSize(), nullptr, shader));
}

D3D11_TEXTURE2D_DESC LevelDesc(uint32_t width, uint32_t height) {
  return CD3D11_TEXTURE2D_DESC(DXGI_FORMAT_R16G16B16A16_FLOAT, width, height, 1, 1,
                               D3D11_BIND_SHADER_RESOURCE | D3D11_BIND_RENDER_TARGET);
}

}  // namespace

bool Renderer::Init(uint64_t adapter) {
  if (device_) return true;
  // A device kept from a failed attempt would make the next Init succeed at once, and
  // Render would then use the objects that were never made.
  if (MakeDevice(adapter) && CreateShaders() && CreateStates()) {
    Log(kLogInfo, L"renderer ready");
    return true;
  }
  Release();
  return false;
}

HRESULT Renderer::CreateDevice(IDXGIAdapter* adapter, const D3D_FEATURE_LEVEL* levels,
                               UINT level_count) {
  static const SystemFunction<PFN_D3D11_CREATE_DEVICE> create(L"d3d11.dll", "D3D11CreateDevice");
  if (!create) return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
  // A named adapter fixes the driver, so the driver type must then be left unknown.
  return create.get()(adapter, adapter ? D3D_DRIVER_TYPE_UNKNOWN : D3D_DRIVER_TYPE_HARDWARE,
                      nullptr, D3D11_CREATE_DEVICE_BGRA_SUPPORT, levels, level_count,
                      D3D11_SDK_VERSION, device_.put(), nullptr, context_.put());
}

bool Renderer::MakeDevice(uint64_t adapter) {
  const ComPtr<IDXGIAdapter1> wanted = AdapterWithLuid(Factory(), adapter);
  constexpr UINT kLevelCount = static_cast<UINT>(std::size(kFeatureLevels));
  HRESULT hr = CreateDevice(wanted.get(), kFeatureLevels, kLevelCount);
  if (FAILED(hr) && wanted) {
    Log(kLogWarn, L"D3D11CreateDevice on the game's adapter failed: %ls; trying the default one",
        ErrorText(hr).c_str());
    hr = CreateDevice(nullptr, kFeatureLevels, kLevelCount);
  }
  if (FAILED(hr)) {
    Log(kLogError, L"D3D11CreateDevice (hardware) failed: %ls", ErrorText(hr).c_str());
    return false;
  }
  adapter_ = AdapterOf(device_.get());
  // The capture's free-threaded frame pool copies frames on this device from a system
  // thread while the interface thread draws; the device's own lock keeps the two from
  // using the immediate context at the same moment.
  ComPtr<ID3D11Multithread> lock;
  const HRESULT locked = context_->QueryInterface(IID_PPV_ARGS(lock.put()));
  if (CheckHr(locked, L"QueryInterface(ID3D11Multithread)", kLogError)) {
    lock->SetMultithreadProtected(TRUE);
  }
  return SUCCEEDED(locked);
}

bool Renderer::CreateShaders() {
  const ComPtr<ID3DBlob> vs = Compile("VSMain", kVertexProfile);
  return vs &&
         SUCCEEDED(device_->CreateVertexShader(vs->GetBufferPointer(), vs->GetBufferSize(), nullptr,
                                               vertex_shader_.put())) &&
         CreatePixelShader(device_.get(), "PSDown", down_shader_.put()) &&
         CreatePixelShader(device_.get(), "PSUp", up_shader_.put()) &&
         CreatePixelShader(device_.get(), "PSComposite", composite_shader_.put());
}

bool Renderer::CreateStates() {
  D3D11_SAMPLER_DESC sampler = {};
  sampler.Filter = D3D11_FILTER_MIN_MAG_MIP_LINEAR;
  sampler.AddressU = sampler.AddressV = sampler.AddressW = D3D11_TEXTURE_ADDRESS_CLAMP;
  sampler.MaxLOD = FLT_MAX;
  D3D11_BLEND_DESC blend = {};
  blend.RenderTarget[0].RenderTargetWriteMask = D3D11_COLOR_WRITE_ENABLE_ALL;
  D3D11_RASTERIZER_DESC raster = {};
  raster.FillMode = D3D11_FILL_SOLID;
  raster.CullMode = D3D11_CULL_NONE;
  raster.DepthClipEnable = TRUE;
  D3D11_BUFFER_DESC buffer = {};
  buffer.ByteWidth = sizeof(BlurCB);
  buffer.Usage = D3D11_USAGE_DYNAMIC;
  buffer.BindFlags = D3D11_BIND_CONSTANT_BUFFER;
  buffer.CPUAccessFlags = D3D11_CPU_ACCESS_WRITE;
  return SUCCEEDED(device_->CreateSamplerState(&sampler, sampler_.put())) &&
         SUCCEEDED(device_->CreateBlendState(&blend, blend_state_.put())) &&
         SUCCEEDED(device_->CreateRasterizerState(&raster, rasterizer_state_.put())) &&
         SUCCEEDED(device_->CreateBuffer(&buffer, nullptr, constants_.put()));
}

// DXGI keeps what it found when the factory was made; a change of adapters, or of an output's
// colour space, shows as a factory that is no longer current.
IDXGIFactory1* Renderer::Factory() {
  if (!factory_ || !factory_->IsCurrent()) factory_ = DxgiFactory();
  return factory_.get();
}

DisplayFacts Renderer::DisplayOf(HWND window) { return DisplayShowing(Factory(), window); }

bool Renderer::UseOldBlurForBench(bool old) {
  static const D3D_SHADER_MACRO kCrossFade[] = {{"CROSS_FADE", "1"}, {nullptr, nullptr}};
  if (old && !cross_fade_shader_ && device_ &&
      !CreatePixelShader(device_.get(), "PSComposite", cross_fade_shader_.put(), kCrossFade)) {
    cross_fade_shader_.reset();
  }
  old_blur_ = old && cross_fade_shader_;
  return old_blur_ == old;
}

bool Renderer::EnsureChain(unsigned width, unsigned height) {
  const PixelSize crop = {width, height};
  if (!ChainIsStale(!levels_.empty(), {chain_width_, chain_height_}, crop)) return true;
  levels_.clear();
  chain_width_ = width;
  chain_height_ = height;
  ++chain_builds_;
  const auto sizes = ChainSizes(crop);
  for (uint32_t i = 0; i < kBlurLevelCount; ++i) {
    BlurLevel level;
    level.width = sizes[i].width;
    level.height = sizes[i].height;
    const D3D11_TEXTURE2D_DESC desc = LevelDesc(level.width, level.height);
    if (FAILED(device_->CreateTexture2D(&desc, nullptr, level.texture.put()))) {
      Log(kLogError, L"blur chain level %d (%ux%u) failed", static_cast<int>(i), level.width,
          level.height);
      levels_.clear();
      return false;
    }
    // A failed view keeps the levels built so far; Render refuses such a partial chain.
    if (FAILED(device_->CreateRenderTargetView(level.texture.get(), nullptr, level.target.put())) ||
        FAILED(device_->CreateShaderResourceView(level.texture.get(), nullptr, level.view.put()))) {
      return false;
    }
    levels_.push_back(std::move(level));
  }
  return true;
}

// Only the part of the frame under the drawer is copied: the frame may be four times its size.
bool Renderer::EnsureSourceCopy(ID3D11Texture2D* frame, const D3D11_TEXTURE2D_DESC& desc,
                                const PixelRect& crop) {
  const TextureShape shape = {static_cast<uint32_t>(crop.right - crop.left),
                              static_cast<uint32_t>(crop.bottom - crop.top),
                              static_cast<uint32_t>(desc.Format)};
  if (SourceCopyIsStale(static_cast<bool>(source_copy_view_),
                        {copy_width_, copy_height_, copy_format_}, shape)) {
    const CD3D11_TEXTURE2D_DESC copy(desc.Format, shape.width, shape.height, 1, 1,
                                     D3D11_BIND_SHADER_RESOURCE);
    source_copy_view_.reset();
    if (FAILED(device_->CreateTexture2D(&copy, nullptr, source_copy_.put())) ||
        FAILED(device_->CreateShaderResourceView(source_copy_.get(), nullptr,
                                                 source_copy_view_.put()))) {
      source_copy_.reset();
      source_copy_view_.reset();
      return false;
    }
    copy_width_ = shape.width;
    copy_height_ = shape.height;
    copy_format_ = shape.format;
  }
  const D3D11_BOX box = {static_cast<UINT>(crop.left),  static_cast<UINT>(crop.top),    0,
                         static_cast<UINT>(crop.right), static_cast<UINT>(crop.bottom), 1};
  context_->CopySubresourceRegion(source_copy_.get(), 0, 0, 0, 0, frame, 0, &box);
  return true;
}

// Capture textures are normally sampled in place; the copy is for frames that cannot be. The
// former blur copied the whole frame.
Renderer::FrameView Renderer::ViewOf(ID3D11Texture2D* frame, const D3D11_TEXTURE2D_DESC& desc,
                                     const PixelRect& crop) {
  FrameView in_place = {{}, {desc.Width, desc.Height}, crop};
  if ((desc.BindFlags & D3D11_BIND_SHADER_RESOURCE) &&
      SUCCEEDED(device_->CreateShaderResourceView(frame, nullptr, in_place.view.put()))) {
    return in_place;
  }
  const PixelRect copied = old_blur_ ? PixelRect{0, 0, static_cast<int32_t>(desc.Width),
                                                 static_cast<int32_t>(desc.Height)}
                                     : crop;
  if (!EnsureSourceCopy(frame, desc, copied)) return {};
  return {source_copy_view_,
          {copy_width_, copy_height_},
          {crop.left - copied.left, crop.top - copied.top, crop.right - copied.left,
           crop.bottom - copied.top}};
}

bool Renderer::Render(ID3D11Texture2D* frame, const RECT& crop, ID3D11RenderTargetView* target,
                      unsigned target_width, unsigned target_height, const BlurParams& params) {
  if (!device_ || !frame || !target) return false;
  D3D11_TEXTURE2D_DESC desc;
  frame->GetDesc(&desc);
  if (desc.Width == 0 || desc.Height == 0) return false;
  const auto area =
      ClampCrop({crop.left, crop.top, crop.right, crop.bottom}, {desc.Width, desc.Height});
  if (!area) return false;
  const FrameView source = ViewOf(frame, desc, *area);
  if (!source.view) return false;
  const CompositeEncode encode = CompositeEncodeFor(params, static_cast<uint32_t>(desc.Format));
  const PixelSize into = {target_width, target_height};
  const BlurPlan plan = old_blur_
                            ? PlanCrossFadePasses(source.size, source.crop, into, params, encode)
                            : PlanPasses(source.size, source.crop, into, params, encode);
  if (plan.levels > 0 && (!EnsureChain(static_cast<unsigned>(area->right - area->left),
                                       static_cast<unsigned>(area->bottom - area->top)) ||
                          levels_.size() != kBlurLevelCount)) {
    return false;
  }
  for (const BlurPass& pass : plan) RunPass(pass, source.view.get(), target);
  return true;
}

void Renderer::RunPass(const BlurPass& pass, ID3D11ShaderResourceView* frame_view,
                       ID3D11RenderTargetView* target) {
  ID3D11PixelShader* const shaders[] = {down_shader_.get(), up_shader_.get(),
                                        composite_shader_.get(), cross_fade_shader_.get()};
  ID3D11ShaderResourceView* source =
      pass.source == kFrameSlot ? frame_view : levels_[static_cast<size_t>(pass.source)].view.get();
  ID3D11RenderTargetView* into =
      pass.target == kTargetSlot ? target : levels_[static_cast<size_t>(pass.target)].target.get();
  // The cross-fade mixes in the unblurred frame; the other passes read one source only.
  ID3D11ShaderResourceView* const sources[2] = {
      source, pass.shader == BlurShader::kCrossFade ? frame_view : nullptr};
  DrawPass(shaders[static_cast<size_t>(pass.shader)], sources, into, pass.viewport, pass.constants);
}

void Renderer::DrawPass(ID3D11PixelShader* shader, ID3D11ShaderResourceView* const (&sources)[2],
                        ID3D11RenderTargetView* target, PixelSize size, const BlurCB& constants) {
  D3D11_MAPPED_SUBRESOURCE mapped;
  if (SUCCEEDED(context_->Map(constants_.get(), 0, D3D11_MAP_WRITE_DISCARD, 0, &mapped))) {
    std::memcpy(mapped.pData, &constants, sizeof(constants));
    context_->Unmap(constants_.get(), 0);
  }
  const D3D11_VIEWPORT viewport = {
      0, 0, static_cast<float>(size.width), static_cast<float>(size.height), 0, 1};
  ID3D11Buffer* const buffer = constants_.get();
  ID3D11SamplerState* const sampler = sampler_.get();
  context_->OMSetRenderTargets(1, &target, nullptr);
  context_->RSSetViewports(1, &viewport);
  context_->IASetInputLayout(nullptr);
  context_->IASetPrimitiveTopology(D3D11_PRIMITIVE_TOPOLOGY_TRIANGLELIST);
  context_->VSSetShader(vertex_shader_.get(), nullptr, 0);
  context_->PSSetShader(shader, nullptr, 0);
  context_->PSSetConstantBuffers(0, 1, &buffer);
  context_->PSSetSamplers(0, 1, &sampler);
  context_->PSSetShaderResources(0, 2, sources);
  context_->RSSetState(rasterizer_state_.get());
  context_->OMSetBlendState(blend_state_.get(), nullptr, 0xFFFFFFFF);
  context_->Draw(3, 0);
  // Unbound so that the next pass may read what this one wrote.
  ID3D11ShaderResourceView* const no_sources[2] = {};
  ID3D11RenderTargetView* const no_target = nullptr;
  context_->PSSetShaderResources(0, 2, no_sources);
  context_->OMSetRenderTargets(1, &no_target, nullptr);
}

void Renderer::Trim() {
  levels_.clear();
  chain_width_ = chain_height_ = 0;
  source_copy_view_.reset();
  source_copy_.reset();
  copy_width_ = copy_height_ = copy_format_ = 0;
  if (context_) context_->ClearState();
}

void Renderer::Release() {
  Trim();
  constants_.reset();
  rasterizer_state_.reset();
  blend_state_.reset();
  sampler_.reset();
  cross_fade_shader_.reset();
  old_blur_ = false;
  composite_shader_.reset();
  up_shader_.reset();
  down_shader_.reset();
  vertex_shader_.reset();
  context_.reset();
  device_.reset();
  factory_.reset();
  adapter_ = 0;
}

}  // namespace qn
