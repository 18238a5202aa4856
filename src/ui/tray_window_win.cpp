#include "ui/tray_window_win.h"

#include <commctrl.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "core/handles.h"
#include "core/log.h"
#include "core/os.h"
#include "core/settings.h"
#include "core/utf.h"
#include "core/version.h"
#include "net/session.h"
#include "ui/tray_window_layout.h"
#include "ui/tray_window_state_win.h"
#include "ui/tray_window_text.h"

namespace qn {

// Reaches the owner's private members for the window procedure.
struct TrayWindowAccess {
  static void Forget(TrayWindow& owner) { owner.window_ = nullptr; }
  static const TrayWindowCallbacks& Callbacks(const TrayWindow& owner) { return owner.callbacks_; }
  static TrayRequests& Requests(TrayWindow& owner) { return owner.requests_; }
};

namespace {

constexpr DWORD kWindowStyle = WS_OVERLAPPED | WS_CAPTION | WS_SYSMENU | WS_MINIMIZEBOX;
constexpr wchar_t kWindowTitle[] = L"Hintwick - account and settings";
constexpr wchar_t kResetQuestion[] =
    L"Reset recorded progress for this game?\n\nYour preferences are kept. Answers go back to "
    L"being gated at the very beginning, so a fresh save is not spoiled by your last one.";

// "Not signed in" is what the status says already; only a reason adds anything.
std::wstring FailureText(ServiceFailure failure) {
  if (failure == ServiceFailure::kNone || failure == ServiceFailure::kNotSignedIn) return {};
  return Utf8ToWide(ServiceFailureText(failure));
}

void FocusFirstControl(HWND window) {
  if (const HWND first = GetNextDlgTabItem(window, nullptr, FALSE)) SetFocus(first);
}

void ShowProgress(TrayWindowState& state);

TrayRequests& Requests(const TrayWindowState& state) {
  return TrayWindowAccess::Requests(*state.owner);
}

// A disabled control keeps the focus but takes no keys, so the focus waits on the window,
// where Tab and Escape still work, and goes back when the controls do.
void ShowBusy(TrayWindowState& state, TrayRequestKind kind) {
  state.awaiting = true;
  const RequestStatus status = StatusOf(kind);
  SetStatus(state, status.control, status.waiting);
  const HWND focus = GetFocus();
  ShowRequestControls(state);
  if (focus && IsChild(state.window, focus) && !IsWindowEnabled(focus)) {
    state.parked_focus = focus;
    SetFocus(state.window);
  }
}

void EndBusy(TrayWindowState& state) {
  state.awaiting = false;
  ShowRequestControls(state);
  const HWND parked = std::exchange(state.parked_focus, nullptr);
  if (GetFocus() != state.window) return;
  if (parked && IsWindowEnabled(parked)) {
    SetFocus(parked);
  } else {
    FocusFirstControl(state.window);
  }
}

void ShowProgressRead(TrayWindowState& state, const TrayRequestResult& result) {
  std::optional<ProgressRead> read;
  if (result.progress_read) {
    read = ProgressRead{result.progress.loaded, Utf8ToWide(result.progress.stage),
                        result.progress.stage_ordinal};
  }
  ShowProgressText(state, read);
}

void OnAccountDone(TrayWindowState& state, const TrayRequestResult& result) {
  ShowAccountStatus(state, FailureText(result.failure));
  if (result.failure != ServiceFailure::kNone) {
    SetFocus(GetDlgItem(state.window, kIdPassword));
    return;
  }
  if (result.kind != TrayRequestKind::kSignOut) state.working.email = result.email;
  FocusFirstControl(state.window);
  ShowProgressRead(state, result);
}

void OnRequestDone(TrayWindowState& state, const TrayRequestResult& result) {
  EndBusy(state);
  switch (result.kind) {
    case TrayRequestKind::kSignIn:
    case TrayRequestKind::kRegister:
    case TrayRequestKind::kSignOut:
      OnAccountDone(state, result);
      break;
    case TrayRequestKind::kSave:
      SetStatus(state, kIdActionStatus, result.confirmed ? kSavedText : kStyleUnconfirmedText);
      break;
    case TrayRequestKind::kReset:
      SetStatus(state, kIdActionStatus, result.confirmed ? kResetDoneText : kResetFailedText);
      ShowProgressRead(state, result);
      break;
    case TrayRequestKind::kReadProgress:
      ShowProgressRead(state, result);
      break;
  }
  if (std::exchange(state.progress_wanted, false)) ShowProgress(state);
}

// A result for a window that was opened after its request ended is old news: the window read
// the session afresh. The request's thread has only the posting left when its result arrives.
void OnRequestPosted(TrayWindowState& state, std::unique_ptr<TrayRequestResult> result,
                     LPARAM serial) {
  if (!result || !state.awaiting || static_cast<uint64_t>(serial) != state.awaited) return;
  Requests(state).Wait();
  OnRequestDone(state, *result);
}

// A thread that cannot be had fails the request as the service's silence would.
void StartRequest(TrayWindowState& state, std::unique_ptr<TrayRequest> request) {
  const TrayRequestResult failed = FailedResult(*request);
  ShowBusy(state, request->kind);
  state.awaited = Requests(state).Start(*state.session, std::move(request));
  if (state.awaited == 0) OnRequestDone(state, failed);
}

std::unique_ptr<TrayRequest> NewRequest(const TrayWindowState& state, TrayRequestKind kind) {
  auto request = std::make_unique<TrayRequest>();
  request->kind = kind;
  request->game_key = state.game_key;
  return request;
}

// Signed out or without a game, there is nothing to ask the service.
void ShowProgress(TrayWindowState& state) {
  if (!state.session->IsSignedIn() || state.game_key.empty()) return ShowProgressText(state, {});
  if (state.awaiting) {
    state.progress_wanted = true;
    return;
  }
  StartRequest(state, NewRequest(state, TrayRequestKind::kReadProgress));
}

void SignInOrRegister(TrayWindowState& state, bool create) {
  auto request = NewRequest(state, create ? TrayRequestKind::kRegister : TrayRequestKind::kSignIn);
  request->email = WideToUtf8(ControlText(state.window, kIdEmail));
  TakePassword(GetDlgItem(state.window, kIdPassword),
               [&](const std::string& password) { request->password = password; });
  StartRequest(state, std::move(request));
}

// The file first: the service is told of the answer style only once the settings are safe.
// The application takes them at once; the service's answer changes nothing it uses.
void Save(TrayWindowState& state, const TrayWindowCallbacks& callbacks) {
  state.working.email = WideToUtf8(ControlText(state.window, kIdEmail));
  state.session->ApplySettings(state.working);
  if (!SaveSettings(state.session->CurrentSettings())) {
    SetStatus(state, kIdActionStatus, kSaveFailedText);
    return;
  }
  if (callbacks.settings_applied) callbacks.settings_applied();
  if (!state.session->IsSignedIn() || state.game_key.empty()) {
    SetStatus(state, kIdActionStatus, kSavedText);
    return;
  }
  auto request = NewRequest(state, TrayRequestKind::kSave);
  request->style.directness = DirectnessName(state.working.directness);
  request->style.spoilers_ok = state.working.spoilers_ok;
  StartRequest(state, std::move(request));
}

void ResetProgress(TrayWindowState& state) {
  if (MessageBoxW(state.window, kResetQuestion, L"Hintwick", MB_YESNO | MB_ICONQUESTION) != IDYES) {
    return;
  }
  // The question was modal: a request may have begun under it, from a refresh.
  if (!state.awaiting) StartRequest(state, NewRequest(state, TrayRequestKind::kReset));
}

void OnSettingChanged(TrayWindowState& state, int id) {
  switch (id) {
    case kIdSound:
      state.working.sound_enabled = IsChecked(state.window, kIdSound);
      EnableControl(state.window, kIdVolumeSlider, state.working.sound_enabled);
      break;
    case kIdSpoilers:
      state.working.spoilers_ok = IsChecked(state.window, kIdSpoilers);
      break;
    case kIdDirectness:
      state.working.directness = static_cast<int32_t>(
          SendDlgItemMessageW(state.window, kIdDirectness, CB_GETCURSEL, 0, 0));
      break;
    default:
      break;
  }
}

void OnCommand(TrayWindowState& state, int id, int code) {
  const TrayWindowCallbacks& callbacks = TrayWindowAccess::Callbacks(*state.owner);
  if (id == kIdDirectness) {
    if (code == CBN_SELCHANGE) OnSettingChanged(state, id);
    return;
  }
  if (code != BN_CLICKED) return;
  const int command = id == IDOK ? DefaultButtonId(state) : id;
  // Enter names the default button even while a request has disabled it.
  if (const HWND button = GetDlgItem(state.window, command); button && !IsWindowEnabled(button)) {
    return;
  }
  switch (command) {
    case kIdSignIn:
      SignInOrRegister(state, false);
      break;
    case kIdCreateAccount:
      SignInOrRegister(state, true);
      break;
    case kIdSignOut:
      StartRequest(state, NewRequest(state, TrayRequestKind::kSignOut));
      break;
    case kIdHotkey:
      StartHotkeyCapture(state);
      break;
    case kIdSound:
    case kIdSpoilers:
      OnSettingChanged(state, id);
      break;
    case kIdSave:
      Save(state, callbacks);
      break;
    case kIdResetProgress:
      ResetProgress(state);
      break;
    case kIdCheckUpdates:
      if (callbacks.check_for_updates) callbacks.check_for_updates();
      break;
    case kIdClose:
    case IDCANCEL:
      DestroyWindow(state.window);
      break;
    default:
      break;
  }
}

RECT WorkAreaOf(HMONITOR monitor) {
  MONITORINFO info = {};
  info.cbSize = sizeof(info);
  GetMonitorInfoW(monitor, &info);
  return info.rcWork;
}

// Laid out afresh from the top, at the place the system suggests on the new monitor.
void OnDpiChanged(TrayWindowState& state, UINT dpi, const RECT& suggested) {
  ScrollTrayWindow(state, 0);
  LayOutForDpi(state, dpi);
  PlaceTrayWindow(state, WorkAreaOf(MonitorFromRect(&suggested, MONITOR_DEFAULTTONEAREST)),
                  POINT{suggested.left, suggested.top});
}

// The focus goes back where the player left it when the window is activated again.
bool OnActivate(TrayWindowState& state, WORD activation) {
  if (activation == WA_INACTIVE) {
    state.focus = GetFocus();
    return false;
  }
  if (!state.focus || !IsChild(state.window, state.focus) || !IsWindowEnabled(state.focus)) {
    return false;
  }
  SetFocus(state.focus);
  return true;
}

std::optional<LRESULT> Handle(TrayWindowState& state, UINT message, WPARAM wparam, LPARAM lparam) {
  switch (message) {
    case WM_COMMAND:
      OnCommand(state, LOWORD(wparam), HIWORD(wparam));
      return 0;
    case WM_HSCROLL:
      TakeSliderPosition(state, reinterpret_cast<HWND>(lparam));
      return 0;
    case WM_CTLCOLORSTATIC:
      // The theme's own text colour: a dark high-contrast theme puts light text on black, and
      // the DC's default black would vanish there.
      SetTextColor(reinterpret_cast<HDC>(wparam), GetSysColor(COLOR_WINDOWTEXT));
      SetBkMode(reinterpret_cast<HDC>(wparam), TRANSPARENT);
      return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_WINDOW));
    case DM_GETDEFID:
      return MAKELRESULT(DefaultButtonId(state), DC_HASDEFID);
    case WM_GETDLGCODE:
      if (state.capturing_hotkey) return DLGC_WANTALLKEYS;
      break;
    case WM_KEYDOWN:
    case WM_SYSKEYDOWN:
      if (!state.capturing_hotkey) break;
      OnHotkeyKey(state, static_cast<uint32_t>(wparam));
      return 0;
    case WM_CHAR:
    case WM_SYSCHAR:
      // The combination was taken on its key-down; its character would only beep.
      if (state.capturing_hotkey) return 0;
      break;
    case WM_KILLFOCUS:
      if (state.capturing_hotkey) OnHotkeyKey(state, VK_ESCAPE);
      break;
    case WM_ACTIVATE:
      if (OnActivate(state, LOWORD(wparam))) return 0;
      break;
    case WM_DPICHANGED:
      OnDpiChanged(state, HIWORD(wparam), *reinterpret_cast<const RECT*>(lparam));
      return 0;
    case kMsgRefreshProgress:
      ShowProgress(state);
      return 0;
    case kMsgTrayRequestDone.id:
      OnRequestPosted(state, AdoptPosted(kMsgTrayRequestDone, wparam), lparam);
      return 0;
    case WM_VSCROLL:
      OnTrayWindowScroll(state, LOWORD(wparam));
      return 0;
    case WM_MOUSEWHEEL:
      OnTrayWindowWheel(state, GET_WHEEL_DELTA_WPARAM(wparam));
      return 0;
    case kMsgControlFocused:
      ShowFocusedControl(state, reinterpret_cast<HWND>(wparam));
      return 0;
    default:
      break;
  }
  return std::nullopt;
}

