#pragma once
// Owning wrappers for Windows handles and COM objects. Every handle kind is one
// alias of UniqueHandle below, so ownership rules are written once.
#include <objbase.h>
#include <windows.h>

#include "core/system_dlls.h"

#include <cstdio>
#include <utility>

namespace qn {

// Most kinds are invalid when null; file and find handles use INVALID_HANDLE_VALUE,
// which is not a constant expression, so the sentinel comes from a policy type.
struct NullIsInvalid {
  template <typename H>
  static H Invalid() noexcept {
    return H{};
  }
};
struct MinusOneIsInvalid {
  template <typename H>
  static H Invalid() noexcept {
    return INVALID_HANDLE_VALUE;
  }
};

template <typename H, auto Close, typename Policy = NullIsInvalid>
class UniqueHandle {
 public:
  UniqueHandle() noexcept = default;
  explicit UniqueHandle(H handle) noexcept : handle_(handle) {}
  UniqueHandle(UniqueHandle&& other) noexcept : handle_(other.release()) {}
  UniqueHandle& operator=(UniqueHandle&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueHandle(const UniqueHandle&) = delete;
  UniqueHandle& operator=(const UniqueHandle&) = delete;
  ~UniqueHandle() { reset(); }

  H get() const noexcept { return handle_; }
  explicit operator bool() const noexcept { return handle_ != Invalid(); }

  // Keeps the thread's last error: callers release on failure paths and then report
  // GetLastError, which the close function would otherwise overwrite.
  void reset(H handle = Invalid()) noexcept {
    H old = std::exchange(handle_, handle);
    if (old == Invalid()) return;
    const DWORD error = GetLastError();
    Close(old);
    SetLastError(error);
  }
  [[nodiscard]] H release() noexcept { return std::exchange(handle_, Invalid()); }
  // For out-parameters: frees what is held, then hands out the slot.
  H* put() noexcept {
    reset();
    return &handle_;
  }

 private:
  static H Invalid() noexcept { return Policy::template Invalid<H>(); }
  H handle_ = Invalid();
};

using UniqueKernelHandle = UniqueHandle<HANDLE, &CloseHandle>;
using UniqueFileHandle = UniqueHandle<HANDLE, &CloseHandle, MinusOneIsInvalid>;
using UniqueFindHandle = UniqueHandle<HANDLE, &FindClose, MinusOneIsInvalid>;
using UniqueHwnd = UniqueHandle<HWND, &DestroyWindow>;
using UniqueHhook = UniqueHandle<HHOOK, &UnhookWindowsHookEx>;
using UniqueHicon = UniqueHandle<HICON, &DestroyIcon>;
using UniqueHmenu = UniqueHandle<HMENU, &DestroyMenu>;
using UniqueHdc = UniqueHandle<HDC, &DeleteDC>;
using UniqueHbitmap = UniqueHandle<HBITMAP, &DeleteObject>;
using UniqueHfont = UniqueHandle<HFONT, &DeleteObject>;
using UniqueHmodule = UniqueHandle<HMODULE, &FreeLibrary>;
using UniqueHkey = UniqueHandle<HKEY, &RegCloseKey>;
using UniqueWinEventHook = UniqueHandle<HWINEVENTHOOK, &UnhookWinEvent>;
using UniqueLocalMemory = UniqueHandle<HLOCAL, &LocalFree>;
using UniqueCoTaskString = UniqueHandle<PWSTR, &CoTaskMemFree>;
using UniqueCFile = UniqueHandle<FILE*, &fclose>;
using UniqueGlobal = UniqueHandle<HGLOBAL, &GlobalFree>;
// These DLLs load at run time (system_dlls.h); a handle exists only once its table is whole.
inline void CloseInternet(HINTERNET handle) noexcept { WinHttp().CloseHandle(handle); }
using UniqueHinternet = UniqueHandle<HINTERNET, &CloseInternet>;
inline void DeleteHstring(HSTRING text) noexcept { WinRt().DeleteString(text); }
using UniqueHstring = UniqueHandle<HSTRING, &DeleteHstring>;
inline void CloseBcryptAlgorithm(BCRYPT_ALG_HANDLE algorithm) noexcept {
  Bcrypt().CloseAlgorithmProvider(algorithm, 0);
}
using UniqueBcryptAlgorithm = UniqueHandle<BCRYPT_ALG_HANDLE, &CloseBcryptAlgorithm>;
inline void DestroyBcryptHash(BCRYPT_HASH_HANDLE hash) noexcept { Bcrypt().DestroyHash(hash); }
using UniqueBcryptHash = UniqueHandle<BCRYPT_HASH_HANDLE, &DestroyBcryptHash>;
inline void DestroyBcryptKey(BCRYPT_KEY_HANDLE key) noexcept { Bcrypt().DestroyKey(key); }
using UniqueBcryptKey = UniqueHandle<BCRYPT_KEY_HANDLE, &DestroyBcryptKey>;

// Scope guards for the pairs of calls that are not handles.

// COM for this thread, undone only if it was done here. RPC_E_CHANGED_MODE (another
// apartment already) counts as a failure: the caller asked for a model it did not get.
class ComApartment {
 public:
  explicit ComApartment(DWORD model) noexcept : hr_(CoInitializeEx(nullptr, model)) {}
  ~ComApartment() {
    if (SUCCEEDED(hr_)) CoUninitialize();
  }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;
  HRESULT Result() const noexcept { return hr_; }
  explicit operator bool() const noexcept { return SUCCEEDED(hr_); }

