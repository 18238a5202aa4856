#include "gfx/capture.h"

#include <bcrypt.h>
#include <d3d11.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <memory>
#include <stdexcept>
#include <string>

#include "core/log.h"
#include "support/test_files.h"

namespace qn {
namespace {

namespace cap = abi::capture;

// The Windows Runtime's namespace for parameterized interface IDs, in RFC 4122 byte order.
constexpr std::array<uint8_t, 16> kPinterfaceNamespace = {
    0x11, 0xf4, 0x7a, 0xd5, 0x7b, 0x73, 0x42, 0xc0, 0xab, 0xae, 0x87, 0x8b, 0x1e, 0x16, 0xad, 0xee};

std::array<uint8_t, 20> Sha1(const std::string& bytes) {
  std::array<uint8_t, 20> digest{};
  BCRYPT_ALG_HANDLE algorithm = nullptr;
  BCRYPT_HASH_HANDLE hash = nullptr;
  EXPECT_EQ(BCryptOpenAlgorithmProvider(&algorithm, BCRYPT_SHA1_ALGORITHM, nullptr, 0), 0);
  EXPECT_EQ(BCryptCreateHash(algorithm, &hash, nullptr, 0, nullptr, 0, 0), 0);
  auto* data = reinterpret_cast<PUCHAR>(const_cast<char*>(bytes.data()));
  EXPECT_EQ(BCryptHashData(hash, data, static_cast<ULONG>(bytes.size()), 0), 0);
  EXPECT_EQ(BCryptFinishHash(hash, digest.data(), static_cast<ULONG>(digest.size()), 0), 0);
  BCryptDestroyHash(hash);
  BCryptCloseAlgorithmProvider(algorithm, 0);
  return digest;
}

GUID PinterfaceIid(const std::string& signature) {
  std::string input(kPinterfaceNamespace.begin(), kPinterfaceNamespace.end());
  std::array<uint8_t, 20> d = Sha1(input + signature);
  d[6] = static_cast<uint8_t>((d[6] & 0x0F) | 0x50);
  d[8] = static_cast<uint8_t>((d[8] & 0x3F) | 0x80);
  GUID iid{};
  iid.Data1 = (uint32_t{d[0]} << 24) | (uint32_t{d[1]} << 16) | (uint32_t{d[2]} << 8) | d[3];
  iid.Data2 = static_cast<uint16_t>((d[4] << 8) | d[5]);
  iid.Data3 = static_cast<uint16_t>((d[6] << 8) | d[7]);
  for (int i = 0; i < 8; ++i) iid.Data4[i] = d[8 + i];
  return iid;
}

std::wstring GuidText(const GUID& iid) {
  wchar_t text[40] = {};
  StringFromGUID2(iid, text, 40);
  return text;
}

TEST(CaptureAbiTest, DelegateIidsFollowFromTheirTypeSignatures) {
  const struct {
    const char* signature;
    GUID declared;
  } cases[] = {
      {"pinterface({9de1c534-6ae1-11e0-84e1-18a905bcc53f};"
       "rc(Windows.Graphics.Capture.Direct3D11CaptureFramePool;"
       "{24eb6d22-1975-422e-82e7-780dbd8ddf24});cinterface(IInspectable))",
       cap::IFrameArrivedHandler::kIid},
      {"pinterface({9de1c534-6ae1-11e0-84e1-18a905bcc53f};"
       "rc(Windows.Graphics.Capture.GraphicsCaptureItem;"
       "{79c3f95b-31f7-4ec2-a464-632ef5d30760});cinterface(IInspectable))",
       cap::IItemClosedHandler::kIid},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(GuidText(PinterfaceIid(c.signature)), GuidText(c.declared)) << c.signature;
  }
}

TEST(CaptureAbiTest, HandlerAnswersOnlyItsOwnInterfacesAndDiesWithItsLastReference) {
  auto alive = std::make_shared<int>(0);
  std::weak_ptr<int> watch = alive;
  ComPtr<cap::IFrameArrivedHandler> handler =
      cap::FrameArrivedDelegate::Make([alive](cap::IDirect3D11CaptureFramePool*) {});
  alive.reset();
  ASSERT_TRUE(handler);

  const struct {
    GUID iid;
    HRESULT result;
  } cases[] = {{__uuidof(IUnknown), S_OK},
               {cap::IFrameArrivedHandler::kIid, S_OK},
               {__uuidof(IAgileObject), S_OK},
               {__uuidof(IInspectable), E_NOINTERFACE},
               {cap::IItemClosedHandler::kIid, E_NOINTERFACE}};
  for (const auto& c : cases) {
    void* object = reinterpret_cast<void*>(1);
    EXPECT_EQ(handler->QueryInterface(c.iid, &object), c.result) << GuidText(c.iid).c_str();
    EXPECT_EQ(object, c.result == S_OK ? static_cast<void*>(handler.get()) : nullptr);
    if (object) {
      EXPECT_EQ(handler->Release(), 1u);
    }
  }
  EXPECT_EQ(handler->QueryInterface(__uuidof(IUnknown), nullptr), E_POINTER);

  EXPECT_EQ(handler->AddRef(), 2u);
  EXPECT_EQ(handler->Release(), 1u);
  EXPECT_FALSE(watch.expired());
  handler.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(CaptureAbiTest, InvokeCallsThroughWithTheSenderAndSwallowsExceptions) {
  cap::IGraphicsCaptureItem* seen = nullptr;
  auto* sender = reinterpret_cast<cap::IGraphicsCaptureItem*>(0x1000);
  ComPtr<cap::IItemClosedHandler> recording =
      cap::ItemClosedDelegate::Make([&seen](cap::IGraphicsCaptureItem* item) { seen = item; });
  EXPECT_EQ(recording->Invoke(sender, nullptr), S_OK);
  EXPECT_EQ(seen, sender);

  int calls = 0;
  ComPtr<cap::IItemClosedHandler> throwing =
      cap::ItemClosedDelegate::Make([&calls](cap::IGraphicsCaptureItem*) {
        ++calls;
        throw std::runtime_error("handler failure");
      });
  EXPECT_EQ(throwing->Invoke(sender, nullptr), S_OK);
  EXPECT_EQ(calls, 1);
}

// Wine has no window capture: what these tests check is that its absence is reported
// and survived, and they step aside on a system that has it.
class CaptureUnsupportedTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
    OpenLogAt(log_path_);
  }
  void TearDown() override {
    CloseLog();
    CoUninitialize();
  }
  std::string LogText() const { return test::ReadFileBytes(log_path_).value_or(""); }

