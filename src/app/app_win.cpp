#include "app/app.h"

#include <atomic>
#include <cstring>
#include <exception>
#include <memory>

#include "app/messages.h"
#include "app/single_instance.h"
#include "core/log.h"
#include "core/utf.h"

namespace qn {
namespace {


constexpr wchar_t kNotSignedInStatus[] =
    L"Not signed in \u2014 open Hintwick from the tray icon to sign in or create an account.";
constexpr wchar_t kCheckingSuffix[] = L" \u2014 checking\u2026";
constexpr wchar_t kNoWikiSuffix[] = L" \u2014 no wiki yet, answering from general knowledge";
constexpr wchar_t kNoProgressSuffix[] = L" \u2014 progress not set, gated to the start";
constexpr wchar_t kCachedSuffix[] = L" \u2014 offline, using what is cached";
constexpr wchar_t kOfflineMark[] = L"  (offline)";
constexpr wchar_t kCopiedNotice[] = L"Answer copied.";

// Workers post to the window after the application may be gone; the window procedure then
// only frees what they sent.
std::atomic<App*> g_app{nullptr};

void DeliverChatEvent(WPARAM wparam) {
  std::unique_ptr<std::string> event = AdoptPosted(kMsgChatEvent, wparam);
  if (App* app = g_app.load()) app->OnChatEvent(event.release());
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
        DeliverChatEvent(wparam);
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
    Log(kLogWarn, L"GlobalAlloc failed: %lu", GetLastError());
    return;
  }
  void* target = GlobalLock(memory.get());
  if (!target) {
    Log(kLogWarn, L"GlobalLock failed: %lu", GetLastError());
    return;
  }
  std::memcpy(target, text.c_str(), bytes);
  GlobalUnlock(memory.get());
  if (SetClipboardData(CF_UNICODETEXT, memory.get())) {
    static_cast<void>(memory.release());  // the clipboard owns it now
  } else {
    Log(kLogWarn, L"SetClipboardData failed: %lu", GetLastError());
  }
}

std::wstring SnapshotStatus(const GameLookupResult& snapshot) {
  std::wstring line = Utf8ToWide(
      snapshot.known && !snapshot.display_name.empty() ? snapshot.display_name : snapshot.key);
  if (!snapshot.has_index) {
    line += kNoWikiSuffix;
  } else if (snapshot.memory_loaded) {
    line += snapshot.stage.empty() ? std::wstring(kNoProgressSuffix)
                                   : L" \u2014 " + Utf8ToWide(snapshot.stage);
  } else {
    line += kCachedSuffix;
  }
  if (snapshot.catalogue_stale) line += kOfflineMark;
  return line;
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
  const std::wstring answer = chat_view_.AnswerText();
  if (answer.empty()) return;
  if (!OpenClipboard(window_.get())) {
    Log(kLogWarn, L"OpenClipboard failed: %lu", GetLastError());
    return;
  }
  PutOnClipboard(answer);
  CloseClipboard();
  chat_view_.SetText(kRoleNotice, kCopiedNotice);
}

void App::RefreshStatusLine() {
  if (!shell_.chat_view_ready) return;
  if (!session_.IsSignedIn()) {
    chat_view_.SetStatusLine(kNotSignedInStatus);
    return;
  }
  chat_view_.SetStatusLine(CatalogueName(shell_.game_key) + kCheckingSuffix);
}

// Only the table already at hand: this runs on the interface thread, which must not wait on
// the service.
std::wstring App::CatalogueName(const std::string& key) {
  for (const GameEntry& game : session_.GetGames(false, 0)) {
    if (game.slug != key) continue;
    if (!game.display_name.empty()) return Utf8ToWide(game.display_name);
    break;
  }
  return Utf8ToWide(key);
}

// A snapshot for a game the player has since left would label the current one wrongly.
void App::OnProgressSnapshot(GameLookupResult* snapshot) {
  const std::unique_ptr<GameLookupResult> owned(snapshot);
  if (!owned || !shell_.chat_view_ready) return;
  if (owned->key != shell_.game_key) {
    Log(kLogInfo, L"discarding a progress snapshot for '%hs'; current game is '%hs'",
        owned->key.c_str(), shell_.game_key.c_str());
    return;
  }
  if (owned->signed_in) chat_view_.SetStatusLine(SnapshotStatus(*owned));
}

}  // namespace qn