// The state is handed over as the window is made, so exactly one of the two frees it.
void Adopt(HWND window, LPARAM lparam) {
  auto* holder = static_cast<std::unique_ptr<TrayWindowState>*>(
      reinterpret_cast<const CREATESTRUCTW*>(lparam)->lpCreateParams);
  (*holder)->window = window;
  SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(holder->release()));
}

void Free(HWND window, TrayWindowState* state) {
  SetWindowLongPtrW(window, GWLP_USERDATA, 0);
  TrayWindowAccess::Forget(*state->owner);
  delete state;
}

LRESULT CALLBACK TrayWindowProc(HWND window, UINT message, WPARAM wparam, LPARAM lparam) noexcept {
  if (message == WM_NCCREATE) Adopt(window, lparam);
  TrayWindowState* state = TrayWindowState::Of(window);
  if (!state) return DefWindowProcW(window, message, wparam, lparam);
  if (message == WM_NCDESTROY) {
    Free(window, state);
    return DefWindowProcW(window, message, wparam, lparam);
  }
  try {
    if (const std::optional<LRESULT> handled = Handle(*state, message, wparam, lparam)) {
      return *handled;
    }
  } catch (const std::exception& e) {
    Log(kLogError, L"tray window: %hs", e.what());
    return 0;
  }
  return DefWindowProcW(window, message, wparam, lparam);
}