  test::TempDir dir_;
  std::wstring log_path_ = dir_.File(L"hintwick.log");
};

TEST_F(CaptureUnsupportedTest, SupportCheckSaysNoAndLogsWhy) {
  if (Capture::IsSupported()) GTEST_SKIP() << "window capture is available here";
  EXPECT_NE(LogText().find("ERROR RoGetActivationFactory(GraphicsCaptureSession) failed: "
                           "0x80040154"),
            std::string::npos)
      << LogText();
}

ComPtr<ID3D11Device> MakeDevice() {
  ComPtr<ID3D11Device> device;
  for (D3D_DRIVER_TYPE type : {D3D_DRIVER_TYPE_HARDWARE, D3D_DRIVER_TYPE_WARP}) {
    if (SUCCEEDED(D3D11CreateDevice(nullptr, type, nullptr, D3D11_CREATE_DEVICE_BGRA_SUPPORT,
                                    nullptr, 0, D3D11_SDK_VERSION, device.put(), nullptr,
                                    nullptr))) {
      break;
    }
  }
  return device;
}

TEST_F(CaptureUnsupportedTest, StartOnARealWindowFailsCleanly) {
  if (Capture::IsSupported()) GTEST_SKIP() << "window capture is available here";
  UniqueHwnd window(CreateWindowExW(0, L"STATIC", L"game", WS_OVERLAPPEDWINDOW | WS_VISIBLE, 0, 0,
                                    640, 480, nullptr, nullptr, nullptr, nullptr));
  ASSERT_TRUE(window);
  ComPtr<ID3D11Device> device = MakeDevice();

  Capture capture;
  EXPECT_FALSE(capture.Start(window.get(), device.get(), 30, 1));
  EXPECT_NE(LogText().find("ERROR RoGetActivationFactory(GraphicsCaptureItem) failed: "
                           "0x80040154"),
            std::string::npos)
      << LogText();
  EXPECT_FALSE(capture.TakeLatest());
  EXPECT_EQ(capture.Counts().arrived, 0);
  EXPECT_FALSE(capture.Closed());
  capture.Stop();
}

}  // namespace
}  // namespace qn
