#include "core/system_dlls.h"

#include "core/module_proc.h"

namespace qn {
namespace {

template <typename Table>
Table Whole(const Table& table, bool found) noexcept {
  return found ? table : Table{};
}

// The caller's LogLastError then names the cause, on every call and not only the first.
template <typename Table>
const Table& Checked(const Table& table) noexcept {
  if (!table) SetLastError(ERROR_PROC_NOT_FOUND);
  return table;
}

WinHttpApi LoadWinHttp() noexcept {
  HMODULE dll = LoadSystemLibrary(L"winhttp.dll");
  WinHttpApi t;
  const bool found = Resolve(dll, t.Open, "WinHttpOpen") &&
                     Resolve(dll, t.Connect, "WinHttpConnect") &&
                     Resolve(dll, t.OpenRequest, "WinHttpOpenRequest") &&
                     Resolve(dll, t.AddRequestHeaders, "WinHttpAddRequestHeaders") &&
                     Resolve(dll, t.SendRequest, "WinHttpSendRequest") &&
                     Resolve(dll, t.ReceiveResponse, "WinHttpReceiveResponse") &&
                     Resolve(dll, t.QueryHeaders, "WinHttpQueryHeaders") &&
                     Resolve(dll, t.QueryDataAvailable, "WinHttpQueryDataAvailable") &&
                     Resolve(dll, t.ReadData, "WinHttpReadData") &&
                     Resolve(dll, t.SetOption, "WinHttpSetOption") &&
                     Resolve(dll, t.SetStatusCallback, "WinHttpSetStatusCallback") &&
                     Resolve(dll, t.SetTimeouts, "WinHttpSetTimeouts") &&
                     Resolve(dll, t.CrackUrl, "WinHttpCrackUrl") &&
                     Resolve(dll, t.CloseHandle, "WinHttpCloseHandle");
  return Whole(t, found);
}

BcryptApi LoadBcrypt() noexcept {
  HMODULE dll = LoadSystemLibrary(L"bcrypt.dll");
  BcryptApi t;
  const bool found = Resolve(dll, t.OpenAlgorithmProvider, "BCryptOpenAlgorithmProvider") &&
                     Resolve(dll, t.CloseAlgorithmProvider, "BCryptCloseAlgorithmProvider") &&
                     Resolve(dll, t.GetProperty, "BCryptGetProperty") &&
                     Resolve(dll, t.CreateHash, "BCryptCreateHash") &&
                     Resolve(dll, t.HashData, "BCryptHashData") &&
                     Resolve(dll, t.FinishHash, "BCryptFinishHash") &&
                     Resolve(dll, t.DestroyHash, "BCryptDestroyHash") &&
                     Resolve(dll, t.ImportKeyPair, "BCryptImportKeyPair") &&
                     Resolve(dll, t.VerifySignature, "BCryptVerifySignature") &&
                     Resolve(dll, t.DestroyKey, "BCryptDestroyKey");
  return Whole(t, found);
}

WinRtApi LoadWinRt() noexcept {
  HMODULE dll = LoadSystemLibrary(L"combase.dll");
  WinRtApi t;
  const bool found = Resolve(dll, t.GetActivationFactory, "RoGetActivationFactory") &&
                     Resolve(dll, t.CreateString, "WindowsCreateString") &&
                     Resolve(dll, t.DeleteString, "WindowsDeleteString");
  return Whole(t, found);
}

}  // namespace

// A failed load is not retried: what a DLL lacks today it lacks for the whole run.
const WinHttpApi& WinHttp() noexcept {
  static const WinHttpApi api = LoadWinHttp();
  return Checked(api);
}

const BcryptApi& Bcrypt() noexcept {
  static const BcryptApi api = LoadBcrypt();
  return Checked(api);
}

const WinRtApi& WinRt() noexcept {
  static const WinRtApi api = LoadWinRt();
  return Checked(api);
}

}  // namespace qn
