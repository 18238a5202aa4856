#pragma once
// The functions of System32 DLLs that are called from more than one place, as tables loaded
// once through LoadSystemLibrary (module_proc.h). A table is whole or empty: callers check it
// where a handle is first made, and every later call on that handle can rely on it.
#include <windows.h>
// After windows.h, which they need for their base types.
#include <bcrypt.h>
#include <roapi.h>
#include <winhttp.h>
#include <winstring.h>

namespace qn {

struct WinHttpApi {
  decltype(&::WinHttpOpen) Open = nullptr;
  decltype(&::WinHttpConnect) Connect = nullptr;
  decltype(&::WinHttpOpenRequest) OpenRequest = nullptr;
  decltype(&::WinHttpAddRequestHeaders) AddRequestHeaders = nullptr;
  decltype(&::WinHttpSendRequest) SendRequest = nullptr;
  decltype(&::WinHttpReceiveResponse) ReceiveResponse = nullptr;
  decltype(&::WinHttpQueryHeaders) QueryHeaders = nullptr;
  decltype(&::WinHttpQueryDataAvailable) QueryDataAvailable = nullptr;
  decltype(&::WinHttpReadData) ReadData = nullptr;
  decltype(&::WinHttpSetOption) SetOption = nullptr;
  decltype(&::WinHttpSetStatusCallback) SetStatusCallback = nullptr;
  decltype(&::WinHttpSetTimeouts) SetTimeouts = nullptr;
  decltype(&::WinHttpCrackUrl) CrackUrl = nullptr;
  decltype(&::WinHttpCloseHandle) CloseHandle = nullptr;
  explicit operator bool() const noexcept { return CloseHandle != nullptr; }
};

struct BcryptApi {
  decltype(&::BCryptOpenAlgorithmProvider) OpenAlgorithmProvider = nullptr;
  decltype(&::BCryptCloseAlgorithmProvider) CloseAlgorithmProvider = nullptr;
  decltype(&::BCryptGetProperty) GetProperty = nullptr;
  decltype(&::BCryptCreateHash) CreateHash = nullptr;
  decltype(&::BCryptHashData) HashData = nullptr;
  decltype(&::BCryptFinishHash) FinishHash = nullptr;
  decltype(&::BCryptDestroyHash) DestroyHash = nullptr;
  decltype(&::BCryptImportKeyPair) ImportKeyPair = nullptr;
  decltype(&::BCryptDestroyKey) DestroyKey = nullptr;
  decltype(&::BCryptVerifySignature) VerifySignature = nullptr;
  explicit operator bool() const noexcept { return DestroyKey != nullptr; }
};

// Windows 8 and later: absent where the version refusal still has to be shown.
struct WinRtApi {
  decltype(&::RoGetActivationFactory) GetActivationFactory = nullptr;
  decltype(&::WindowsCreateString) CreateString = nullptr;
  decltype(&::WindowsDeleteString) DeleteString = nullptr;
  explicit operator bool() const noexcept { return DeleteString != nullptr; }
};

// Empty, with GetLastError set, when the DLL or any one of its functions is missing.
const WinHttpApi& WinHttp() noexcept;
const BcryptApi& Bcrypt() noexcept;
const WinRtApi& WinRt() noexcept;

}  // namespace qn
