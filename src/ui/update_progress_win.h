#pragma once
// The small window that shows an update arriving and lets the player stop it. It is not
// modal: the program goes on answering the hotkey, the tray and the settings window while the
// download runs on its worker.
#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>

#include "core/handles.h"

namespace qn {

inline constexpr wchar_t kUpdateProgressClass[] = L"HintwickUpdateProgress";

class UpdateProgressWindow {
 public:
  UpdateProgressWindow() = default;
  ~UpdateProgressWindow() { Close(); }
  // The window procedure finds the object through the window, so it must stay put.
  UpdateProgressWindow(const UpdateProgressWindow&) = delete;
  UpdateProgressWindow& operator=(const UpdateProgressWindow&) = delete;

  // Shown in front, centred on the monitor of `owner` (or of the cursor). Cancel, the close
  // box and Esc all call `on_cancel`, once; the window stays until Close.
  bool Open(HINSTANCE instance, HWND owner, const std::wstring& text,
            std::function<void()> on_cancel);
  void Show(const std::wstring& text, uint64_t got, uint64_t total);
  void Close() { window_.reset(); }
  HWND get() const { return window_.get(); }

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam, LPARAM lparam);
  bool CreateControls(HINSTANCE instance);
  void LayOut();
  void Cancel();

  UniqueHwnd window_;
  UniqueHfont font_;
  HWND text_ = nullptr;
  HWND bar_ = nullptr;
  HWND cancel_ = nullptr;
  std::function<void()> on_cancel_;
};

}  // namespace qn
