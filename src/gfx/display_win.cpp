#include "gfx/display_win.h"

#include <dxgi1_6.h>

#include <optional>
#include <string_view>
#include <vector>

#include "core/log.h"
#include "core/module_proc.h"
#include "gfx/blur_plan.h"

namespace qn {
namespace {

uint64_t LuidNumber(const LUID& luid) {
  return uint64_t{static_cast<uint32_t>(luid.HighPart)} << 32 | luid.LowPart;
}

// Any enumeration failure ends a walk like the end of the list does. An output whose
// description fails keeps its place with no monitor, so that indices stay DXGI's.
std::vector<AdapterOutputs> ListAdapters(IDXGIFactory1* factory,
                                         std::vector<ComPtr<IDXGIAdapter1>>& adapters) {
  std::vector<AdapterOutputs> listed;
  ComPtr<IDXGIAdapter1> adapter;
  for (UINT a = 0; SUCCEEDED(factory->EnumAdapters1(a, adapter.put())); ++a) {
    DXGI_ADAPTER_DESC1 desc;
    if (FAILED(adapter->GetDesc1(&desc))) desc = {};
    AdapterOutputs entry = {
        LuidNumber(desc.AdapterLuid), (desc.Flags & DXGI_ADAPTER_FLAG_SOFTWARE) != 0, {}};
    ComPtr<IDXGIOutput> output;
    for (UINT o = 0; SUCCEEDED(adapter->EnumOutputs(o, output.put())); ++o) {
      DXGI_OUTPUT_DESC out;
      const bool known = SUCCEEDED(output->GetDesc(&out));
      entry.monitors.push_back(known ? reinterpret_cast<uintptr_t>(out.Monitor) : 0);
    }
    listed.push_back(std::move(entry));
    adapters.push_back(adapter);
  }
  return listed;
}

// The display configuration's word for how bright the display shows SDR white, for the
// display whose GDI name DXGI gave; nothing when it cannot tell (before Windows 10 1709).
std::optional<float> SdrWhiteNits(const wchar_t* gdi_name) {
  std::vector<DISPLAYCONFIG_PATH_INFO> paths;
  std::vector<DISPLAYCONFIG_MODE_INFO> modes;
  LONG status = ERROR_INSUFFICIENT_BUFFER;
  // The configuration may change between asking for the sizes and asking for the paths.
  for (int attempt = 0; attempt < 3 && status == ERROR_INSUFFICIENT_BUFFER; ++attempt) {
    UINT32 path_count = 0;
    UINT32 mode_count = 0;
    status = GetDisplayConfigBufferSizes(QDC_ONLY_ACTIVE_PATHS, &path_count, &mode_count);
    if (status != ERROR_SUCCESS) break;
    paths.resize(path_count);
    modes.resize(mode_count);
    status = QueryDisplayConfig(QDC_ONLY_ACTIVE_PATHS, &path_count, paths.data(), &mode_count,
                                modes.data(), nullptr);
    paths.resize(path_count);
  }
  if (status != ERROR_SUCCESS) {
    Log(kLogWarn, L"QueryDisplayConfig failed: %ld", status);
    return std::nullopt;
  }
  for (const DISPLAYCONFIG_PATH_INFO& path : paths) {
    DISPLAYCONFIG_SOURCE_DEVICE_NAME source = {};
    source.header = {DISPLAYCONFIG_DEVICE_INFO_GET_SOURCE_NAME, sizeof(source),
                     path.sourceInfo.adapterId, path.sourceInfo.id};
    if (DisplayConfigGetDeviceInfo(&source.header) != ERROR_SUCCESS ||
        std::wstring_view(source.viewGdiDeviceName) != gdi_name) {
      continue;
    }
    DISPLAYCONFIG_SDR_WHITE_LEVEL white = {};
    white.header = {DISPLAYCONFIG_DEVICE_INFO_GET_SDR_WHITE_LEVEL, sizeof(white),
                    path.targetInfo.adapterId, path.targetInfo.id};
    status = DisplayConfigGetDeviceInfo(&white.header);
    if (status == ERROR_SUCCESS) return static_cast<float>(white.SDRWhiteLevel) / 1000.0f * 80.0f;
    Log(kLogWarn, L"DisplayConfigGetDeviceInfo (SDR white level) failed: %ld", status);
    return std::nullopt;
  }
  return std::nullopt;
}

}  // namespace

ComPtr<IDXGIFactory1> DxgiFactory() {
  static const SystemFunction<decltype(&::CreateDXGIFactory1)> create(L"dxgi.dll",
                                                                      "CreateDXGIFactory1");
  ComPtr<IDXGIFactory1> factory;
  if (!create || FAILED(create.get()(IID_PPV_ARGS(factory.put())))) factory.reset();
  return factory;
}

ComPtr<IDXGIAdapter1> AdapterWithLuid(IDXGIFactory1* factory, uint64_t luid) {
  ComPtr<IDXGIAdapter1> adapter;
  for (UINT a = 0; factory && luid != 0 && SUCCEEDED(factory->EnumAdapters1(a, adapter.put()));
       ++a) {
    DXGI_ADAPTER_DESC1 desc;
    if (SUCCEEDED(adapter->GetDesc1(&desc)) && LuidNumber(desc.AdapterLuid) == luid) {
      return adapter;
    }
  }
  adapter.reset();
  return adapter;
}

uint64_t AdapterOf(ID3D11Device* device) {
  ComPtr<IDXGIDevice> dxgi;
  ComPtr<IDXGIAdapter> adapter;
  DXGI_ADAPTER_DESC desc;
  if (FAILED(device->QueryInterface(IID_PPV_ARGS(dxgi.put()))) ||
      FAILED(dxgi->GetAdapter(adapter.put())) || FAILED(adapter->GetDesc(&desc))) {
    return 0;
  }
  return LuidNumber(desc.AdapterLuid);
}

DisplayFacts DisplayShowing(IDXGIFactory1* factory, HWND window) {
  DisplayFacts facts;
  const HMONITOR monitor = MonitorFromWindow(window, MONITOR_DEFAULTTONEAREST);
  if (!monitor || !factory) return facts;
  std::vector<ComPtr<IDXGIAdapter1>> adapters;
  const std::vector<AdapterOutputs> listed = ListAdapters(factory, adapters);
  const auto shown = OutputShowing(listed, reinterpret_cast<uintptr_t>(monitor));
  if (!shown) return facts;
  facts.adapter = listed[shown->adapter].luid;
  ComPtr<IDXGIOutput> output;
  const UINT index = static_cast<UINT>(shown->output);
  if (FAILED(adapters[shown->adapter]->EnumOutputs(index, output.put()))) return facts;
  const auto output6 = output.As<IDXGIOutput6>();
  DXGI_OUTPUT_DESC1 desc;
  if (!output6 || FAILED(output6->GetDesc1(&desc))) return facts;
  facts.hdr = desc.ColorSpace == DXGI_COLOR_SPACE_RGB_FULL_G2084_NONE_P2020;
  if (facts.hdr) facts.sdr_white_nits = SdrWhiteNits(desc.DeviceName).value_or(80.0f);
  Log(kLogInfo, L"display %ls: %ls (colorspace=%d, %.0f nits, %u bpc, SDR white %.0f nits)",
      desc.DeviceName, facts.hdr ? L"HDR" : L"SDR", static_cast<int>(desc.ColorSpace),
      static_cast<double>(desc.MaxLuminance), desc.BitsPerColor,
      static_cast<double>(facts.sdr_white_nits));
  return facts;
}

}  // namespace qn
