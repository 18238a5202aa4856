#include "app/message_window_win.h"

#include <exception>

#include "app/single_instance.h"
#include "core/log.h"
#include "core/os.h"

namespace qn {

bool MessageWindow::Create(HINSTANCE instance) {
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &Procedure;
  window_class.hInstance = instance;
  window_class.lpszClassName = kMessageWindowClass;
  if (!EnsureWindowClass(window_class)) {
    Log(kLogError, L"message window creation failed: %lu", GetLastError());
    return false;
  }
  window_.reset(CreateWindowExW(0, kMessageWindowClass, kMessageWindowTitle, 0, 0, 0, 0, 0,
                                HWND_MESSAGE, nullptr, instance, this));
  if (!window_) Log(kLogError, L"message window creation failed: %lu", GetLastError());
  return static_cast<bool>(window_);
}

void MessageWindow::OnCommand(UINT command, std::function<void()> handler) {
  commands_[command] = std::move(handler);
  handlers_[WM_COMMAND] = [this](WPARAM wparam, LPARAM) {
    const auto found = commands_.find(LOWORD(wparam));
    if (found != commands_.end()) found->second();
  };
}

void MessageWindow::OnTimer(UINT_PTR timer, std::function<void()> handler) {
  timers_[timer] = std::move(handler);
  handlers_[WM_TIMER] = [this](WPARAM wparam, LPARAM) {
    const auto found = timers_.find(wparam);
    if (found != timers_.end()) found->second();
  };
}

void MessageWindow::Destroy() {
  StopHandling();
  if (!window_) return;
  MSG message;
  for (const auto& [id, free_payload] : payload_deleters_) {
    while (PeekMessageW(&message, window_.get(), id, id, PM_REMOVE)) free_payload(message.wParam);
  }
  window_.reset();
}

// Handlers may be replaced while one runs (a command that closes the application), so the
// one that runs is a copy.
bool MessageWindow::Dispatch(UINT message, WPARAM wparam, LPARAM lparam) {
  const auto handler = handlers_.find(message);
  if (handler != handlers_.end()) {
    const Handler run = handler->second;
    run(wparam, lparam);
    return true;
  }
  const auto deleter = payload_deleters_.find(message);
  if (deleter == payload_deleters_.end()) return false;
  deleter->second(wparam);
  return true;
}

// The system calls this from its own frames, which no exception may cross.
LRESULT CALLBACK MessageWindow::Procedure(HWND window, UINT message, WPARAM wparam,
                                          LPARAM lparam) noexcept {
  if (message == WM_NCCREATE) {
    const auto* create = reinterpret_cast<const CREATESTRUCTW*>(lparam);
    SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(create->lpCreateParams));
  }
  auto* self = reinterpret_cast<MessageWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
  try {
    if (self && self->Dispatch(message, wparam, lparam)) return 0;
  } catch (const std::exception& e) {
    Log(kLogWarn, L"message 0x%04X failed: %hs", message, e.what());
    return 0;
  } catch (...) {
    Log(kLogWarn, L"message 0x%04X failed: %hs", message, "unknown exception");
    return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

}  // namespace qn
