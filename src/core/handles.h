#pragma once
// Owning wrappers for Windows handles and COM objects. Every handle kind is one
// alias of UniqueHandle below, so ownership rules are written once.
#include <objbase.h>
#include <windows.h>

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

  void reset(H handle = Invalid()) noexcept {
    H old = std::exchange(handle_, handle);
    if (old != Invalid()) Close(old);
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
using UniqueHwnd = UniqueHandle<HWND, &DestroyWindow>;
using UniqueHhook = UniqueHandle<HHOOK, &UnhookWindowsHookEx>;
using UniqueHicon = UniqueHandle<HICON, &DestroyIcon>;
using UniqueHmenu = UniqueHandle<HMENU, &DestroyMenu>;
using UniqueHmodule = UniqueHandle<HMODULE, &FreeLibrary>;
using UniqueHkey = UniqueHandle<HKEY, &RegCloseKey>;
using UniqueWinEventHook = UniqueHandle<HWINEVENTHOOK, &UnhookWinEvent>;
using UniqueLocalMemory = UniqueHandle<HLOCAL, &LocalFree>;
using UniqueCoTaskString = UniqueHandle<PWSTR, &CoTaskMemFree>;
using UniqueCFile = UniqueHandle<FILE*, &fclose>;

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