// The common controls first: the window's sliders are theirs. Asked again at every opening,
// which they allow.
bool RegisterTrayWindowClass(HINSTANCE instance) {
  const INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_BAR_CLASSES | ICC_STANDARD_CLASSES};
  if (!InitCommonControlsEx(&controls)) {
    Log(kLogWarn, L"InitCommonControlsEx failed (%lu); sliders may not appear", GetLastError());
  }
  WNDCLASSEXW window_class = {};
  window_class.cbSize = sizeof(window_class);
  window_class.lpfnWndProc = &TrayWindowProc;
  window_class.hInstance = instance;
  window_class.hIcon = LoadIconW(instance, MAKEINTRESOURCEW(1));
  window_class.hCursor = LoadCursorW(nullptr, IDC_ARROW);
  window_class.hbrBackground = reinterpret_cast<HBRUSH>(static_cast<INT_PTR>(COLOR_WINDOW + 1));
  window_class.lpszClassName = kTrayWindowClass;
  if (!EnsureWindowClass(window_class)) {
    Log(kLogError, L"could not register the tray window class (%lu)", GetLastError());
    return false;
  }
  return true;
}

RECT WorkAreaUnderCursor() {
  POINT cursor = {};
  GetCursorPos(&cursor);
  return WorkAreaOf(MonitorFromPoint(cursor, MONITOR_DEFAULTTONEAREST));
}

