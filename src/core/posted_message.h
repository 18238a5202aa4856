#pragma once
// Workers hand results to the interface thread as window messages whose WPARAM owns a heap
// payload. The message's id and its payload type travel together, so a receiver cannot
// adopt a payload as the wrong type, and a payload the system refuses is freed, not leaked.
#include <windows.h>

#include <memory>

#include "core/failure_log.h"

namespace qn {

template <typename T>
struct PostedMessage {
  UINT id;
};

// A null payload is a valid message of its own (the end of a chat turn). `tag` rides in
// LPARAM, for a receiver that must tell one worker's run from the next.
template <typename T>
bool PostOwned(HWND window, PostedMessage<T> message, std::unique_ptr<T> payload,
               LPARAM tag = 0) {
  // A null window would make it a thread message, which no window procedure ever frees.
  if (!window) return false;
  if (!PostMessageW(window, message.id, reinterpret_cast<WPARAM>(payload.get()), tag)) {
    return LogLastError(L"PostMessageW", kLogWarn);
  }
  static_cast<void>(payload.release());  // the receiver owns it now
  return true;
}

template <typename T>
std::unique_ptr<T> AdoptPosted(PostedMessage<T> /*message*/, WPARAM wparam) {
  return std::unique_ptr<T>(reinterpret_cast<T*>(wparam));
}

}  // namespace qn
