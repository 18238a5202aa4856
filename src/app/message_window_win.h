#pragma once
// The message-only window through which everything reaches the interface thread: the hotkey,
// the tray icon, the timers, a second instance's note and the workers' results. It owns its
// window procedure and a table of handlers; a payload posted to it is always adopted and
// freed here, also once the handlers are gone.
#include <windows.h>

#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "core/handles.h"
#include "core/posted_message.h"

namespace qn {

inline constexpr wchar_t kMessageWindowTitle[] = L"Hintwick";

class MessageWindow {
 public:
  using Handler = std::function<void(WPARAM, LPARAM)>;

  MessageWindow() = default;
  ~MessageWindow() { Destroy(); }
  MessageWindow(const MessageWindow&) = delete;
  MessageWindow& operator=(const MessageWindow&) = delete;

  // Logs "message window creation failed" with the error on failure.
  bool Create(HINSTANCE instance);
  HWND get() const { return window_.get(); }

  void On(UINT message, Handler handler) { handlers_[message] = std::move(handler); }
  void OnCommand(UINT command, std::function<void()> handler);
  void OnTimer(UINT_PTR timer, std::function<void()> handler);
  // The handler gets the payload and the message's LPARAM.
  template <typename T>
  void OnPosted(PostedMessage<T> message, std::function<void(std::unique_ptr<T>, LPARAM)> handler);

  // From here on, messages only free their payloads: nothing reacts on the way out.
  void StopHandling() { handlers_.clear(); }
  // Frees what was posted and never handled, then destroys the window.
  void Destroy();

 private:
  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM wparam,
                                    LPARAM lparam) noexcept;
  bool Dispatch(UINT message, WPARAM wparam, LPARAM lparam);

  UniqueHwnd window_;
  std::map<UINT, Handler> handlers_;
  std::map<UINT, std::function<void(WPARAM)>> payload_deleters_;
  std::map<UINT, std::function<void()>> commands_;
  std::map<UINT_PTR, std::function<void()>> timers_;
};

template <typename T>
void MessageWindow::OnPosted(PostedMessage<T> message,
                             std::function<void(std::unique_ptr<T>, LPARAM)> handler) {
  payload_deleters_[message.id] = [message](WPARAM wparam) { AdoptPosted(message, wparam); };
  handlers_[message.id] = [message, handler = std::move(handler)](WPARAM wparam, LPARAM lparam) {
    handler(AdoptPosted(message, wparam), lparam);
  };
}

}  // namespace qn