void FillControls(TrayWindowState& state) {
  SetDlgItemTextW(state.window, kIdEmail, Utf8ToWide(state.working.email).c_str());
  SetDlgItemTextW(state.window, kIdVersion,
                  (std::wstring(L"Version ") + kProductVersionText).c_str());
  ShowWorkingSettings(state);
  ShowAccountStatus(state, FailureText(state.session->LastFailure()));
}

}  // namespace

TrayWindow::TrayWindow(HINSTANCE instance, TrayWindowCallbacks callbacks)
    : instance_(instance), callbacks_(std::move(callbacks)) {}

TrayWindow::~TrayWindow() { Close(); }

void TrayWindow::Close() {
  if (const HWND window = get()) DestroyWindow(window);
  requests_.Finish();
}

// Made hidden on the cursor's monitor, so that it has that monitor's DPI before its layout.
bool TrayWindow::Open(Session& session, const std::string& game_key) {
  if (window_) {
    if (IsIconic(window_)) ShowWindow(window_, SW_RESTORE);
    SetForegroundWindow(window_);
    return true;
  }
  if (!RegisterTrayWindowClass(instance_)) return false;
  auto state = std::make_unique<TrayWindowState>();
  state->owner = this;
  state->session = &session;
  state->game_key = game_key;
  state->working = session.CurrentSettings();
  const RECT area = WorkAreaUnderCursor();
  const HWND window = CreateWindowExW(0, kTrayWindowClass, kWindowTitle, kWindowStyle, area.left,
                                      area.top, 100, 100, nullptr, nullptr, instance_, &state);
  if (!window) {
    Log(kLogError, L"could not create the tray window (%lu)", GetLastError());
    return false;
  }
  window_ = window;
  TrayWindowState& adopted = *TrayWindowState::Of(window);
  if (!CreateTrayWindowControls(adopted, instance_)) {
    DestroyWindow(window);
    return false;
  }
  LayOutForDpi(adopted, GetWindowDpi(window));
  for (const int status : {kIdAccountStatus, kIdActionStatus}) {
    MarkLiveRegion(GetDlgItem(window, status));
  }
  FillControls(adopted);
  PlaceTrayWindow(adopted, area, std::nullopt);
  ShowWindow(window, SW_SHOW);
  SetForegroundWindow(window);
  FocusFirstControl(window);
  if (requests_.Busy()) {  // started by a window closed since; its result comes here
    ShowBusy(adopted, requests_.RunningKind());
    adopted.awaited = requests_.RunningSerial();
  }
  ShowProgress(adopted);
  return true;
}

}  // namespace qn