 private:
  HRESULT hr_;
};

class OpenedClipboard {
 public:
  explicit OpenedClipboard(HWND owner) noexcept : open_(OpenClipboard(owner) != FALSE) {}
  ~OpenedClipboard() {
    if (open_) CloseClipboard();
  }
  OpenedClipboard(const OpenedClipboard&) = delete;
  OpenedClipboard& operator=(const OpenedClipboard&) = delete;
  explicit operator bool() const noexcept { return open_; }

 private:
  bool open_;
};

template <typename T>
class GlobalLockScope {
 public:
  explicit GlobalLockScope(HGLOBAL memory) noexcept
      : memory_(memory), data_(static_cast<T*>(GlobalLock(memory))) {}
  ~GlobalLockScope() {
    if (data_) GlobalUnlock(memory_);
  }
  GlobalLockScope(const GlobalLockScope&) = delete;
  GlobalLockScope& operator=(const GlobalLockScope&) = delete;
  T* get() const noexcept { return data_; }
  explicit operator bool() const noexcept { return data_ != nullptr; }

 private:
  HGLOBAL memory_;
  T* data_;
};

template <typename T>
class ComPtr {
 public:
  ComPtr() noexcept = default;
  ComPtr(const ComPtr& other) noexcept : ptr_(other.ptr_) { AddRef(); }
  ComPtr(ComPtr&& other) noexcept : ptr_(std::exchange(other.ptr_, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(ptr_, other.ptr_);
    return *this;
  }
  ~ComPtr() { reset(); }

  T* get() const noexcept { return ptr_; }
  T* operator->() const noexcept { return ptr_; }
  explicit operator bool() const noexcept { return ptr_ != nullptr; }

  void reset() noexcept {
    if (T* old = std::exchange(ptr_, nullptr)) old->Release();
  }
  T** put() noexcept {
    reset();
    return &ptr_;
  }
  // Adopts a pointer whose reference the caller already owns.
  void attach(T* ptr) noexcept {
    reset();
    ptr_ = ptr;
  }

  template <typename U>
  ComPtr<U> As() const noexcept {
    ComPtr<U> other;
    if (ptr_) ptr_->QueryInterface(IID_PPV_ARGS(other.put()));
    return other;
  }

 private:
  void AddRef() const noexcept {
    if (ptr_) ptr_->AddRef();
  }
  T* ptr_ = nullptr;
};

}  // namespace qn
