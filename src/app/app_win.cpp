#include "app/app.h"

#include <atomic>
#include <cstring>
#include <exception>
#include <memory>

#include "app/messages.h"
#include "app/single_instance.h"
#include "core/failure_log.h"
#include "core/log.h"

namespace qn {
namespace {

constexpr wchar_t kCopiedNotice[] = L"Answer copied.";

// Workers post to the window after the application may be gone; the window procedure then
// only frees what they sent.
std::atomic<App*> g_app{nullptr};

void DeliverChatEvent(WPARAM wparam, LPARAM turn) {
  std::unique_ptr<std::string> event = AdoptPosted(kMsgChatEvent, wparam);
  if (App* app = g_app.load()) app->OnChatEvent(static_cast<ChatTurnId>(turn), event.release());
}

void DeliverSnapshot(WPARAM wparam) {
  std::unique_ptr<GameLookupResult> snapshot = AdoptPosted(kMsgProgressSnapshot, wparam);
  if (App* app = g_app.load()) app->OnProgressSnapshot(snapshot.release());
}

// The system calls this from its own frames, which no exception may cross.
LRESULT CALLBACK MessageWindowProc(HWND window, UINT message, WPARAM wparam,
                                   LPARAM lparam) noexcept {
  try {
    switch (message) {
      case kMsgChatEvent.id:
        DeliverChatEvent(wparam, lparam);
        return 0;
      case kMsgProgressSnapshot.id:
        DeliverSnapshot(wparam);
        return 0;
      default:
        break;
    }
  } catch (const std::exception& e) {
    Log(kLogWarn, L"message 0x%04X failed: %hs", message, e.what());
    return 0;
  } catch (...) {
    Log(kLogWarn, L"message 0x%04X failed: %hs", message, "unknown exception");
    return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

// Payloads of the workers that were joined after their last post but before it was handled.
void FreeUndelivered(HWND window) {
  MSG message;
  for (const UINT kind : {kMsgChatEvent.id, kMsgProgressSnapshot.id}) {
    while (PeekMessageW(&message, window, kind, kind, PM_REMOVE)) DispatchMessageW(&message);
  }
}

// The clipboard stays open and the notice is shown whatever happens here, so failures are
// only logged.
void PutOnClipboard(const std::wstring& text) {
  EmptyClipboard();
  const size_t bytes = (text.size() + 1) * sizeof(wchar_t);
  UniqueGlobal memory(GlobalAlloc(GMEM_MOVEABLE, bytes));
  if (!memory) {
    LogLastError(L"GlobalAlloc", kLogWarn);
    return;
  }
  {
    const GlobalLockScope<wchar_t> target(memory.get());
    if (!target) {
      LogLastError(L"GlobalLock", kLogWarn);
      return;
    }
    std::memcpy(target.get(), text.c_str(), bytes);
  }
  if (SetClipboardData(CF_UNICODETEXT, memory.get())) {
    static_cast<void>(memory.release());  // the clipboard owns it now
  } else {
    LogLastError(L"SetClipboardData", kLogWarn);
  }
}

ProgressFacts FactsOf(const GameLookupResult& snapshot) {
  return {snapshot.key,
          snapshot.signed_in,
          snapshot.known ? snapshot.display_name : "",
          snapshot.has_index,
          snapshot.memory_loaded,
          snapshot.stage,
          snapshot.catalogue_stale};
}

}  // namespace

App::App(HINSTANCE instance) : instance_(instance) {}

App::~App() { Shutdown(); }

bool App::Init() {
  g_app.store(this);
  return CreateMessageWindow();
}

bool App::CreateMessageWindow() {
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &MessageWindowProc;
  window_class.hInstance = instance_;
  window_class.lpszClassName = kMessageWindowClass;
  // Already registered by an earlier application object of this process.
  if (!RegisterClassExW(&window_class) && GetLastError() != ERROR_CLASS_ALREADY_EXISTS) {
    Log(kLogError, L"message window creation failed: %lu", GetLastError());
    return false;
  }
  window_.reset(CreateWindowExW(0, kMessageWindowClass, kAppTitle, 0, 0, 0, 0, 0, HWND_MESSAGE,
                                nullptr, instance_, nullptr));
  if (!window_) Log(kLogError, L"message window creation failed: %lu", GetLastError());
  return static_cast<bool>(window_);
}

// The pointer goes before the last payloads are freed, so that they are only freed: applying
// them now could chime or arm a timer on the way out.
void App::Shutdown() {
  session_.Shutdown();
  App* self = this;
  g_app.compare_exchange_strong(self, nullptr);
  if (window_) FreeUndelivered(window_.get());
  window_.reset();
}

// The owner would be the drawer window; the message window stands in for it until the drawer
// exists. Not null: with no owner, EmptyClipboard leaves a clipboard that SetClipboardData
// refuses to fill.
void App::CopyAnswer() {
  const std::wstring answer = chat_.AnswerText();
  if (answer.empty()) return;
  {
    const OpenedClipboard clipboard(window_.get());
    if (!clipboard) {
      LogLastError(L"OpenClipboard", kLogWarn);
      return;
    }
    PutOnClipboard(answer);
  }
  chat_.SetText(kRoleNotice, kCopiedNotice);
}

// Only the table already at hand: this runs on the interface thread, which must not wait on
// the service.
void App::RefreshStatusLine() {
  ShowLookupStatus(session_.IsSignedIn(), session_.GetGames(false, 0), Context(), chat_);
}

void App::OnProgressSnapshot(GameLookupResult* snapshot) {
  const std::unique_ptr<GameLookupResult> owned(snapshot);
  if (!owned) return;
  if (ShowProgressStatus(FactsOf(*owned), Context(), chat_) == ProgressUse::kOtherGame) {
    Log(kLogInfo, L"discarding a progress snapshot for '%hs'; current game is '%hs'",
        owned->key.c_str(), shell_.game_key.c_str());
  }
}

}  // namespace qn
